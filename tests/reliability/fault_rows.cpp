// Every exported call, once or more: how it is made, what it gives, what it writes.
#include <linux/i2c.h>

#include "fault_rules.h"

namespace faults
{

uint8_t *window = nullptr;

namespace
{

constexpr ei2c_client device(uint16_t addr, uint32_t swi_addr = 0x70, uint32_t swi_chnl = 5)
{
    return {4, addr, 0, swi_addr, swi_chnl, {}};
}

const ei2c_client plain = device(0x60, 0, 0);
const ei2c_client middle = device(0x21);
const ei2c_client far_away = device(0x22, 0x00700071, 0x00050003);
const ei2c_client io = device(0x23, 0, 0);
const ei2c_client leds = device(0x24, 0, 0);
const ei2c_client monitor = device(0x44, 0, 0);
const ei2c_client timer = device(0x18);
const ei2c_client store = device(0x50);
const ei2c_client lattice = device(0x40);
const ei2c_client pango = device(0x41);
const ei2c_client ef2 = device(0x42);
const ei2c_client ef3 = device(0x43);
const ei2c_client card = device(0x31);
const tpa626_info described = {monitor, 0x2741, 0x0014, 0, 25.0F, 1.25F, 0, 1.0F, 1.0F};
const retimer_i2c_dev timer_bytes = {4, 0x18, {}, 1, 0x70, 5, 0, 0};

const uint8_t bytes[64] = {0x10, 1, 2, 3, 4, 5};
uint8_t reg = 0x10;
ui2c_adapter *adapter;
ui2c_switch *swi;
int32_t fd;
int32_t semid;

// The window as what a call writes.
template <typename Word>
Word *out(size_t offset = 0)
{
    return reinterpret_cast<Word *>(window + offset);
}

uint8_t *area()
{
    window[0] = 4;
    for (int i = 1; i < QELI2C_SMBUS_AREA; ++i)
        window[i] = 0x55;
    return window;
}

int32_t transfer(const ei2c_client &client, decltype(ei2c_rdwr_xfer) call)
{
    i2c_msg messages[2] = {{client.addr, 0, 1, &reg}, {client.addr, I2C_M_RD, 4, window}};
    return call(&client, messages, 2);
}

int32_t transfer_pair(const ei2c_client &client)
{
    uint8_t written[2] = {0x30, 0x5A};
    i2c_msg set0 = {client.addr, 0, 2, written};
    i2c_msg set1[2] = {{client.addr, 0, 1, &reg}, {client.addr, I2C_M_RD, 4, window}};
    i2c_msg *sets[2] = {&set0, set1};
    const uint32_t counts[2] = {1, 2};
    return ei2c_rdwr_mxfer(&client, sets, counts);
}

int32_t transact(const ei2c_client &client, decltype(ei2c_smbus_xfer) call)
{
    return call(&client, 1, 0x10, 2, area());
}

void find_adapter()
{
    adapter = ui2c_to_adapter(4);
}

void find_switch()
{
    find_adapter();
    swi = ui2c_to_switch(adapter, 0x70, 0);
}

void open_file()
{
    find_adapter();
    fd = ui2c_adapter_fd(adapter);
}

void take_semaphore()
{
    find_adapter();
    semid = ipc_lock_adapter(adapter);
}

void take_file_lock()
{
    open_file();
    (void)exclusive_file_lock(fd);
}

template <const ei2c_client &client>
void take_bus()
{
    (void)ei2c_smbus_lock_adapter(&client, &fd, &semid);
}

template <const ei2c_client &client>
void open_bus()
{
    (void)ei2c_smbus_select_switch(&client, &fd, &semid);
}

template <const ei2c_client &client>
void take_bridge()
{
    (void)lockAndSelectBridge_Ridgeback(&client, &semid, &fd);
}

template <const ei2c_client &client>
void release()
{
    (void)ei2c_smbus_deselect_switch(&client, *out<int32_t>(), *out<int32_t>(4));
}

template <const ei2c_client &client>
void release_bridge()
{
    (void)unlockAndDeselectBridge_Ridgeback(&client, out<int32_t>(), out<int32_t>(4));
}

// Results of the taking calls.
constexpr Results kHold = {{0, -1, QELI2C_NO_DEVICE_FILE, -1, -2, -4, -3, -5, 0, -1, 0}};
constexpr Results kHoldPath = {{1, -1, QELI2C_NO_DEVICE_FILE, -1, -2, -4, -3, -5, 0, -1, 0}};
constexpr int32_t kNoFile = QELI2C_NO_DEVICE_FILE;
constexpr Results kPlain = results(0, -1, -1);
constexpr Results kStored = {{6, -1, kNoFile, 0, -1, -1, -1, -1, 0, 2, 6}};
// Of a read that does not tell of its failure.
constexpr Results kSilent = results(0, 0, 0);

constexpr Family kLocked = Family::locked;
constexpr Family kStraight = Family::straight;
constexpr uint32_t kHeldPath = kHolds | kKeepsPath;

} // namespace

// clang-format off
#define AS(name, expression) #name, [] { return expression; }
#define CALL(name, ...) #name, [] { return static_cast<int32_t>(name(__VA_ARGS__)); }

const std::vector<Row> kRows = {
    // Registry.
    {AS(ui2c_to_client, ui2c_to_client(4, 0x22, 0x00700071, 0) != nullptr ? 1 : 0), Family::lookup,
     &far_away, 0, results(1, 0)},
    {AS(ui2c_to_adapter, ui2c_to_adapter(4) != nullptr ? 1 : 0), kStraight, nullptr, 0,
     results(1, 0)},
    {AS(ui2c_to_switch, ui2c_to_switch(adapter, 0x70, 0) != nullptr ? 1 : 0), kStraight, &middle,
     0, results(1, 0), 0, find_adapter},

    // Bus lock and owner.
    {AS(ui2c_adapter_fd, ui2c_adapter_fd(adapter) >= 0 ? -2 : -1), kStraight, nullptr, 0,
     results(-2, -1, -1), 0, find_adapter},
    {CALL(ipc_lock_adapter, adapter), kStraight, nullptr, 0, kPlain, kHoldsSemaphore,
     find_adapter, [] { (void)ipc_unlock_adapter(0); }},
    {CALL(ipc_unlock_adapter, semid), kStraight, nullptr, 0, results(0), 0, take_semaphore},
    {CALL(exclusive_file_lock, fd), kStraight, nullptr, 0, results(0), kHoldsFile, open_file,
     [] { (void)surrender_i2c_access(fd); }},
    {CALL(surrender_i2c_access, fd), kStraight, nullptr, 0, results(0), 0, take_file_lock},
    {CALL(getPidOfI2CAccess, adapter), kStraight, nullptr, 0, results(0), kNoResult,
     find_adapter},

    // Raw transfers and switches.
    {"ui2c_rdwr_xfer", [] {
         i2c_msg message = {0x60, I2C_M_RD, 4, window};
         return ui2c_rdwr_xfer(adapter, 0x60, &message, 1);
     }, kStraight, nullptr, 4, results(1), kRaw, find_adapter},
    {CALL(ui2c_raw_read_byte, adapter, 0x60, window), kStraight, nullptr, 1, results(1), 0, find_adapter},
    {CALL(ui2c_raw_write_byte, adapter, 0x60, 0x10), kStraight, nullptr, 0, results(1), 0,
     find_adapter},
    {CALL(ui2c_smbus_xfer, adapter, 0x60, 0, 1, 0x10, 2, area()), kStraight, nullptr, 256,
     results(0), kRaw, find_adapter},
    {CALL(ui2c_swi_select, swi, 5), kStraight, nullptr, 0, results(1), kKeepsPath, find_switch,
     [] { (void)ui2c_swi_deselect(swi, 5); }},
    {CALL(ui2c_swi_deselect, swi, 5), kStraight, nullptr, 0, results(1), 0, find_switch},
    {CALL(ui2c_swi_status, swi, window), kStraight, nullptr, 1, results(1), 0,
     find_switch},
    {CALL(SelectSwitch, &far_away), Family::open_path, &far_away, 0, results(0), kKeepsPath,
     nullptr, [] { (void)DeselectSwitch(&far_away); }},
    {CALL(DeselectSwitch, &far_away), Family::close_path, &far_away, 0, results(1), 0,
     [] { (void)SelectSwitch(&far_away); }},
    {CALL(readSwitchStatus, &middle, window), kStraight, &middle, 1, results(1), 0},

    // Locked transfers, at each depth.
    {AS(ei2c_rdwr_xfer, transfer(plain, ei2c_rdwr_xfer)), kLocked, &plain, 4, results(2), kRaw},
    {AS(ei2c_rdwr_xfer, transfer(middle, ei2c_rdwr_xfer)), kLocked, &middle, 4, results(2), kRaw},
    {AS(ei2c_rdwr_xfer, transfer(far_away, ei2c_rdwr_xfer)), kLocked, &far_away, 4, results(2),
     kRaw},
    {AS(ei2c_rdwr_mxfer, transfer_pair(far_away)), kLocked, &far_away, 4, results(2), kRaw},
    {AS(ei2c_rdwr_xfer_without_retry, transfer(far_away, ei2c_rdwr_xfer_without_retry)),
     Family::once, &far_away, 4, results(2), kRaw},
    {AS(ei2c_smbus_xfer, transact(plain, ei2c_smbus_xfer)), kLocked, &plain, 256, results(0), kRaw},
    {AS(ei2c_smbus_xfer, transact(far_away, ei2c_smbus_xfer)), kLocked, &far_away, 256, results(0),
     kRaw},
    {CALL(ei2c_smbus_xfer_wtrd, &plain, 0, 1, 0x10, 2, area(), nullptr, out<uint32_t>(256), 0),
     kStraight, &plain, 260, results(0), kRaw},
    {CALL(qel_ei2c_smbus_xfer_read, &plain, 0, window, out<uint32_t>(8)), Family::response, &plain,
     12, results(5), kRaw},

    // Holds.
    {CALL(ei2c_smbus_lock_adapter, &middle, out<int32_t>(), out<int32_t>(4)), Family::hold,
     &middle, 8, kHold, kHolds, nullptr, release<middle>},
    {CALL(ei2c_smbus_unlock_adapter, &middle, fd, semid), Family::let_go, &middle, 0, results(0),
     0, take_bus<middle>},
    {CALL(ei2c_smbus_select_switch, &far_away, out<int32_t>(), out<int32_t>(4)), Family::hold_path,
     &far_away, 8, kHoldPath, kHeldPath, nullptr, release<far_away>},
    {CALL(ei2c_smbus_deselect_switch, &far_away, fd, semid), Family::let_go_path, &far_away, 0,
     results(0), 0, open_bus<far_away>},
    {AS(ei2c_smbus_xfer_without_lock, transact(far_away, ei2c_smbus_xfer_without_lock)),
     Family::unlocked, &far_away, 256, results(0), kRaw},
    {CALL(lockAndSelectBridge_Ridgeback, &far_away, out<int32_t>(), out<int32_t>(4)),
     Family::bridge, &far_away, 8, kPlain, kHeldPath | kRaw, nullptr,
     release_bridge<far_away>},
    {CALL(unlockAndDeselectBridge_Ridgeback, &far_away, &semid, &fd), Family::bridge_end,
     &far_away, 0, results(0), 0, take_bridge<far_away>},

    // SMBus commands.
    {CALL(ei2c_smbus_read_byte, &middle, window), kLocked, &middle, 1},
    {CALL(ei2c_smbus_write_byte, &middle, 0x5A), kLocked, &middle},
    {CALL(ei2c_smbus_read_byte_data, &middle, 0x10, window), kLocked, &middle, 1},
    {CALL(ei2c_smbus_write_byte_data, &middle, 0x10, 4), kLocked, &middle},
    {CALL(ei2c_smbus_read_word_data, &middle, 0x10, out<uint16_t>()), kLocked, &middle, 2},
    {CALL(ei2c_smbus_write_word_data, &middle, 0x10, 0x0404), kLocked, &middle},
    {CALL(ei2c_smbus_read_block_data, &middle, 0x10, window + 4, window), kLocked, &middle, 5},
    {CALL(qel_ei2c_smbus_read_block_data, &middle, 0x10, 3, window), kLocked, &middle, 4},
    {CALL(ei2c_smbus_write_block_data, &middle, 0x40, 4, bytes), kLocked, &middle},
    {CALL(ei2c_smbus_wtrd_block_data, &plain, 0, 0x40, 4, bytes, window, out<uint32_t>(8), 0),
     Family::response, &plain, 12, results(5), kRaw},
    {CALL(ei2c_smbus_read_block_proc_call_data, &middle, 0x40, bytes, 2, window, window + 4),
     kLocked, &middle, 5},
    {CALL(qel_ei2c_smbus_mctp_read_block_data, &plain, 0, window, out<uint32_t>(8)),
     Family::response, &plain, 12, results(5), kRaw},
    {CALL(ei2c_smbus_read_i2c_block_data, &middle, 1, bytes, 4, window), kLocked, &middle, 4,
     results(2)},
    {CALL(ei2c_smbus_write_i2c_block_data, &middle, 0x40, 4, bytes), kLocked, &middle},
    {CALL(ei2c_smbus_read_byte_data_without_lock, &middle, 0x10, window), Family::unlocked,
     &middle, 1},
    {CALL(ei2c_smbus_write_byte_data_without_lock, &middle, 0x10, 4), Family::unlocked, &middle},

    // Offsets and EEPROMs; without memory the first two give 0.
    {CALL(i2cRead, &middle, 4, window, 1, 0x10), kLocked, &middle, 4, results(2, -1, kNoFile, 0)},
    {CALL(i2cWrite, &middle, 4, bytes, 1, 0x40), kLocked, &middle, 0, results(1, -1, kNoFile, 0)},
    {CALL(ee_eeprom_page_write, &store, 30, bytes, 6), kLocked, &store, 0, results(2)},
    {CALL(ee_eeprom_page_read, &store, 30, window, 6), kLocked, &store, 2, results(2), kRaw},
    {CALL(eeprom_write, &store, 30, bytes, 6), kLocked, &store, 0, kStored, kPages},
    {CALL(eeprom_read, &store, 30, window, 6), kLocked, &store, 6, kStored, kPages | kRaw},
    {CALL(ei2c_eeprom_write, &store, 0, bytes, 6), kLocked, &store, 0, results(6)},
    {CALL(ei2c_eeprom_read, &store, 0, window, 6), kLocked, &store, 6, results(6), kRaw},
    {CALL(ei2c_eeprom_write_retry, &store, 0, bytes, 6), kLocked, &store, 0, results(6), kRepeats},
    {CALL(ei2c_eeprom_read_retry, &store, 0, window, 6), kLocked, &store, 6, results(6),
     kRepeats | kRaw},
    {CALL(ee_eeprom_semid), kStraight, nullptr, 0, results(0, -1, -1, -1, -1)},
    {CALL(ee_lock_eeprom), kStraight, nullptr, 0, results(0, -1, -1, -1, -1), kHoldsEeprom,
     nullptr, [] { (void)ee_unlock_eeprom(); }},
    {CALL(ee_unlock_eeprom), kStraight, nullptr, 0, results(0), 0,
     [] { (void)ee_lock_eeprom(); }},
    {CALL(i2c_bus_status_check, 4, window), kStraight, nullptr, 1},

    // Expanders: up to four accesses, of which each must succeed.
    {CALL(pca9535_gpio_direction_input, &io, 3), kLocked, &io},
    {CALL(pca9535_gpio_direction_output, &io, 3, 1), kLocked, &io},
    {CALL(pca9535_gpio_get_value, &io, 9, out<uint32_t>()), kLocked, &io, 4, kSilent},
    {CALL(pca9535_gpio_set_value, &io, 3, 1), kLocked, &io},
    {CALL(pca9535_gpio_word_direction_input, &io, 3), kLocked, &io},
    {CALL(pca9535_gpio_word_direction_output, &io, 3, 1), kLocked, &io},
    {CALL(pca9535_gpio_word_get_value, &io, 0x0F, out<uint32_t>()), kLocked, &io, 4},
    {CALL(pca9535_gpio_word_set_value, &io, 3, 1), kLocked, &io},
    {CALL(pca9535_gpio_word_get_output_value, &io, 0x0F, out<uint32_t>()), kLocked, &io, 4,
     kSilent},
    {CALL(ei2c_pca9535_get_word_value, &io, 0x0F, out<uint32_t>()), kLocked, &io, 4},
    {CALL(ei2c_pca9535_set_word_value, &io, 3, 1), kLocked, &io},
    {CALL(ei2c_pca9535_get_value, &io, 9, out<uint32_t>()), kLocked, &io, 4,
     {{0, -1, kNoFile, -1, -1, -1, -1, -1, 0, 0, 0}}, kLastSilent},
    {CALL(ei2c_pca9535_set_value, &io, 3, 1), kLocked, &io},
    {CALL(ei2c_pca9535_get_output_value, &io, 3, out<uint32_t>()), kLocked, &io, 4, kSilent},
    {CALL(pca9554_gpio_direction_input, &leds, 3), kLocked, &leds},
    {CALL(pca9554_gpio_direction_output, &leds, 3, 1), kLocked, &leds},
    {CALL(pca9554_gpio_get_value, &leds, 7, out<uint32_t>()), kLocked, &leds, 4, kSilent},
    {CALL(pca9554_gpio_set_value, &leds, 3, 1), kLocked, &leds},
    {CALL(pca9554_gpio_byte_direction_input, &leds, 3), kLocked, &leds},
    {CALL(pca9554_gpio_byte_direction_output, &leds, 3, 1), kLocked, &leds},
    {CALL(pca9554_gpio_byte_get_value, &leds, 0x0F, window), kLocked, &leds, 1, kSilent},
    {CALL(pca9554_gpio_byte_set_value, &leds, 3, 1), kLocked, &leds},

    // Monitors.
    {CALL(TPA626_GetPower, &monitor, 1, out<float>()), kLocked, &monitor, 4, kPlain, kLastCounts},
    {CALL(TPA626_GetVolt, &monitor, out<float>()), kLocked, &monitor, 4, kPlain},
    {CALL(TPA626_GetPowerByInfo, &described, out<float>()), kLocked, &monitor, 4, kPlain},
    {CALL(TPA626_GetVoltByInfo, &described, out<float>()), kLocked, &monitor, 4, kPlain},

    // Retimers.
    {CALL(Retimer_I2CWriteBlockData, &timer, 5, bytes), kLocked, &timer, 0, kPlain, 0},
    {CALL(Retimer_I2CReadBlockData, &timer, 0x10, 4, window), kLocked, &timer, 4, kPlain, 0},
    {CALL(Retimer_I2CWrite, &timer_bytes, 5, bytes), kLocked, &timer, 0, kPlain, 0},
    {CALL(Retimer_I2CRead, &timer_bytes, 4, window), kLocked, &timer, 4, kPlain, 0},

    // Board logic.
    {CALL(i2c_read_multi_para, &middle, 0x10, 1, 4, window), kLocked, &middle, 4, kPlain, kRaw},
    {CALL(i2c_write_multi_para, &middle, 0x40, 1, 4, bytes), kLocked, &middle, 0, kPlain, 0},
    {"i2c_write_and_read_multi_para", [] {
         static const uint32_t offsets[2] = {0x40, 0x10};
         static const uint32_t lengths[2] = {2, 4};
         return i2c_write_and_read_multi_para(&middle, offsets, 1, lengths, bytes, window);
     }, kLocked, &middle, 4, kPlain, kRaw},
    {CALL(pango_i2c_read_multi_para, &middle, 0x10, 0, 0, 4, window), kLocked, &middle, 4, kPlain,
     kRaw},
    {CALL(pango_i2c_write_multi_para, &middle, 0x40, 0x11, 1, 3, bytes), kLocked, &middle, 0,
     kPlain, 0},
    {CALL(pango_i2c_write_or_read_with_nack, &middle, 0x40, 0x11, 1, 1), Family::once, &middle, 0,
     results(0, 0, 0)},
    {CALL(epld_i2c_read_deviceId, &ef2, window), kLocked, &ef2, 4, results(3, -1, -1),
     kRaw | kProbes},
    {CALL(epld_anlogic_read_deviceId, &ef2, window), kLocked, &ef2, 4, kPlain, kRaw | kProbes},
    {CALL(epld_anlogic_ef2_read_deviceId, &ef2, window), kLocked, &ef2, 4, kPlain, kRaw | kProbes},
    {CALL(epld_anlogic_ef3_read_deviceId, &ef3, window), kLocked, &ef3, 4, kPlain, kRaw},
    {CALL(epld_lattice_read_deviceId, &lattice, window), kLocked, &lattice, 4, kPlain, kRaw},
    {CALL(epld_pango_read_deviceId, &pango, window), kLocked, &pango, 4, kPlain, kRaw | kProbes},
    {CALL(epld_card_epld_read, &card, 0, window, 4), kLocked, &card, 4, kPlain, kRaw},

    // Nothing in these can fail.
    {CALL(card_epld_read), kStraight, nullptr, 0, results(-1)},
    {CALL(card_epld_cnt), kStraight, nullptr},
    {AS(card_epld_dev, card_epld_dev(0) == nullptr ? 0 : 1), kStraight, nullptr},
    {CALL(BytesToDword, bytes), kStraight, nullptr, 0, results(0x10010203)},
    {"reverseArray", [] {
         for (uint8_t i = 0; i < 4; ++i)
             window[i] = i;
         reverseArray(window, 4);
         return 0;
     }, kStraight, nullptr, 4, results(0), kRaw},
};

} // namespace faults
