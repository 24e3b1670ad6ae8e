// SMBus packet error checking on the machine's own 256-byte EEPROM: it stores and sends whatever it
// is given, so the check bytes are put there by the witness. Check bytes of writes are told by the
// kernel's trace.
#include <cerrno>

#include "cases.h"
#include "trace.h"
#include "wire.h"

namespace board
{

namespace
{

constexpr uint32_t checked_bus = 7;
constexpr uint8_t checked_address = 0x50;

ei2c_client identity(uint16_t flags)
{
    ei2c_client client = {};
    client.bus = checked_bus;
    client.addr = checked_address;
    client.flags = flags;
    return client;
}

// CRC-8 with the polynomial x^8 + x^2 + x + 1 (System Management Bus Specification, packet error
// checking).
uint8_t crc(const Bytes &bytes)
{
    unsigned sum = 0;
    for (const uint8_t byte : bytes) {
        sum ^= byte;
        for (int bit = 0; bit < 8; bit++)
            sum = (sum & 0x80) != 0 ? (sum << 1 ^ 0x07) & 0xFF : sum << 1;
    }
    return static_cast<uint8_t>(sum);
}

// Stores data and the check byte of their being read with that command; `error` spoils it.
void store(uint8_t command, const Bytes &data, uint8_t error = 0)
{
    Bytes packet = {checked_address << 1, command, checked_address << 1 | 1};
    packet.insert(packet.end(), data.begin(), data.end());
    Bytes sent = {command};
    sent.insert(sent.end(), data.begin(), data.end());
    sent.push_back(crc(packet) ^ error);
    wire::write(checked_bus, checked_address, sent);
}

void byte_read(Check &check)
{
    const ei2c_client client = identity(QELI2C_CLIENT_PEC);
    uint8_t value = 0;
    store(0x10, {0x5B});
    equal(check, "result", ei2c_smbus_read_byte_data(&client, 0x10, &value), 0);
    equal(check, "value", value, 0x5B);
    store(0x10, {0x5C}, 0x01);
    refused(check, "a read with a wrong check byte",
            ei2c_smbus_read_byte_data(&client, 0x10, &value), -1, EBADMSG);
    equal(check, "value after that", value, 0x5B);
}

void word_read(Check &check)
{
    const ei2c_client client = identity(QELI2C_CLIENT_PEC);
    uint16_t value = 0;
    store(0x20, {0xCD, 0xAB});
    equal(check, "result", ei2c_smbus_read_word_data(&client, 0x20, &value), 0);
    equal(check, "value", value, 0xABCD);
    store(0x20, {0xCD, 0xAC}, 0x80);
    refused(check, "a read with a wrong check byte",
            ei2c_smbus_read_word_data(&client, 0x20, &value), -1, EBADMSG);
}

void block_read(Check &check)
{
    const ei2c_client client = identity(QELI2C_CLIENT_PEC);
    uint8_t count = 0;
    Bytes values(32);
    store(0x30, {4, 1, 2, 3, 4});
    equal(check, "result", ei2c_smbus_read_block_data(&client, 0x30, &count, values.data()), 0);
    values.resize(count);
    equal(check, "block", values, {1, 2, 3, 4});
    store(0x30, {4, 1, 2, 3, 5}, 0x42);
    refused(check, "a read with a wrong check byte",
            ei2c_smbus_read_block_data(&client, 0x30, &count, values.data()), -1, EBADMSG);
}

// The same wrong byte does not matter to a client without packet error checking, also right after
// one with it on the same descriptor.
void only_for_who_asked(Check &check)
{
    const ei2c_client with = identity(QELI2C_CLIENT_PEC);
    const ei2c_client without = identity(0);
    uint8_t value = 0;
    store(0x18, {0x77}, 0xFF);
    refused(check, "a read with checking", ei2c_smbus_read_byte_data(&with, 0x18, &value), -1,
            EBADMSG);
    equal(check, "result without checking", ei2c_smbus_read_byte_data(&without, 0x18, &value), 0);
    equal(check, "value", value, 0x77);
}

void writes_carry_it(Check &check)
{
    const ei2c_client with = identity(QELI2C_CLIENT_PEC);
    const ei2c_client without = identity(0);
    const uint8_t sum = crc({checked_address << 1, 0x40, 0x66});
    trace::start();
    equal(check, "result with checking", ei2c_smbus_write_byte_data(&with, 0x40, 0x66), 0);
    equal(check, "result without", ei2c_smbus_write_byte_data(&without, 0x44, 0x67), 0);
    const std::vector<std::string> messages = trace::messages(checked_bus);
    equal(check, "messages", static_cast<int64_t>(messages.size()), 2);
    if (check.failed())
        return;
    equal(check, "message with checking", messages[0], "50 w " + in_hex({0x40, 0x66, sum}));
    equal(check, "message without", messages[1], "50 w 44 67");
}

void chip_without_it(Check &check)
{
    ei2c_client pins = device(Chip::pins, Level::far);
    pins.flags = QELI2C_CLIENT_PEC;
    wire::set_registers(pins, 3, {0xFF});
    uint8_t value = 0x55;
    refused(check, "a checked read of a chip that sends no check byte",
            ei2c_smbus_read_byte_data(&pins, 3, &value), -1, EBADMSG);
    equal(check, "value after that", value, 0x55);
    equal(check, "switch registers afterwards", wire::switches(), {0, 0});
}

} // namespace

void add_packet_check_cases(Cases &cases)
{
    cases.push_back({"packet-check/byte-read", byte_read});
    cases.push_back({"packet-check/word-read", word_read});
    cases.push_back({"packet-check/block-read", block_read});
    cases.push_back({"packet-check/only-for-who-asked", only_for_who_asked});
    cases.push_back({"packet-check/writes-carry-it", writes_carry_it});
    cases.push_back({"packet-check/chip-without-it", chip_without_it});
}

} // namespace board
