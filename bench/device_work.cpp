// The rounds of work on each type of device.
#include "device_work.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <functional>

namespace bench
{

namespace
{

using Bytes = std::vector<uint8_t>;

// What a hold hands out.
struct Held {
    int32_t fd = -1;
    int32_t semid = -1;
};

Bytes pattern(const Job &job, uint64_t sequence, uint32_t count)
{
    Bytes bytes(count);
    for (uint32_t i = 0; i < count; i++)
        bytes[i] = pattern_byte(job.number, sequence, i);
    return bytes;
}

void compare(Worker &result, uint32_t first, const Bytes &expected, const uint8_t *read)
{
    for (uint32_t i = 0; i < expected.size(); i++) {
        if (expected[i] != read[i])
            note_wrong_byte(result, first + i, expected[i], read[i]);
    }
}

template <typename Value>
void compare_value(Worker &result, Value expected, Value read)
{
    if (expected != read)
        note_wrong_byte(result, 0, static_cast<uint8_t>(expected), static_cast<uint8_t>(read));
}

Bytes behind(uint8_t first, const Bytes &bytes)
{
    Bytes all(1 + bytes.size(), first);
    std::copy(bytes.begin(), bytes.end(), all.begin() + 1);
    return all;
}

int32_t transfer_raw(const ei2c_client &client, i2c_msg *messages, uint32_t count)
{
    const ui2c_client *record =
        ui2c_to_client(client.bus, client.addr, client.swi_addr, client.swi_chnl);
    return record == nullptr ? -1
                             : ui2c_rdwr_xfer(record->adapter, client.addr, messages,
                                              static_cast<int32_t>(count));
}

// A transfer under a hold that opens the path, one under a hold that does not, and one under the
// bridge's.
int32_t transfer_selected(const ei2c_client &client, i2c_msg *messages, uint32_t count)
{
    Held held;
    const int32_t taken = ei2c_smbus_select_switch(&client, &held.fd, &held.semid);
    if (taken < 0)
        return taken;
    const int32_t done = transfer_raw(client, messages, count);
    const int32_t released = ei2c_smbus_deselect_switch(&client, held.fd, held.semid);
    return released < 0 ? released : done;
}

int32_t transfer_held(const ei2c_client &client, i2c_msg *messages, uint32_t count)
{
    Held held;
    const int32_t taken = ei2c_smbus_lock_adapter(&client, &held.fd, &held.semid);
    if (taken < 0)
        return taken;
    int32_t done = SelectSwitch(&client);
    if (done >= 0)
        done = transfer_raw(client, messages, count);
    const int32_t closed = DeselectSwitch(&client);
    const int32_t released = ei2c_smbus_unlock_adapter(&client, held.fd, held.semid);
    return released < 0 ? released : closed < 0 ? closed : done;
}

int32_t transfer_bridged(const ei2c_client &client, i2c_msg *messages, uint32_t count)
{
    Held held;
    if (lockAndSelectBridge_Ridgeback(&client, &held.semid, &held.fd) < 0)
        return -1;
    const int32_t done = transfer_raw(client, messages, count);
    const int32_t released = unlockAndDeselectBridge_Ridgeback(&client, &held.semid, &held.fd);
    return released < 0 ? released : done;
}

using Transfer = int32_t (*)(const ei2c_client &, i2c_msg *, uint32_t);

int32_t transfer_locked(const ei2c_client &client, i2c_msg *messages, uint32_t count)
{
    return ei2c_rdwr_xfer(&client, messages, count);
}

int32_t transfer_once(const ei2c_client &client, i2c_msg *messages, uint32_t count)
{
    return ei2c_rdwr_xfer_without_retry(&client, messages, count);
}

void write_and_read(const Job &job, const Bytes &values, Transfer transfer, Worker &result)
{
    Bytes out = behind(job.window.first, values);
    Bytes in(values.size());
    const ei2c_client &client = job.client;
    i2c_msg message{client.addr, 0, static_cast<uint16_t>(out.size()), out.data()};
    if (!attempt(result, 1, [&] { return transfer(client, &message, 1); }))
        return;
    i2c_msg messages[2] = {{client.addr, 0, 1, out.data()},
                           {client.addr, I2C_M_RD, static_cast<uint16_t>(in.size()), in.data()}};
    if (attempt(result, 2, [&] { return transfer(client, messages, 2); }))
        compare(result, job.window.first, values, in.data());
}

// Write and read in one call.
void write_then_read(const Job &job, const Bytes &values, Worker &result)
{
    Bytes out = behind(job.window.first, values);
    Bytes in(values.size());
    const auto length = static_cast<uint16_t>(in.size());
    i2c_msg write{job.client.addr, 0, static_cast<uint16_t>(out.size()), out.data()};
    i2c_msg read[2] = {{job.client.addr, 0, 1, out.data()},
                       {job.client.addr, I2C_M_RD, length, in.data()}};
    i2c_msg *sets[2] = {&write, read};
    const uint32_t counts[2] = {1, 2};
    if (attempt(result, 2, [&] { return ei2c_rdwr_mxfer(&job.client, sets, counts); }))
        compare(result, job.window.first, values, in.data());
}

void use_offsets(const Job &job, const Bytes &values, Worker &result)
{
    const ei2c_client *client = &job.client;
    const auto size = static_cast<uint32_t>(values.size());
    Bytes in(size);
    if (attempt(result, 1,
                [&] { return i2cWrite(client, size, values.data(), 1, job.window.first); }) &&
        attempt(result, 2, [&] { return i2cRead(client, size, in.data(), 1, job.window.first); }))
        compare(result, job.window.first, values, in.data());
}

void use_bytes_and_words(const Job &job, const Bytes &values, Worker &result)
{
    const ei2c_client *client = &job.client;
    const uint8_t first = job.window.first;
    const auto word = static_cast<uint16_t>(values[1] << 8 | values[2]);
    uint8_t byte = 0;
    uint16_t read = 0;
    if (attempt(result, 0, [&] { return ei2c_smbus_write_byte_data(client, first, values[0]); }) &&
        attempt(result, 0, [&] { return ei2c_smbus_read_byte_data(client, first, &byte); }))
        compare_value(result, values[0], byte);
    const auto next = static_cast<uint8_t>(first + 1);
    if (attempt(result, 0, [&] { return ei2c_smbus_write_word_data(client, next, word); }) &&
        attempt(result, 0, [&] { return ei2c_smbus_read_word_data(client, next, &read); }))
        compare_value(result, word, read);
    // Where the pointer stands is everybody's.
    attempt(result, 0, [&] { return ei2c_smbus_write_byte(client, first); });
    attempt(result, 0, [&] { return ei2c_smbus_read_byte(client, &byte); });
}

void use_blocks(const Job &job, const Bytes &values, Worker &result)
{
    const ei2c_client *client = &job.client;
    const uint8_t first = job.window.first;
    const auto count = static_cast<uint8_t>(values.size() - 1);
    uint8_t in[QELI2C_SMBUS_AREA] = {};
    uint8_t length = 0;
    const Bytes block(values.begin(), values.end() - 1);
    if (!attempt(result, 0,
                 [&] { return ei2c_smbus_write_block_data(client, first, count, block.data()); }))
        return;
    if (attempt(result, 0, [&] { return ei2c_smbus_read_block_data(client, first, &length, in); }))
        compare(result, first, behind(count, block), behind(length, Bytes(in, in + count)).data());
    if (attempt(result, 0,
                [&] { return qel_ei2c_smbus_read_block_data(client, first, count, in); }))
        compare(result, first, behind(count, block), in);
}

void use_plain_blocks(const Job &job, const Bytes &values, Worker &result)
{
    const ei2c_client *client = &job.client;
    const uint8_t first = job.window.first;
    const auto size = static_cast<uint32_t>(values.size());
    Bytes in(size);
    if (attempt(
            result, 0,
            [&] { return ei2c_smbus_write_i2c_block_data(client, first, size, values.data()); }) &&
        attempt(result, 2,
                [&] { return ei2c_smbus_read_i2c_block_data(client, 1, &first, size, in.data()); }))
        compare(result, first, values, in.data());
}

// The block goes to the front of the window; the one behind it comes back.
void use_process_call(const Job &job, const Bytes &values, Worker &result)
{
    const ei2c_client *client = &job.client;
    const uint8_t first = job.window.first;
    const Bytes answer = {1, values[0]};
    uint8_t in[QELI2C_SMBUS_AREA] = {};
    uint8_t length = 0;
    if (attempt(result, 1, [&] { return i2cWrite(client, 2, answer.data(), 1, first + 2U); }) &&
        attempt(result, 0, [&] {
            return ei2c_smbus_read_block_proc_call_data(client, first, &values[1], 1, in, &length);
        }))
        compare(result, first, answer, behind(length, {in[0]}).data());
}

uint8_t pec_of(std::initializer_list<unsigned> bytes)
{
    unsigned code = 0;
    for (const unsigned byte : bytes) {
        code ^= byte;
        for (int bit = 0; bit < 8; bit++)
            code = (code << 1) ^ ((code & 0x80) != 0 ? 0x107U : 0U);
    }
    return static_cast<uint8_t>(code);
}

// A read with a checksum, which stands in the register behind.
void use_checksum(const Job &job, const Bytes &values, Worker &result)
{
    const uint8_t first = job.window.first;
    const unsigned address = job.client.addr * 2U;
    const uint8_t both[2] = {values[0], pec_of({address, first, address + 1, values[0]})};
    ei2c_client checked = job.client;
    checked.flags = QELI2C_CLIENT_PEC;
    uint8_t byte = 0;
    if (attempt(result, 1, [&] { return i2cWrite(&job.client, 2, both, 1, first); }) &&
        attempt(result, 0, [&] { return ei2c_smbus_read_byte_data(&checked, first, &byte); }))
        compare_value(result, values[0], byte);
}

// SMBus accesses by the holder of the bus.
int32_t use_held_bytes(const Job &job, uint8_t written, uint8_t &read)
{
    const ei2c_client *client = &job.client;
    Held held;
    int32_t done = ei2c_smbus_lock_adapter(client, &held.fd, &held.semid);
    if (done < 0)
        return done;
    done = ei2c_smbus_write_byte_data_without_lock(client, job.window.first, written);
    if (done >= 0)
        done = ei2c_smbus_read_byte_data_without_lock(client, job.window.first, &read);
    const int32_t released = ei2c_smbus_unlock_adapter(client, held.fd, held.semid);
    return released < 0 ? released : done;
}

void work_on_registers(const Job &job, uint64_t sequence, Worker &result)
{
    const Bytes values = pattern(job, sequence, job.window.size);
    uint8_t byte = 0;
    switch (sequence % kTurns) {
    case 0:
        return write_and_read(job, values, transfer_locked, result);
    case 1:
        return write_and_read(job, values, transfer_once, result);
    case 2:
        return write_and_read(job, values, transfer_selected, result);
    case 3:
        return write_and_read(job, values, transfer_held, result);
    case 4:
        return write_and_read(job, values, transfer_bridged, result);
    case 5:
        return write_then_read(job, values, result);
    case 6:
        return use_offsets(job, values, result);
    case 7:
        return use_bytes_and_words(job, values, result);
    case 8:
        return use_blocks(job, values, result);
    case 9:
        return use_plain_blocks(job, values, result);
    case 10:
        return use_process_call(job, values, result);
    case 11:
        return use_checksum(job, values, result);
    default:
        if (attempt(result, 0, [&] { return use_held_bytes(job, values[0], byte); }))
            compare_value(result, values[0], byte);
    }
}

// A page written and read by pages, under the semaphore that whole operations take.
int32_t use_pages(const Job &job, int32_t offset, const Bytes &values, Bytes &in)
{
    const auto length = static_cast<int32_t>(in.size());
    if (ee_lock_eeprom() < 0)
        return -1;
    int32_t done = ee_eeprom_page_write(&job.client, offset, values.data(), length);
    if (done == length)
        done = ee_eeprom_page_read(&job.client, offset, in.data(), length);
    const int32_t released = ee_unlock_eeprom();
    return released < 0 ? released : done;
}

void work_on_eeprom(const Job &job, uint64_t sequence, Worker &result)
{
    using Access = int32_t (*)(const ei2c_client *, int32_t, uint8_t *, int32_t);
    using Change = int32_t (*)(const ei2c_client *, int32_t, const uint8_t *, int32_t);
    constexpr Access kReads[] = {eeprom_read, ei2c_eeprom_read, ei2c_eeprom_read_retry};
    constexpr Change kWrites[] = {eeprom_write, ei2c_eeprom_write, ei2c_eeprom_write_retry};
    const uint64_t turn = sequence % 4;
    const int32_t offset = job.window.first * 64 + 20;
    const Bytes values = pattern(job, sequence, turn < 3 ? 40 : 12); // over a page's end, or not
    Bytes in(values.size());
    const auto length = static_cast<int32_t>(in.size());
    const ei2c_client *client = &job.client;
    const bool done =
        turn < 3 ? attempt(result, length,
                           [&] { return kWrites[turn](client, offset, values.data(), length); }) &&
                       attempt(result, length,
                               [&] { return kReads[turn](client, offset, in.data(), length); })
                 : attempt(result, length, [&] { return use_pages(job, offset, values, in); });
    if (done)
        compare(result, 0, values, in.data());
}

// Changes of an expander are a read and a write of their own, so they are for one worker alone.
// Their result is that of the last access: one before it may have failed unseen.
void work_on_words(const Job &job, uint64_t sequence, Worker &result)
{
    const ei2c_client *io = &job.client;
    const auto pin = static_cast<uint32_t>(sequence % 15);
    const int level = pattern_byte(job.number, sequence, 0) & 1;
    const auto levels = static_cast<uint16_t>(pattern_byte(job.number, sequence, 1) << 7);
    constexpr uint16_t kMask = 0x7f80;
    uint32_t read = 0;
    const auto gives = [&](auto call, uint32_t expected) {
        if (attempt(result, 0, call) && !job.faulty)
            compare_value(result, expected, read);
    };
    if (!job.alone)
        return (void)attempt(result, 0, [&] { return pca9535_gpio_word_get_value(io, 1, &read); });
    if (sequence % 2 == 0) {
        if (!attempt(result, 0, [&] { return pca9535_gpio_direction_output(io, pin, level); }))
            return;
        gives([&] { return pca9535_gpio_word_get_value(io, 1U << pin & 0xffff, &read); },
              static_cast<uint32_t>(level) << pin);
        if (attempt(result, 0, [&] { return pca9535_gpio_set_value(io, pin, !level); }))
            gives([&] { return pca9535_gpio_get_value(io, pin, &read); }, level ? 0 : 1);
        attempt(result, 0, [&] { return pca9535_gpio_direction_input(io, pin); });
        attempt(result, 0, [&] { return ei2c_pca9535_get_value(io, pin, &read); });
        attempt(result, 0, [&] { return ei2c_pca9535_set_value(io, pin, level); });
        return;
    }
    if (!attempt(result, 0, [&] { return pca9535_gpio_word_direction_output(io, kMask, levels); }))
        return;
    gives([&] { return pca9535_gpio_word_get_value(io, kMask, &read); }, levels);
    const auto others = static_cast<uint16_t>(~levels & kMask);
    if (attempt(result, 0, [&] { return pca9535_gpio_word_set_value(io, kMask, others); }))
        gives([&] { return pca9535_gpio_word_get_output_value(io, kMask, &read); }, others);
    attempt(result, 0, [&] { return ei2c_pca9535_set_word_value(io, kMask, levels); });
    attempt(result, 0, [&] { return pca9535_gpio_word_direction_input(io, kMask); });
    attempt(result, 0, [&] { return ei2c_pca9535_get_word_value(io, kMask, &read); });
    read = 0; // a failed read gives 0 as its result, and leaves the value
    const bool high = ei2c_pca9535_get_output_value(io, pin, &read) == 0 && read != 0;
    if (high && read != 1U << pin)
        note_wrong_byte(result, 0, 0, static_cast<uint8_t>(read));
}

void work_on_pins(const Job &job, uint64_t sequence, Worker &result)
{
    const ei2c_client *leds = &job.client;
    const auto pin = static_cast<uint32_t>(sequence % 8);
    const uint8_t levels = pattern_byte(job.number, sequence, 0);
    const int level = levels & 1;
    uint32_t value = 0;
    uint8_t read = 0;
    if (!job.alone)
        return (void)attempt(result, 0, [&] { return pca9554_gpio_get_value(leds, 0, &value); });
    if (attempt(result, 0, [&] { return pca9554_gpio_direction_output(leds, pin, level); }) &&
        attempt(result, 0, [&] { return pca9554_gpio_get_value(leds, pin, &value); }) &&
        !job.faulty)
        compare_value(result, static_cast<uint32_t>(level), value);
    attempt(result, 0, [&] { return pca9554_gpio_set_value(leds, pin, !level); });
    attempt(result, 0, [&] { return pca9554_gpio_direction_input(leds, pin); });
    if (attempt(result, 0,
                [&] { return pca9554_gpio_byte_direction_output(leds, 0x7f, levels); }) &&
        attempt(result, 0, [&] { return pca9554_gpio_byte_set_value(leds, 0x0f, 0x05); }) &&
        attempt(result, 0, [&] { return pca9554_gpio_byte_get_value(leds, 0x7f, &read); }) &&
        !job.faulty)
        compare_value(result, static_cast<uint8_t>((levels & 0x70) | 0x05), read);
    attempt(result, 0, [&] { return pca9554_gpio_byte_direction_input(leds, 0x0f); });
}

// All of them calibrate alike, so that any number can read one monitor; what they read stays.
void work_on_monitor(const Job &job, uint64_t, Worker &result)
{
    const ei2c_client *monitor = &job.client;
    tpa626_info info = {};
    info.client = job.client;
    info.wConfig = 0x2741;
    info.wCalibration = 0x0014;
    info.fPowerCoef1 = 25.0F;
    info.fPowerCoef2 = 1.0F;
    info.fVoltCoef1 = 1.25F;
    info.fVoltCoef2 = 1.0F;
    float volts = 0;
    float again = 0;
    float watts = 0;
    if (attempt(result, 0, [&] { return TPA626_GetVolt(monitor, &volts); }) &&
        attempt(result, 0, [&] { return TPA626_GetVoltByInfo(&info, &again); }) &&
        (std::fabs(volts - again) > 0.01F || volts <= 0))
        note_wrong_byte(result, 2, static_cast<uint8_t>(volts), static_cast<uint8_t>(again));
    if (attempt(result, 0, [&] { return TPA626_GetPower(monitor, 1, &watts); }) &&
        attempt(result, 0, [&] { return TPA626_GetPowerByInfo(&info, &again); }) && !job.faulty &&
        (std::fabs(watts - again) > watts / 20 || watts <= 0))
        note_wrong_byte(result, 3, static_cast<uint8_t>(watts), static_cast<uint8_t>(again));
}

retimer_i2c_dev by_bytes(const ei2c_client &client)
{
    retimer_i2c_dev device = {};
    device.ucBus = static_cast<uint8_t>(client.bus);
    device.ucAddr = static_cast<uint8_t>(client.addr);
    device.ucSwiValid = 1;
    device.ucSwiAddr = static_cast<uint8_t>(client.swi_addr);
    device.ucSwiChnl = static_cast<uint8_t>(client.swi_chnl);
    device.ucUpSwiAddr = static_cast<uint8_t>(client.swi_addr >> 16);
    device.ucUpSwiChnl = static_cast<uint8_t>(client.swi_chnl >> 16);
    return device;
}

void work_on_retimer(const Job &job, uint64_t sequence, Worker &result)
{
    const retimer_i2c_dev device = by_bytes(job.client);
    const Bytes values = pattern(job, sequence, job.window.size);
    const Bytes out = behind(job.window.first, values);
    const auto size = static_cast<uint32_t>(values.size());
    Bytes in = out;
    const bool whole = sequence % 2 == 0;
    if (!attempt(result, 0, [&] {
            return whole ? Retimer_I2CWriteBlockData(&job.client, size + 1, out.data())
                         : Retimer_I2CWrite(&device, size + 1, out.data());
        }))
        return;
    if (attempt(result, 0, [&] {
            return whole ? Retimer_I2CReadBlockData(&job.client, job.window.first, size, in.data())
                         : Retimer_I2CRead(&device, size, in.data());
        }))
        compare(result, job.window.first, values, in.data());
}

void work_on_epld(const Job &job, uint64_t sequence, Worker &result)
{
    const ei2c_client *epld = &job.client;
    const uint32_t offset = 0x8000U + job.window.first * 8U;
    const Bytes values = pattern(job, sequence, 8);
    const uint32_t offsets[2] = {offset, offset};
    const uint32_t lengths[2] = {8, 8};
    Bytes in(8);
    if (attempt(result, 0,
                [&] { return i2c_write_multi_para(epld, offset, 2, 8, values.data()); }) &&
        attempt(result, 0, [&] { return i2c_read_multi_para(epld, offset, 2, 8, in.data()); }))
        compare(result, 0, values, in.data());
    const Bytes reversed(values.rbegin(), values.rend());
    if (attempt(result, 0, [&] {
            return i2c_write_and_read_multi_para(epld, offsets, 2, lengths, reversed.data(),
                                                 in.data());
        }))
        compare(result, 0, reversed, in.data());
    // A command byte and one byte of offset are the two bytes of the register's number.
    const auto low = static_cast<uint8_t>(offset & 0xff);
    const auto high = static_cast<uint8_t>(offset >> 8);
    if (attempt(result, 0,
                [&] { return pango_i2c_write_multi_para(epld, high, low, 1, 8, values.data()); }) &&
        attempt(result, 0,
                [&] { return pango_i2c_read_multi_para(epld, high, low, 1, 8, in.data()); }))
        compare(result, 0, values, in.data());
}

// The identification takes several transfers, between which the bus is free.
template <int32_t kVendor>
void identify_epld(const Job &job, uint64_t sequence, Worker &result)
{
    uint8_t first[4] = {};
    uint8_t second[4] = {};
    const ei2c_client *epld = &job.client;
    work_on_epld(job, sequence, result);
    if (!job.alone || job.faulty)
        return;
    using Identify = int32_t (*)(const ei2c_client *, uint8_t *);
    const Identify own = kVendor == 2   ? epld_lattice_read_deviceId
                         : kVendor == 1 ? epld_pango_read_deviceId
                                        : epld_anlogic_read_deviceId;
    if (attempt(result, kVendor, [&] { return epld_i2c_read_deviceId(epld, first); }) &&
        attempt(result, 0, [&] { return own(epld, second); }))
        compare(result, 0, Bytes(first, first + 4), second);
    attempt(result, 0, [&] { return pango_i2c_write_or_read_with_nack(epld, 0x81, 0, 1, 0); });
}

void work_on_subcard(const Job &job, uint64_t, Worker &result)
{
    uint8_t read[4] = {};
    if (attempt(result, 0, [&] { return epld_card_epld_read(&job.client, 0, read, 4); }))
        compare_value(result, uint8_t{0x5c}, read[0]); // as every subcard's begins
}

int32_t ask_endpoint(const Job &job, uint8_t *response)
{
    constexpr uint8_t kGetId[] = {0x21, 0x01, 0x00, 0x08, 0xcb, 0x00, 0x85, 0x02};
    uint32_t length = 0;
    Held held;
    int32_t done = ei2c_smbus_select_switch(&job.client, &held.fd, &held.semid);
    if (done < 0)
        return done;
    done = ei2c_smbus_wtrd_block_data(&job.client, held.fd, 0x0f, sizeof(kGetId), kGetId, response,
                                      &length, 0);
    const int32_t released = ei2c_smbus_deselect_switch(&job.client, held.fd, held.semid);
    return released < 0 ? released : done > 0 && length >= 12 ? 0 : -1;
}

void work_on_endpoint(const Job &job, uint64_t, Worker &result)
{
    uint8_t response[256] = {};
    if (!attempt(result, 0, [&] { return ask_endpoint(job, response); }))
        return;
    compare(result, 0, {0x0f}, response);
    compare(result, 9, {0x02, 0x00}, response + 9); // the answer to this command, and good
}

struct KindOfWork {
    const char *type;
    Work work;
};

constexpr KindOfWork kWork[] = {
    {"", work_on_registers},
    {"registers", work_on_registers},
    {"at24c512", work_on_eeprom},
    {"pca9535", work_on_words},
    {"pca9554", work_on_pins},
    {"tpa626", work_on_monitor},
    {"retimer", work_on_retimer},
    {"epld-lattice", identify_epld<2>},
    {"epld-pango", identify_epld<1>},
    {"epld-anlogic-ef2", identify_epld<3>},
    {"epld-anlogic-ef3", identify_epld<3>},
    {"epld-subcard", work_on_subcard},
    {"mctp", work_on_endpoint},
};

} // namespace

uint8_t pattern_byte(uint32_t worker, uint64_t sequence, uint32_t position)
{
    uint64_t mixed = (static_cast<uint64_t>(worker) << 48) ^ (sequence << 8) ^ position;
    mixed = (mixed ^ (mixed >> 30)) * 0xbf58476d1ce4e5b9ULL; // the finaliser of splitmix64
    mixed = (mixed ^ (mixed >> 27)) * 0x94d049bb133111ebULL;
    return static_cast<uint8_t>(mixed >> 56);
}

bool note_call(Worker &result, int64_t start, int32_t done, int32_t wanted)
{
    const int error = errno;
    record(result.waits, static_cast<uint64_t>(monotonic_nanoseconds() - start));
    if (done == wanted) {
        result.transfers.fetch_add(1, std::memory_order_relaxed);
        return true;
    }
    if (result.errors.fetch_add(1, std::memory_order_relaxed) == 0) {
        result.first_result = done;
        result.first_errno = error;
    }
    return false;
}

void note_wrong_byte(Worker &result, uint32_t position, uint8_t expected, uint8_t read)
{
    if (result.wrong_bytes.fetch_add(1, std::memory_order_relaxed) == 0)
        result.first_wrong = position << 16 | static_cast<uint32_t>(expected) << 8 | read;
}

Work work_on(const std::string &type)
{
    for (const KindOfWork &kind : kWork) {
        if (type == kind.type)
            return kind.work;
    }
    return nullptr;
}

} // namespace bench
