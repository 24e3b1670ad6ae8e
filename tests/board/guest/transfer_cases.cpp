// Every form of transfer, in front of the switches, behind one, behind two. What the library wrote
// is read by the witness, what the library reads the witness wrote.
#include <algorithm>
#include <cstring>

#include "cases.h"
#include "wire.h"

namespace board
{

namespace
{

constexpr uint8_t filler = 0xEE;

// Differs at every offset and level.
Bytes pattern(Level level, uint16_t offset, size_t count)
{
    Bytes bytes(count);
    for (size_t i = 0; i < count; i++)
        bytes[i] = static_cast<uint8_t>((offset >> 5) + 7 * i + 85 * static_cast<size_t>(level));
    return bytes;
}

Bytes at_offset(uint16_t offset, const Bytes &bytes = {})
{
    Bytes sent = {static_cast<uint8_t>(offset >> 8), static_cast<uint8_t>(offset & 0xFF)};
    sent.insert(sent.end(), bytes.begin(), bytes.end());
    return sent;
}

i2c_msg message(const ei2c_client &client, uint16_t flags, Bytes &bytes)
{
    return {client.addr, flags, static_cast<uint16_t>(bytes.size()), bytes.data()};
}

// One EEPROM area of its own for each form.
struct Area {
    ei2c_client client;
    uint16_t offset;
    Bytes bytes; // what a write is to leave there
};

Area area_for_writing(Level level, uint16_t offset, size_t count)
{
    Area area = {device(Chip::eeprom, level), offset, pattern(level, offset, count)};
    wire::set_memory(area.client, offset, Bytes(count + 2, filler));
    return area;
}

Area area_for_reading(Level level, uint16_t offset, size_t count)
{
    Area area = {device(Chip::eeprom, level), offset, pattern(level, offset, count)};
    wire::set_memory(area.client, offset, area.bytes);
    return area;
}

// The area holds the bytes, and what follows them is untouched.
void written(Check &check, const Area &area)
{
    Bytes wanted = area.bytes;
    wanted.insert(wanted.end(), 2, filler);
    equal(check, "memory after the write",
          wire::memory(area.client, area.offset, area.bytes.size() + 2), wanted);
}

// A call that gives `result` and leaves `count` bytes at the offset.
template <typename Call>
void writes(Check &check, Level level, uint16_t offset, size_t count, int result, const Call &call)
{
    Area area = area_for_writing(level, offset, count);
    equal(check, "result of the write", call(area, at_offset(offset, area.bytes)), result);
    written(check, area);
}

// A call that gives `result` and fetches `count` bytes from there.
template <typename Call>
void reads(Check &check, Level level, uint16_t offset, size_t count, int result, const Call &call)
{
    const Area area = area_for_reading(level, offset, count);
    Bytes received(count);
    equal(check, "result of the read", call(area, at_offset(offset), received), result);
    equal(check, "bytes", received, area.bytes);
}

void one_message(Check &check, Level level)
{
    writes(check, level, 0x1000, 32, 1, [](const Area &area, Bytes sent) {
        i2c_msg write = message(area.client, 0, sent);
        return ei2c_rdwr_xfer(&area.client, &write, 1);
    });
    writes(check, level, 0x1400, 20, 1, [](const Area &area, Bytes sent) {
        i2c_msg write = message(area.client, 0, sent);
        return ei2c_rdwr_xfer_without_retry(&area.client, &write, 1);
    });
}

void write_then_read(Check &check, Level level)
{
    reads(check, level, 0x1100, 48, 2, [](const Area &area, Bytes sent, Bytes &received) {
        i2c_msg both[2] = {message(area.client, 0, sent), message(area.client, I2C_M_RD, received)};
        return ei2c_rdwr_xfer(&area.client, both, 2);
    });
}

void four_messages(Check &check, Level level)
{
    const Area first = area_for_reading(level, 0x1200, 16);
    const Area second = area_for_reading(level, 0x1240, 16);
    Bytes sent[2] = {at_offset(first.offset), at_offset(second.offset)};
    Bytes received[2] = {Bytes(16), Bytes(16)};
    i2c_msg all[4] = {
        message(first.client, 0, sent[0]), message(first.client, I2C_M_RD, received[0]),
        message(first.client, 0, sent[1]), message(first.client, I2C_M_RD, received[1])};
    equal(check, "result", ei2c_rdwr_xfer(&first.client, all, 4), 4);
    equal(check, "bytes of the second message", received[0], first.bytes);
    equal(check, "bytes of the fourth message", received[1], second.bytes);
}

void pair_of_transfers(Check &check, Level level)
{
    const Area area = area_for_writing(level, 0x1300, 24);
    Bytes sent = at_offset(area.offset, area.bytes);
    Bytes again = at_offset(area.offset);
    Bytes received(24);
    i2c_msg write = message(area.client, 0, sent);
    i2c_msg read[2] = {message(area.client, 0, again), message(area.client, I2C_M_RD, received)};
    i2c_msg *sets[2] = {&write, read};
    const uint32_t counts[2] = {1, 2};
    equal(check, "result", ei2c_rdwr_mxfer(&area.client, sets, counts), 2);
    equal(check, "bytes", received, area.bytes);
    written(check, area);
}

void offsets(Check &check, Level level)
{
    writes(check, level, 0x1500, 100, 1, [](const Area &area, const Bytes &) {
        return i2cWrite(&area.client, 100, area.bytes.data(), 2, area.offset);
    });
    reads(check, level, 0x1600, 200, 2, [](const Area &area, const Bytes &, Bytes &received) {
        return i2cRead(&area.client, 200, received.data(), 2, area.offset);
    });
}

void receive_and_send_byte(Check &check, Level level)
{
    const ei2c_client monitor = device(Chip::monitor, level);
    wire::set_registers(monitor, 3, {0x3C, 0xA0});
    wire::set_registers(monitor, 2, {0x11, 0x22});
    uint8_t value = 0;
    equal(check, "result of send byte", ei2c_smbus_write_byte(&monitor, 3), 0);
    equal(check, "result of receive byte", ei2c_smbus_read_byte(&monitor, &value), 0);
    equal(check, "byte of the register that was sent", value, 0x3C);
}

void byte_data(Check &check, Level level)
{
    const ei2c_client pins = device(Chip::pins, level);
    wire::set_registers(pins, 2, {0x00});
    equal(check, "result of the write", ei2c_smbus_write_byte_data(&pins, 2, 0xA6), 0);
    equal(check, "register", wire::registers(pins, 2, 1), {0xA6});
    wire::set_registers(pins, 2, {0x59});
    uint8_t value = 0;
    equal(check, "result of the read", ei2c_smbus_read_byte_data(&pins, 2, &value), 0);
    equal(check, "value", value, 0x59);
    wire::set_registers(pins, 2, {0x00});
}

void word_data(Check &check, Level level)
{
    const ei2c_client monitor = device(Chip::monitor, level);
    wire::set_registers(monitor, 3, {0, 0});
    equal(check, "result of the write", ei2c_smbus_write_word_data(&monitor, 3, 0x1234), 0);
    equal(check, "register, low byte first", wire::registers(monitor, 3, 2), {0x34, 0x12});
    wire::set_registers(monitor, 3, {0x78, 0x56});
    uint16_t value = 0;
    equal(check, "result of the read", ei2c_smbus_read_word_data(&monitor, 3, &value), 0);
    equal(check, "word", value, 0x5678);
}

void block_read(Check &check, Level level)
{
    const ei2c_client supply = device(Chip::supply, level);
    uint8_t count = 0;
    Bytes values(32);
    equal(check, "result", ei2c_smbus_read_block_data(&supply, 0x99, &count, values.data()), 0);
    values.resize(count);
    equal(check, "manufacturer", std::string(values.begin(), values.end()), "ADI");
    Bytes with_count(3, filler);
    equal(check, "result with the count handed over",
          qel_ei2c_smbus_read_block_data(&supply, 0x99, 2, with_count.data()), 0);
    equal(check, "count and two bytes", with_count, {3, 'A', 'D'});
}

void written_blocks(Check &check, Level level)
{
    // The count is the low half of the offset.
    writes(check, level, 0x1700 + 12, 12, 0, [](const Area &area, const Bytes &) {
        return ei2c_smbus_write_block_data(&area.client, 0x17, 12, area.bytes.data());
    });
    writes(check, level, 0x1820, 31, 0, [](const Area &area, const Bytes &sent) {
        return ei2c_smbus_write_i2c_block_data(&area.client, sent[0], 32, sent.data() + 1);
    });
    reads(check, level, 0x1900, 253, 2, [](const Area &area, const Bytes &sent, Bytes &received) {
        return ei2c_smbus_read_i2c_block_data(&area.client, 2, sent.data(), 253, received.data());
    });
}

// An EEPROM takes the block as: command and count are its offset, then two bytes to store; what it
// then sends on is the block that follows them.
void process_call(Check &check, Level level)
{
    const ei2c_client eeprom = device(Chip::eeprom, level);
    const Bytes answer = pattern(level, 0x1A00, 9);
    Bytes stored = {filler, filler, 9};
    stored.insert(stored.end(), answer.begin(), answer.end());
    wire::set_memory(eeprom, 0x1A02, stored);
    const Bytes sent = {0xC1, 0xC2};
    Bytes received(32);
    uint8_t count = 0;
    equal(check, "result",
          ei2c_smbus_read_block_proc_call_data(&eeprom, 0x1A, sent.data(), 2, received.data(),
                                               &count),
          0);
    received.resize(count);
    equal(check, "block that came back", received, answer);
    equal(check, "block that was sent", wire::memory(eeprom, 0x1A02, 2), sent);
}

void multi_para(Check &check, Level level)
{
    writes(check, level, 0x1B00, 40, 0, [](const Area &area, const Bytes &) {
        return i2c_write_multi_para(&area.client, area.offset, 2, 40, area.bytes.data());
    });
    reads(check, level, 0x1B80, 40, 0, [](const Area &area, const Bytes &, Bytes &received) {
        return i2c_read_multi_para(&area.client, area.offset, 2, 40, received.data());
    });
    writes(check, level, 0x1D40, 10, 0, [](const Area &area, const Bytes &) {
        return pango_i2c_write_multi_para(&area.client, 0x1D, 0x40, 1, 10, area.bytes.data());
    });
    reads(check, level, 0x1D90, 10, 0, [](const Area &area, const Bytes &, Bytes &received) {
        return pango_i2c_read_multi_para(&area.client, 0x1D, 0x90, 1, 10, received.data());
    });
}

void multi_para_pair(Check &check, Level level)
{
    const Area target = area_for_writing(level, 0x1C00, 8);
    const Area source = area_for_reading(level, 0x1C80, 16);
    const uint32_t offsets[2] = {target.offset, source.offset};
    const uint32_t lengths[2] = {8, 16};
    Bytes received(16);
    equal(check, "result",
          i2c_write_and_read_multi_para(&target.client, offsets, 2, lengths, target.bytes.data(),
                                        received.data()),
          0);
    written(check, target);
    equal(check, "bytes", received, source.bytes);
}

void retimer_blocks(Check &check, Level level)
{
    const Area area = area_for_writing(level, 0x1E00, 28);
    const ei2c_client monitor = device(Chip::monitor, level);
    retimer_i2c_dev record = {};
    record.ucBus = static_cast<uint8_t>(area.client.bus);
    record.ucAddr = static_cast<uint8_t>(area.client.addr);
    record.ucSwiValid = level != Level::root;
    record.ucSwiAddr = static_cast<uint8_t>(area.client.swi_addr & 0xFF);
    record.ucSwiChnl = static_cast<uint8_t>(area.client.swi_chnl & 0xFF);
    record.ucUpSwiAddr = static_cast<uint8_t>(area.client.swi_addr >> 16);
    record.ucUpSwiChnl = static_cast<uint8_t>(area.client.swi_chnl >> 16);
    const Bytes sent = at_offset(area.offset, area.bytes);
    equal(check, "result of the write",
          Retimer_I2CWrite(&record, static_cast<uint32_t>(sent.size()), sent.data()), 0);
    written(check, area);
    wire::set_registers(monitor, 3, {0x4B, 0xD2});
    record.ucAddr = static_cast<uint8_t>(monitor.addr);
    Bytes received = {3, 0};
    equal(check, "result of the read", Retimer_I2CRead(&record, 2, received.data()), 0);
    equal(check, "bytes", received, {0x4B, 0xD2});
}

constexpr struct {
    const char *name;
    void (*run)(Check &, Level);
} forms[] = {
    {"one-message", one_message},
    {"write-then-read", write_then_read},
    {"four-messages", four_messages},
    {"pair-of-transfers", pair_of_transfers},
    {"offset", offsets},
    {"receive-and-send-byte", receive_and_send_byte},
    {"byte-data", byte_data},
    {"word-data", word_data},
    {"block-read", block_read},
    {"written-blocks", written_blocks},
    {"block-process-call", process_call},
    {"multi-para", multi_para},
    {"multi-para-pair", multi_para_pair},
    {"retimer-blocks", retimer_blocks},
};

} // namespace

void add_transfer_cases(Cases &cases)
{
    for (const auto &form : forms)
        for (const Level level : all_levels)
            cases.push_back(
                {std::string("transfer/") + form.name + "/" + name_of(level),
                 [&form, level](Check &check) {
                     form.run(check, level);
                     equal(check, "switch registers afterwards", wire::switches(), {0, 0});
                 }});
}

} // namespace board
