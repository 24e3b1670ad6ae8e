// SMBus transactions made of plain I2C messages.
#include <errno.h>
#include <linux/i2c-dev.h>
#include <string.h>

#include "simboard/i2c_dev.h"
#include "simboard/pec.h"
#include "simboard/transfer.h"

namespace simboard
{

namespace
{

// Messages of one transaction: a write, a read, or a write and then a read.
struct Messages {
    uint8_t written[I2C_SMBUS_BLOCK_MAX + 3]; // command, count, block, PEC
    uint8_t read[2 * I2C_SMBUS_BLOCK_MAX + 2];
    i2c_msg messages[2];
    uint32_t count;
};

void write_bytes(Messages &made, const uint8_t *bytes, size_t count)
{
    memcpy(made.written + 1, bytes, count);
    made.messages[0].len = static_cast<uint16_t>(count + 1);
}

void write_word(Messages &made, uint16_t word)
{
    const uint8_t bytes[] = {static_cast<uint8_t>(word & 0xff), static_cast<uint8_t>(word >> 8)};
    write_bytes(made, bytes, sizeof(bytes));
}

void read_counted_block(Messages &made)
{
    made.messages[1].flags |= I2C_M_RECV_LEN;
    made.messages[1].len = 1; // the bytes counted are added when the count has come in
}

// A single message in the direction given.
void single_message(Messages &made, bool read)
{
    made.count = 1;
    if (read) {
        made.messages[0].flags |= I2C_M_RD;
    }
}

int make_block_messages(Messages &made, bool read, uint32_t size, const i2c_smbus_data &data)
{
    const uint8_t count = data.block[0];
    switch (size) {
    case I2C_SMBUS_BLOCK_DATA:
        if (read) {
            read_counted_block(made);
            return 0;
        }
        break;
    case I2C_SMBUS_BLOCK_PROC_CALL:
        made.count = 2;
        break;
    case I2C_SMBUS_I2C_BLOCK_DATA:
        if (count <= I2C_SMBUS_BLOCK_MAX && read) {
            made.messages[1].len = count;
            return 0;
        }
        break;
    default:
        return -EOPNOTSUPP;
    }
    if (count > I2C_SMBUS_BLOCK_MAX) {
        return -EINVAL;
    }
    if (size == I2C_SMBUS_I2C_BLOCK_DATA) {
        write_bytes(made, data.block + 1, count);
    } else {
        write_bytes(made, data.block, count + 1U);
    }
    if (size == I2C_SMBUS_BLOCK_PROC_CALL) {
        read_counted_block(made);
    }
    return 0;
}

int make_messages(Messages &made, bool read, uint32_t size, const i2c_smbus_data &data)
{
    switch (size) {
    case I2C_SMBUS_QUICK: // the direction bit is the data
        single_message(made, read);
        made.messages[0].len = 0;
        return 0;
    case I2C_SMBUS_BYTE: // reads without a command
        single_message(made, read);
        return 0;
    case I2C_SMBUS_BYTE_DATA:
        if (read) {
            made.messages[1].len = 1;
        } else {
            write_bytes(made, &data.byte, 1);
        }
        return 0;
    case I2C_SMBUS_PROC_CALL:
        made.count = 2;
        write_word(made, data.word);
        made.messages[1].len = 2;
        return 0;
    case I2C_SMBUS_WORD_DATA:
        if (read) {
            made.messages[1].len = 2;
        } else {
            write_word(made, data.word);
        }
        return 0;
    default:
        return make_block_messages(made, read, size, data);
    }
}

// A write carries its PEC as one more byte; a read asks for one more, checked over the whole
// transaction.
void add_pec(Messages &made, Transfer &transfer)
{
    i2c_msg &first = made.messages[0];
    i2c_msg &last = made.messages[made.count - 1];
    if ((first.flags & I2C_M_RD) == 0) {
        const uint8_t pec = pec_of_message(0, first, first.len);
        if (made.count == 1) {
            first.buf[first.len++] = pec;
        } else {
            transfer.pec = pec;
        }
    }
    if ((last.flags & I2C_M_RD) != 0) {
        last.len++;
        transfer.check_pec = true;
    }
}

void take_result(const Messages &made, uint32_t size, i2c_smbus_data &data)
{
    const uint8_t *const bytes = made.messages[made.count - 1].buf;
    switch (size) {
    case I2C_SMBUS_BYTE:
    case I2C_SMBUS_BYTE_DATA:
        data.byte = bytes[0];
        break;
    case I2C_SMBUS_WORD_DATA:
    case I2C_SMBUS_PROC_CALL:
        data.word = static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
        break;
    case I2C_SMBUS_I2C_BLOCK_DATA:
        memcpy(data.block + 1, bytes, data.block[0]);
        break;
    case I2C_SMBUS_BLOCK_DATA:
    case I2C_SMBUS_BLOCK_PROC_CALL:
        memcpy(data.block, bytes, bytes[0] + 1U);
        break;
    default:
        break;
    }
}

} // namespace

int smbus_transaction(State &state, Bus &bus, const Descriptor &descriptor, bool read,
                      uint8_t command, uint32_t size, i2c_smbus_data &data)
{
    Messages made;
    const uint16_t flags = descriptor.ten_bit ? I2C_M_TEN : 0;
    made.written[0] = command;
    made.messages[0] = {descriptor.address, flags, 1, made.written};
    made.messages[1] = {descriptor.address, static_cast<uint16_t>(flags | I2C_M_RD), 0, made.read};
    made.count = read ? 2 : 1;
    int status = make_messages(made, read, size, data);
    if (status < 0) {
        return status;
    }
    Transfer transfer = {made.messages, made.count, static_cast<int16_t>(size), false, 0};
    if (descriptor.pec && size != I2C_SMBUS_QUICK && size != I2C_SMBUS_I2C_BLOCK_DATA) {
        add_pec(made, transfer);
    }
    status = run_transfer(state, bus, transfer);
    if (status != static_cast<int>(made.count)) {
        return status < 0 ? status : -EIO;
    }
    if ((made.messages[made.count - 1].flags & I2C_M_RD) != 0) {
        take_result(made, size, data);
    }
    return 0;
}

} // namespace simboard
