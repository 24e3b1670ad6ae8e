// Every exported call of the library with any arguments that C and the header allow, over a kernel
// and devices that answer anything. After each: nothing is held or allocated that should not be,
// and what a failed call must not write is untouched.
#include "tests/fuzz/doubled_platform.h"

#include "include/qeli2c.h"

#include <linux/i2c-dev.h>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

extern "C" void *__real_malloc(size_t size);
extern "C" void __real_free(void *block);

namespace
{

using fuzz::broken;
using fuzz::Input;
using fuzz::platform;

constexpr uint8_t kUntouched = 0xa5;
constexpr uint32_t kLongestBuffer = 0x10200;

// The memory that a call is given, each piece of exactly the size it has to have.
struct Piece {
    uint8_t *bytes;
    size_t size;
    bool is_output;
};
std::vector<Piece> pieces;

uint8_t *new_piece(size_t size, bool is_output)
{
    auto *bytes = static_cast<uint8_t *>(__real_malloc(size));
    memset(bytes, kUntouched, size);
    pieces.push_back({bytes, size, is_output});
    return bytes;
}

uint8_t *output(Input &in, size_t size)
{
    return in.rarely() ? nullptr : new_piece(size, true);
}

uint8_t *some_bytes(Input &in, size_t size)
{
    if (in.rarely())
        return nullptr;
    uint8_t *bytes = new_piece(size, false);
    for (size_t i = 0; i < std::min<size_t>(size, 4); i++)
        bytes[i] = in.byte();
    return bytes;
}

template <typename T>
T *record(Input &in, const T &value)
{
    return in.rarely() ? nullptr
                       : static_cast<T *>(memcpy(new_piece(sizeof(T), false), &value, sizeof(T)));
}

uint32_t bus_number(Input &in)
{
    const uint8_t choice = in.byte();
    return choice < 240 ? choice % 16 : choice < 250 ? choice : in.take<uint32_t>();
}

uint32_t switch_halves(Input &in)
{
    const uint8_t choice = in.byte();
    if (choice < 224)
        return (choice & 7U) | (choice & 0x38U) << 13U;
    return in.take<uint32_t>();
}

ei2c_client client_value(Input &in)
{
    ei2c_client client = {};
    client.bus = bus_number(in);
    client.addr = in.byte();
    client.flags = in.byte() < 192 ? 0 : in.take<uint16_t>();
    client.swi_addr = switch_halves(in);
    client.swi_chnl = switch_halves(in);
    memset(client.pcie_name, 'x', sizeof(client.pcie_name)); // without an end
    return client;
}

tpa626_info monitor_value(Input &in)
{
    auto info = in.take<tpa626_info>();
    info.client = client_value(in);
    return info;
}

ui2c_adapter *adapter_of(Input &in)
{
    return in.rarely() ? nullptr : ui2c_to_adapter(bus_number(in));
}

i2c_msg *messages(Input &in, uint32_t &num)
{
    num = in.length();
    const uint32_t shown = (num & 0xff) > I2C_RDWR_IOCTL_MAX_MSGS ? 0 : num & 0xff;
    if (in.rarely())
        return nullptr;
    const size_t count = std::max(shown, 1U);
    auto *array = reinterpret_cast<i2c_msg *>(new_piece(count * sizeof(i2c_msg), false));
    for (size_t i = 0; i < count; i++) {
        const auto length = static_cast<uint16_t>(in.length());
        array[i] = {
            in.byte(),
            static_cast<uint16_t>(in.byte() % 4 < 2 ? in.byte() & I2C_M_RD : in.take<uint16_t>()),
            length, nullptr};
        if (!in.rarely()) // the first one's first byte is traced
            array[i].buf = new_piece(std::max<uint16_t>(length, i == 0 ? 1 : 0), false);
    }
    return array;
}

template <typename T>
T argument(Input &in)
{
    if constexpr (std::is_same_v<T, const ei2c_client *>)
        return record(in, client_value(in));
    else if constexpr (std::is_same_v<T, const tpa626_info *>)
        return record(in, monitor_value(in));
    else if constexpr (std::is_same_v<T, ui2c_adapter *>)
        return adapter_of(in);
    else if constexpr (std::is_same_v<T, ui2c_switch *>)
        return in.rarely() ? nullptr : ui2c_to_switch(adapter_of(in), switch_halves(in), 0);
    else if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<T>(output(in, sizeof(std::remove_pointer_t<T>)));
    else
        return in.take<T>();
}

const ei2c_client *client_of(Input &in)
{
    return argument<const ei2c_client *>(in);
}

// What a call may do besides the usual.
struct Rules {
    bool locked = true;    // transfers with the bus taken by itself
    bool partial = false;  // a failure may have written something
    bool releases = false; // also what is not held
};
constexpr Rules kLocked = {};
constexpr Rules kLockedPartial = {true, true, false};
constexpr Rules kUnlocked = {false, false, false};
constexpr Rules kUnlockedPartial = {false, true, false};
constexpr Rules kReleasing = {false, false, true};
constexpr Rules kBridge = {false, true, true}; // gives back the file lock that it did not get

// What may be held when a call has returned.
uint32_t held_semaphores = 0;
uint32_t held_file_locks = 0;

void check_outputs(int32_t result, const Rules &rules)
{
    for (Piece &piece : pieces) {
        const bool promised = piece.is_output && result < 0 && !rules.partial;
        for (size_t i = 0; promised && i < piece.size; i++)
            if (piece.bytes[i] != kUntouched)
                broken("a failed call has written an output");
        piece.is_output = false; // another call may follow
    }
}

// Makes one call, as a function without arguments.
template <typename Call>
int32_t watched(Input &in, const Rules &rules, Call call)
{
    platform.bus_needed = rules.locked;
    platform.own_releases = !rules.releases;
    const int32_t result = call();
    if (platform.semaphores != held_semaphores && !rules.releases)
        broken("a semaphore is held, or has been given away");
    if (platform.file_locks != held_file_locks && !rules.releases)
        broken("a file lock is held, or has been given away");
    check_outputs(result, rules);
    platform.bus_needed = false;
    (void)in;
    return result;
}

// A call whose arguments are all of fixed size.
template <typename... Arguments>
int32_t plain(Input &in, int32_t (*function)(Arguments...), const Rules &rules)
{
    const std::tuple<Arguments...> arguments{argument<Arguments>(in)...};
    return watched(in, rules, [&] { return std::apply(function, arguments); });
}

// Calls that are allowed while a bus is held, by its holder.
void use_held_bus(Input &in, const ei2c_client *client)
{
    switch (in.byte() % 4) {
    case 0:
        plain(in, ei2c_smbus_read_byte_data_without_lock, kUnlocked);
        break;
    case 1:
        plain(in, ei2c_smbus_write_byte_data_without_lock, kUnlocked);
        break;
    case 2:
        plain(in, SelectSwitch, kUnlocked);
        break;
    default:
        watched(in, kUnlocked, [client] { return DeselectSwitch(client); });
    }
}

// A hold from its taking to its release.
template <typename Take, typename Release>
void hold(Input &in, Take take, Release release, const Rules &rules)
{
    const ei2c_client *client = client_of(in);
    auto *fd = reinterpret_cast<int32_t *>(output(in, sizeof(int32_t)));
    auto *semid = reinterpret_cast<int32_t *>(output(in, sizeof(int32_t)));
    platform.bus_needed = false; // paths are opened with it
    platform.own_releases = !rules.releases;
    const int32_t taken = take(client, fd, semid);
    check_outputs(taken, rules);
    if (taken < 0) {
        watched(in, kUnlocked, [] { return 0; }); // nothing is held
        return;
    }
    held_semaphores = held_file_locks = 1U << client->bus;
    if (*semid != fuzz::semaphore_of(client->bus))
        broken("a hold hands out another semaphore");
    for (uint32_t calls = in.byte() % 3; calls > 0; calls--)
        use_held_bus(in, client);
    held_semaphores = held_file_locks = 0;
    watched(in, kUnlocked, [&] { return release(client, fd, semid); });
}

void bus_by_hand(Input &in)
{
    ui2c_adapter *adapter = adapter_of(in);
    const int32_t fd = ui2c_adapter_fd(adapter);
    const int32_t semid = ipc_lock_adapter(adapter);
    if (semid < 0) {
        watched(in, kUnlocked, [] { return 0; });
        return;
    }
    (void)getPidOfI2CAccess(adapter);
    const bool locked = fd >= 0 && exclusive_file_lock(fd) == 0;
    held_semaphores = 1U << adapter->bus;
    held_file_locks = locked ? held_semaphores : 0;
    watched(in, kUnlocked, [] { return 0; });
    held_semaphores = held_file_locks = 0;
    watched(in, kUnlocked, [&] {
        if (locked)
            (void)surrender_i2c_access(fd);
        return ipc_unlock_adapter(semid);
    });
}

void eeprom_by_hand(Input &in)
{
    (void)ee_eeprom_semid();
    (void)ee_lock_eeprom();
    watched(in, kUnlocked, [] {
        (void)ee_unlock_eeprom();
        return 0;
    });
}

// An EEPROM's offset and length; a length that would take long is not tried.
int32_t eeprom_length(Input &in, int32_t &offset)
{
    offset = in.rarely() ? in.take<int32_t>() : in.take<uint16_t>();
    const auto length = static_cast<int32_t>(in.length());
    return length > 0x200 ? 0x200 : length;
}

template <typename Byte>
void eeprom(Input &in, int32_t (*function)(const ei2c_client *, int32_t, Byte *, int32_t))
{
    int32_t offset = 0;
    const int32_t length = eeprom_length(in, offset);
    const size_t size = length < 0 ? 0 : static_cast<size_t>(length);
    const ei2c_client *client = client_of(in);
    Byte *data = std::is_const_v<Byte> ? some_bytes(in, size) : output(in, size);
    watched(in, kLockedPartial, [&] { return function(client, offset, data, length); });
}

// A length and a buffer for it, of which the call says it uses at most `most` bytes.
struct Sized {
    uint32_t length;
    uint8_t *bytes;
};
Sized sized_output(Input &in, uint32_t most)
{
    const uint32_t length = in.length();
    return {length, output(in, std::min(length, most))};
}
Sized sized_bytes(Input &in, uint32_t most)
{
    const uint32_t length = in.length();
    return {length, some_bytes(in, std::min(length, most))};
}

template <typename Call>
void transfer_messages(Input &in, const Rules &rules, Call call)
{
    uint32_t num = 0;
    i2c_msg *array = messages(in, num);
    watched(in, rules, [&] { return call(array, num); });
}

void message_pair(Input &in)
{
    auto *sets = reinterpret_cast<i2c_msg **>(new_piece(2 * sizeof(i2c_msg *), false));
    auto *counts = reinterpret_cast<uint32_t *>(new_piece(2 * sizeof(uint32_t), false));
    sets[0] = messages(in, counts[0]);
    sets[1] = messages(in, counts[1]);
    const bool without_sets = in.rarely();
    const bool without_counts = in.rarely();
    const ei2c_client *client = client_of(in);
    watched(in, kLockedPartial, [&] {
        return ei2c_rdwr_mxfer(client, without_sets ? nullptr : sets,
                               without_counts ? nullptr : counts);
    });
}

void write_and_read(Input &in)
{
    auto *offsets = reinterpret_cast<uint32_t *>(some_bytes(in, 2 * sizeof(uint32_t)));
    const Sized written = sized_bytes(in, kLongestBuffer);
    const Sized read = sized_output(in, kLongestBuffer);
    const uint32_t lengths[2] = {written.length, std::min(read.length, kLongestBuffer)};
    const bool without_lengths = in.rarely();
    const ei2c_client *client = client_of(in);
    watched(in, kLockedPartial, [&] {
        return i2c_write_and_read_multi_para(client, offsets, in.byte(),
                                             without_lengths ? nullptr : lengths, written.bytes,
                                             read.bytes);
    });
}

void identify(Input &in, int32_t (*function)(const ei2c_client *, uint8_t *))
{
    const ei2c_client *client = client_of(in);
    uint8_t *data = output(in, 4);
    watched(in, kLockedPartial, [&] { return function(client, data); });
}

template <typename Engine>
void smbus_area(Input &in, const Rules &rules, Engine engine)
{
    const ei2c_client *client = client_of(in);
    const uint32_t read_write = in.rarely() ? in.take<uint32_t>() : in.byte() % 2;
    const uint32_t size = in.rarely() ? in.take<uint32_t>() : in.byte() % 10;
    uint8_t *area = some_bytes(in, QELI2C_SMBUS_AREA);
    const uint32_t command = in.byte();
    watched(in, rules, [&] { return engine(client, read_write, command, size, area); });
}

retimer_i2c_dev *retimer_of(Input &in)
{
    auto device = in.take<retimer_i2c_dev>();
    device.ucBus %= 20;
    device.ucSwiValid %= 2;
    return record(in, device);
}

void arrays(Input &in)
{
    (void)BytesToDword(some_bytes(in, 4));
    const auto count = static_cast<int32_t>(in.length());
    reverseArray(some_bytes(in, static_cast<size_t>(std::clamp(count, 0, 0x10000))),
                 std::min(count, 0x10000));
    (void)card_epld_read();
    if (card_epld_dev(in.byte() + card_epld_cnt()) != nullptr)
        broken("a subcard EPLD that is not there");
}

void look_up(Input &in)
{
    const ei2c_client client = client_value(in);
    (void)ui2c_to_client(client.bus, client.addr, client.swi_addr, client.swi_chnl);
}

#define PLAIN(function, rules) [](Input &in) { plain(in, function, rules); }
#define EEPROM(function) [](Input &in) { eeprom(in, function); }
#define IDENTIFY(function) [](Input &in) { identify(in, function); }
#define SMBUS(rules, ...)                                                                          \
    [](Input &in) {                                                                                \
        smbus_area(in, rules,                                                                      \
                   [&](auto client, uint32_t read_write, uint32_t command, uint32_t size,          \
                       uint8_t *data) { return __VA_ARGS__; });                                    \
    }
#define MESSAGES(rules, ...)                                                                       \
    [](Input &in) {                                                                                \
        transfer_messages(in, rules, [&](i2c_msg *msgs, uint32_t num) { return __VA_ARGS__; });    \
    }
// A call with one buffer of a length; `sized` makes it.
#define SIZED(rules, sized, ...)                                                                   \
    [](Input &in) {                                                                                \
        const ei2c_client *client = client_of(in);                                                 \
        const Sized data = sized;                                                                  \
        watched(in, rules, [&] { return __VA_ARGS__; });                                           \
    }

constexpr void (*kCalls[])(Input &in) = {
    PLAIN(SelectSwitch, kUnlocked),
    PLAIN(DeselectSwitch, kUnlocked),
    PLAIN(readSwitchStatus, kUnlocked),
    PLAIN(ui2c_raw_read_byte, kUnlocked),
    PLAIN(ui2c_raw_write_byte, kUnlocked),
    PLAIN(ui2c_swi_select, kUnlocked),
    PLAIN(ui2c_swi_deselect, kUnlocked),
    PLAIN(ui2c_swi_status, kUnlocked),
    PLAIN(ei2c_smbus_unlock_adapter, kReleasing),
    PLAIN(ei2c_smbus_deselect_switch, kReleasing),
    PLAIN(surrender_i2c_access, kReleasing),
    PLAIN(ipc_unlock_adapter, kReleasing),
    PLAIN(ei2c_smbus_read_byte, kLocked),
    PLAIN(ei2c_smbus_write_byte, kLocked),
    PLAIN(ei2c_smbus_read_byte_data, kLocked),
    PLAIN(ei2c_smbus_write_byte_data, kLocked),
    PLAIN(ei2c_smbus_read_word_data, kLocked),
    PLAIN(ei2c_smbus_write_word_data, kLocked),
    PLAIN(ei2c_smbus_read_byte_data_without_lock, kUnlocked),
    PLAIN(ei2c_smbus_write_byte_data_without_lock, kUnlocked),
    PLAIN(i2c_bus_status_check, kLocked),
    PLAIN(pca9535_gpio_direction_input, kLocked),
    PLAIN(pca9535_gpio_direction_output, kLocked),
    PLAIN(pca9535_gpio_get_value, kLocked),
    PLAIN(pca9535_gpio_set_value, kLocked),
    PLAIN(pca9535_gpio_word_direction_input, kLocked),
    PLAIN(pca9535_gpio_word_direction_output, kLocked),
    PLAIN(pca9535_gpio_word_get_value, kLocked),
    PLAIN(pca9535_gpio_word_set_value, kLocked),
    PLAIN(pca9535_gpio_word_get_output_value, kLocked),
    PLAIN(ei2c_pca9535_get_word_value, kLocked),
    PLAIN(ei2c_pca9535_set_word_value, kLocked),
    PLAIN(ei2c_pca9535_get_value, kLocked),
    PLAIN(ei2c_pca9535_set_value, kLocked),
    PLAIN(ei2c_pca9535_get_output_value, kLocked),
    PLAIN(pca9554_gpio_direction_input, kLocked),
    PLAIN(pca9554_gpio_direction_output, kLocked),
    PLAIN(pca9554_gpio_get_value, kLocked),
    PLAIN(pca9554_gpio_set_value, kLocked),
    PLAIN(pca9554_gpio_byte_direction_input, kLocked),
    PLAIN(pca9554_gpio_byte_direction_output, kLocked),
    PLAIN(pca9554_gpio_byte_get_value, kLocked),
    PLAIN(pca9554_gpio_byte_set_value, kLocked),
    PLAIN(TPA626_GetPower, kLocked),
    PLAIN(TPA626_GetVolt, kLocked),
    PLAIN(TPA626_GetPowerByInfo, kLocked),
    PLAIN(TPA626_GetVoltByInfo, kLocked),
    look_up,
    arrays,
    bus_by_hand,
    eeprom_by_hand,
    message_pair,
    EEPROM(ee_eeprom_page_write),
    EEPROM(ee_eeprom_page_read),
    EEPROM(eeprom_write),
    EEPROM(eeprom_read),
    EEPROM(ei2c_eeprom_read),
    EEPROM(ei2c_eeprom_write),
    EEPROM(ei2c_eeprom_read_retry),
    EEPROM(ei2c_eeprom_write_retry),
    IDENTIFY(epld_i2c_read_deviceId),
    IDENTIFY(epld_anlogic_read_deviceId),
    IDENTIFY(epld_anlogic_ef2_read_deviceId),
    IDENTIFY(epld_anlogic_ef3_read_deviceId),
    IDENTIFY(epld_lattice_read_deviceId),
    IDENTIFY(epld_pango_read_deviceId),
    SMBUS(kLockedPartial, ei2c_smbus_xfer(client, read_write, command, size, data)),
    SMBUS(kUnlockedPartial, ei2c_smbus_xfer_without_lock(client, read_write, command, size, data)),
    SMBUS(kUnlockedPartial,
          ei2c_smbus_xfer_wtrd(client, in.take<int32_t>(), read_write, command, size, data,
                               output(in, 256), argument<uint32_t *>(in), in.byte() % 2)),
    SMBUS(kUnlockedPartial,
          ui2c_smbus_xfer(adapter_of(in), in.byte(), in.take<uint16_t>(),
                          static_cast<char>(read_write), static_cast<uint8_t>(command),
                          static_cast<int32_t>(size), data)),
    MESSAGES(kUnlockedPartial,
             ui2c_rdwr_xfer(adapter_of(in), in.byte(), msgs, static_cast<int32_t>(num))),
    MESSAGES(kLockedPartial, ei2c_rdwr_xfer(client_of(in), msgs, num)),
    MESSAGES(kLockedPartial, ei2c_rdwr_xfer_without_retry(client_of(in), msgs, num)),
    SIZED(kUnlockedPartial, (Sized{0, output(in, 256)}),
          qel_ei2c_smbus_xfer_read(client, in.take<int32_t>(), data.bytes,
                                   argument<uint32_t *>(in))),
    SIZED(kUnlockedPartial, (Sized{0, output(in, 256)}),
          qel_ei2c_smbus_mctp_read_block_data(client, in.take<int32_t>(), data.bytes,
                                              argument<uint32_t *>(in))),
    SIZED(kLocked, (Sized{0, output(in, 32)}),
          ei2c_smbus_read_block_data(client, in.byte(), argument<uint8_t *>(in), data.bytes)),
    [](Input &in) {
        const ei2c_client *client = client_of(in);
        const uint32_t length = in.length();
        uint8_t *values = output(in, std::min(length, 255U) + 1);
        watched(in, kLocked,
                [&] { return qel_ei2c_smbus_read_block_data(client, in.byte(), length, values); });
    },
    SIZED(kLocked, sized_bytes(in, 253),
          ei2c_smbus_write_block_data(client, in.byte(), data.length, data.bytes)),
    SIZED(kUnlockedPartial, sized_bytes(in, 253),
          ei2c_smbus_wtrd_block_data(client, in.take<int32_t>(), in.byte(), data.length, data.bytes,
                                     output(in, 256), argument<uint32_t *>(in), in.byte() % 2)),
    SIZED(kLocked, sized_bytes(in, 253),
          ei2c_smbus_read_block_proc_call_data(client, in.byte(), data.bytes, data.length,
                                               output(in, 32), argument<uint8_t *>(in))),
    [](Input &in) {
        const ei2c_client *client = client_of(in);
        const Sized sent = sized_bytes(in, 253);
        const Sized read = sized_output(in, 253);
        watched(in, kLocked, [&] {
            return ei2c_smbus_read_i2c_block_data(client, sent.length, sent.bytes, read.length,
                                                  read.bytes);
        });
    },
    SIZED(kLocked, sized_bytes(in, 253),
          ei2c_smbus_write_i2c_block_data(client, in.byte(), data.length, data.bytes)),
    SIZED(kLocked, sized_output(in, 65535),
          i2cRead(client, data.length, data.bytes, in.length(), in.take<uint32_t>())),
    SIZED(kLocked, sized_bytes(in, 65535),
          i2cWrite(client, data.length, data.bytes, in.length(), in.take<uint32_t>())),
    SIZED(kLocked, sized_bytes(in, 65535),
          Retimer_I2CWriteBlockData(client, data.length, data.bytes)),
    SIZED(kLocked, sized_output(in, 255),
          Retimer_I2CReadBlockData(client, in.byte(), data.length, data.bytes)),
    [](Input &in) {
        const retimer_i2c_dev *device = retimer_of(in);
        const Sized data = sized_bytes(in, 65535);
        watched(in, kLocked, [&] { return Retimer_I2CWrite(device, data.length, data.bytes); });
    },
    [](Input &in) {
        const retimer_i2c_dev *device = retimer_of(in);
        const uint32_t length = in.length();
        uint8_t *data = output(in, std::clamp(length, 1U, 255U));
        watched(in, kLocked, [&] { return Retimer_I2CRead(device, length, data); });
    },
    SIZED(kLockedPartial, sized_output(in, kLongestBuffer),
          i2c_read_multi_para(client, in.take<uint32_t>(), in.byte(),
                              std::min(data.length, kLongestBuffer), data.bytes)),
    SIZED(kLocked, sized_bytes(in, 65535),
          i2c_write_multi_para(client, in.take<uint32_t>(), in.byte(), data.length, data.bytes)),
    write_and_read,
    SIZED(kLockedPartial, sized_output(in, 65535),
          pango_i2c_read_multi_para(client, in.byte(), in.take<uint32_t>(), in.length(),
                                    data.length, data.bytes)),
    SIZED(kLocked, sized_bytes(in, 65535),
          pango_i2c_write_multi_para(client, in.byte(), in.take<uint32_t>(), in.length(),
                                     data.length, data.bytes)),
    SIZED(kLocked, (Sized{in.length(), nullptr}),
          pango_i2c_write_or_read_with_nack(client, in.byte(), in.take<uint32_t>(), data.length,
                                            in.byte() % 2)),
    [](Input &in) {
        const ei2c_client *client = client_of(in);
        const auto length = in.take<uint16_t>();
        uint8_t *data = output(in, length);
        watched(in, kLockedPartial,
                [&] { return epld_card_epld_read(client, in.byte(), data, length); });
    },
    [](Input &in) {
        hold(
            in, ei2c_smbus_lock_adapter,
            [](auto client, int32_t *fd, int32_t *semid) {
                return ei2c_smbus_unlock_adapter(client, *fd, *semid);
            },
            kLocked);
    },
    [](Input &in) {
        hold(
            in, ei2c_smbus_select_switch,
            [](auto client, int32_t *fd, int32_t *semid) {
                return ei2c_smbus_deselect_switch(client, *fd, *semid);
            },
            kLocked);
    },
    [](Input &in) {
        hold(
            in,
            [](auto client, int32_t *fd, int32_t *semid) {
                return lockAndSelectBridge_Ridgeback(client, semid, fd);
            },
            [](auto client, int32_t *fd, int32_t *semid) {
                return unlockAndDeselectBridge_Ridgeback(client, semid, fd);
            },
            kBridge);
    },
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in = {data, data + size};
    fuzz::forget_platform();
    platform.formats = in.rarely();
    platform.replies = &in;
    do {
        kCalls[in.byte() % std::size(kCalls)](in);
        // What the harness looked up for arguments is in the registry as well.
        if (platform.blocks != fuzz::registry_blocks())
            broken("a block is neither freed nor in the registry");
        for (const Piece &piece : pieces)
            __real_free(piece.bytes);
        pieces.clear();
        platform.semaphores = platform.file_locks = 0; // after a release of what was not held
    } while (in.at != in.end);
    platform.replies = nullptr;
    fuzz::forget_calls();
    return 0;
}
