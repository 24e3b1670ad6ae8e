// What cannot be done: the results and the errno of the kernel, and that nothing is left open or
// held.
#include <algorithm>
#include <cerrno>

#include "cases.h"
#include "wire.h"

namespace board
{

namespace
{

ei2c_client absent(Level level)
{
    ei2c_client client = device(Chip::eeprom, level);
    client.addr = 0x6D;
    return client;
}

void absent_device(Check &check, Level level)
{
    const ei2c_client client = absent(level);
    uint8_t byte = 0xA7;
    i2c_msg message = {client.addr, 0, 1, &byte};
    refused(check, "one message", ei2c_rdwr_xfer(&client, &message, 1), -1, ENXIO);
    refused(check, "one try", ei2c_rdwr_xfer_without_retry(&client, &message, 1), -1, ENXIO);
    refused(check, "SMBus byte read", ei2c_smbus_read_byte_data(&client, 0, &byte), -1, ENXIO);
    refused(check, "SMBus word write", ei2c_smbus_write_word_data(&client, 0, 0), -1, ENXIO);
    refused(check, "offset read", i2cRead(&client, 1, &byte, 2, 0), -1, ENXIO);
    refused(check, "EEPROM write", eeprom_write(&client, 0, &byte, 1), -1, ENXIO);
    equal(check, "the caller's byte", byte, 0xA7);
    equal(check, "switch registers afterwards", wire::switches(), {0, 0});
}

void absent_switch(Check &check)
{
    ei2c_client client = device(Chip::eeprom, Level::far);
    uint8_t byte = 0xA7;
    client.swi_addr = uint32_t{switch_a} << 16 | 0x77;
    refused(check, "near switch absent", ei2c_smbus_read_byte_data(&client, 0, &byte), -1, ENXIO);
    equal(check, "the upstream switch, opened before that", wire::read(bench_bus, switch_a, {}, 1),
          {1U << 5});
    wire::write(bench_bus, switch_a, {0});
    client.swi_addr = uint32_t{0x77} << 16 | switch_b;
    refused(check, "upstream switch absent", ei2c_smbus_read_byte_data(&client, 0, &byte), -1,
            ENXIO);
    int32_t fd = -7;
    int32_t semaphore = -7;
    equal(check, "hold of that path", ei2c_smbus_select_switch(&client, &fd, &semaphore), -5);
    equal(check, "descriptor and semaphore handed out", fd + semaphore, -14);
    const ei2c_client reachable = device(Chip::pins, Level::far);
    equal(check, "next transfer on the bus", ei2c_smbus_read_byte_data(&reachable, 0, &byte), 0);
    equal(check, "switch registers afterwards", wire::switches(), {0, 0});
}

void channel_too_high(Check &check)
{
    ei2c_client client = device(Chip::eeprom, Level::near);
    client.swi_chnl = 8;
    uint8_t byte = 0;
    equal(check, "result", ei2c_smbus_read_byte_data(&client, 0, &byte), -1);
    equal(check, "switch registers afterwards", wire::switches(), {0, 0});
}

// The kernel takes 42 messages at most (Documentation/i2c/dev-interface.rst).
void many_messages(Check &check)
{
    const ei2c_client pins = device(Chip::pins, Level::near);
    wire::set_registers(pins, 3, {0xFF});
    uint8_t command = 3;
    Bytes received(43);
    std::vector<i2c_msg> messages;
    for (size_t i = 0; i < 43; i++)
        messages.push_back(i % 2 == 0 ? i2c_msg{pins.addr, 0, 1, &command}
                                      : i2c_msg{pins.addr, I2C_M_RD, 1, &received[i]});
    equal(check, "result of 42 messages", ei2c_rdwr_xfer(&pins, messages.data(), 42), 42);
    for (size_t i = 1; i < 42; i += 2)
        equal(check, "byte of message " + std::to_string(i), received[i], 0xFF);
    refused(check, "43 messages", ei2c_rdwr_xfer(&pins, messages.data(), 43), -1, EINVAL);
    refused(check, "no message", ei2c_rdwr_xfer(&pins, messages.data(), 0), -1, EINVAL);
    equal(check, "switch registers afterwards", wire::switches(), {0, 0});
}

// A message has 8192 bytes at most.
void long_messages(Check &check)
{
    const ei2c_client eeprom = device(Chip::eeprom, Level::root);
    Bytes bytes(8193);
    for (size_t i = 0; i < bytes.size(); i++)
        bytes[i] = static_cast<uint8_t>(i * 31 >> 3);
    equal(check, "write of 8190 bytes and an offset",
          i2cWrite(&eeprom, 8190, bytes.data(), 2, 0x8000), 1);
    refused(check, "write of 8191 bytes and an offset",
            i2cWrite(&eeprom, 8191, bytes.data(), 2, 0x8000), -1, EINVAL);
    Bytes received(8193, 0xEE);
    equal(check, "read of 8192 bytes", i2cRead(&eeprom, 8192, received.data(), 2, 0x8000), 2);
    is_true(check, "they are what was written",
            std::equal(bytes.begin(), bytes.begin() + 8190, received.begin()));
    const Bytes before = received;
    refused(check, "read of 8193 bytes", i2cRead(&eeprom, 8193, received.data(), 2, 0x8000), -1,
            EINVAL);
    is_true(check, "the caller's buffer is as before", received == before);
}

void long_blocks(Check &check)
{
    const ei2c_client eeprom = device(Chip::eeprom, Level::near);
    const Bytes bytes(253, 0x3A);
    wire::set_memory(eeprom, 0x5020, Bytes(32, 0));
    equal(check, "block write of 32 bytes",
          ei2c_smbus_write_block_data(&eeprom, 0x50, 32, bytes.data()), 0);
    is_true(check, "they arrived", wire::memory(eeprom, 0x5020, 32) == Bytes(32, 0x3A));
    refused(check, "block write of 33 bytes",
            ei2c_smbus_write_block_data(&eeprom, 0x50, 33, bytes.data()), -1, EINVAL);
    refused(check, "I2C block write of 33 bytes",
            ei2c_smbus_write_i2c_block_data(&eeprom, 0x50, 33, bytes.data()), -1, EINVAL);
    refused(check, "block write of 253 bytes",
            ei2c_smbus_write_block_data(&eeprom, 0x50, 253, bytes.data()), -1, EINVAL);
    equal(check, "switch registers afterwards", wire::switches(), {0, 0});
}

// The device says that 33 bytes, or none, are to come.
void wrong_block_count(Check &check)
{
    ei2c_client identity = {};
    identity.bus = 7;
    identity.addr = 0x50;
    uint8_t count = 0xEE;
    Bytes values(256, 0xEE);
    wire::write(identity.bus, identity.addr, {0x90, 33});
    refused(check, "block read with the count 33",
            ei2c_smbus_read_block_data(&identity, 0x90, &count, values.data()), -1, EPROTO);
    refused(check, "the same with the count handed over",
            qel_ei2c_smbus_read_block_data(&identity, 0x90, 255, values.data()), -1, EPROTO);
    equal(check, "the caller's count", count, 0xEE);
    is_true(check, "the caller's buffer is as before", values == Bytes(256, 0xEE));
    wire::write(identity.bus, identity.addr, {0x90, 1, 0x42});
    equal(check, "next block read",
          ei2c_smbus_read_block_data(&identity, 0x90, &count, values.data()), 0);
    equal(check, "its count", count, 1);
}

// Only buses 0 to 15 can be locked, and all sixteen are there.
void other_buses(Check &check)
{
    ei2c_client client = {};
    uint8_t byte = 0;
    client.addr = 0x6D;
    for (client.bus = 0; client.bus < 16; client.bus++)
        refused(check, "read on bus " + std::to_string(client.bus),
                ei2c_smbus_read_byte_data(&client, 0, &byte), -1, ENXIO);
    refused(check, "read on bus 16", ei2c_smbus_read_byte_data(&client, 0, &byte),
            QELI2C_NO_DEVICE_FILE, ENOENT);
    int32_t fd = -7;
    int32_t semaphore = -7;
    equal(check, "hold of bus 16", ei2c_smbus_lock_adapter(&client, &fd, &semaphore),
          QELI2C_NO_DEVICE_FILE);
}

// A refusal is what such a device answers when it is busy: it counts as done.
void tolerated_refusal(Check &check)
{
    const ei2c_client client = absent(Level::near);
    equal(check, "result", pango_i2c_write_or_read_with_nack(&client, 0x47, 0, 1, 0), 0);
    equal(check, "switch registers afterwards", wire::switches(), {0, 0});
}

} // namespace

void add_refusal_cases(Cases &cases)
{
    for (const Level level : all_levels)
        cases.push_back({"refusal/absent-device/" + name_of(level),
                         [level](Check &check) { absent_device(check, level); }});
    cases.push_back({"refusal/absent-switch", absent_switch});
    cases.push_back({"refusal/channel-too-high", channel_too_high});
    cases.push_back({"refusal/43-messages", many_messages});
    cases.push_back({"refusal/8193-bytes", long_messages});
    cases.push_back({"refusal/33-byte-block-sent", long_blocks});
    cases.push_back({"refusal/33-byte-block-received", wrong_block_count});
    cases.push_back({"refusal/buses-that-are-not-there", other_buses});
    cases.push_back({"refusal/tolerated", tolerated_refusal});
}

} // namespace board
