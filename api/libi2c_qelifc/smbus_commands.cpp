// The SMBus commands: each fills a data area, makes one call into the transfer engine and hands the
// answer out.
#include <algorithm>

#include "bus/report.h"
#include "qeli2c.h"

namespace
{

constexpr char kLogTag[] = "libi2c_qelifc";

constexpr uint32_t kLongestBlockSent = 253;
constexpr uint8_t kLongestBlockReceived = 32;

using Engine = decltype(ei2c_smbus_xfer);

// Laid out as union i2c_smbus_data; the engine copies all of it.
struct Area {
    uint8_t bytes[QELI2C_SMBUS_AREA];

    Area() { (void)qel_memset_s(bytes, sizeof(bytes), 0, sizeof(bytes)); }
};

uint32_t cut(uint32_t length)
{
    return std::min(length, kLongestBlockSent);
}

void put_block(Area &area, const uint8_t *values, uint32_t length)
{
    const uint32_t count = cut(length);
    area.bytes[0] = static_cast<uint8_t>(count);
    if (count != 0)
        (void)qel_memcpy_s(area.bytes + 1, count, values, count);
}

int32_t read_byte(Engine engine, const ei2c_client *eclient, uint8_t command, uint32_t size,
                  uint8_t *value)
{
    Area area;
    const int32_t ret = engine(eclient, I2C_SMBUS_READ, command, size, area.bytes);
    if (ret >= 0)
        *value = area.bytes[0];
    return ret;
}

int32_t write_byte_data(Engine engine, const ei2c_client *eclient, uint8_t command, uint8_t value)
{
    Area area;
    area.bytes[0] = value;
    return engine(eclient, I2C_SMBUS_WRITE, command, I2C_SMBUS_BYTE_DATA, area.bytes);
}

// Takes a block of at most 32 bytes out of the area, with its count.
int32_t get_block(const char *function, int32_t ret, const Area &area, uint8_t command,
                  uint8_t *values, uint8_t *length)
{
    const uint8_t count = area.bytes[0];
    if (count > kLongestBlockReceived) {
        QEL_RUNTIME("[%s %d] read smbus data error, length = %d, cmd = %#x\n", function, __LINE__,
                    count, command);
        return -1;
    }
    if (count != 0)
        (void)qel_memcpy_s(values, count, area.bytes + 1, count);
    *length = count;
    return ret;
}

} // namespace

int32_t ei2c_smbus_read_byte(const ei2c_client *eclient, uint8_t *value)
{
    QEL_REQUIRE(value, -1);
    return read_byte(ei2c_smbus_xfer, eclient, 0, I2C_SMBUS_BYTE, value);
}

int32_t ei2c_smbus_write_byte(const ei2c_client *eclient, uint8_t value)
{
    return ei2c_smbus_xfer(eclient, I2C_SMBUS_WRITE, value, I2C_SMBUS_BYTE, nullptr);
}

int32_t ei2c_smbus_read_byte_data(const ei2c_client *eclient, uint8_t command, uint8_t *value)
{
    QEL_REQUIRE(value, -1);
    return read_byte(ei2c_smbus_xfer, eclient, command, I2C_SMBUS_BYTE_DATA, value);
}

int32_t ei2c_smbus_write_byte_data(const ei2c_client *eclient, uint8_t command, uint8_t value)
{
    return write_byte_data(ei2c_smbus_xfer, eclient, command, value);
}

int32_t ei2c_smbus_read_word_data(const ei2c_client *eclient, uint8_t command, uint16_t *value)
{
    QEL_REQUIRE(value, -1);
    Area area;
    const int32_t ret =
        ei2c_smbus_xfer(eclient, I2C_SMBUS_READ, command, I2C_SMBUS_WORD_DATA, area.bytes);
    if (ret >= 0)
        *value = static_cast<uint16_t>(area.bytes[0] | area.bytes[1] << 8);
    return ret;
}

int32_t ei2c_smbus_write_word_data(const ei2c_client *eclient, uint8_t command, uint16_t value)
{
    Area area;
    area.bytes[0] = static_cast<uint8_t>(value & 0xFF);
    area.bytes[1] = static_cast<uint8_t>(value >> 8);
    return ei2c_smbus_xfer(eclient, I2C_SMBUS_WRITE, command, I2C_SMBUS_WORD_DATA, area.bytes);
}

int32_t ei2c_smbus_read_block_data(const ei2c_client *eclient, uint8_t command, uint8_t *len,
                                   uint8_t *values)
{
    QEL_REQUIRE(len, -1);
    Area area;
    const int32_t ret =
        ei2c_smbus_xfer(eclient, I2C_SMBUS_READ, command, I2C_SMBUS_BLOCK_DATA, area.bytes);
    if (ret < 0)
        return ret;
    if (area.bytes[0] != 0 && area.bytes[0] <= kLongestBlockReceived)
        QEL_REQUIRE(values, -1);
    return get_block("ei2c_smbus_read_block_data", ret, area, command, values, len);
}

int32_t qel_ei2c_smbus_read_block_data(const ei2c_client *eclient, uint8_t command, uint32_t len,
                                       uint8_t *values)
{
    Area area;
    const int32_t ret =
        ei2c_smbus_xfer(eclient, I2C_SMBUS_READ, command, I2C_SMBUS_BLOCK_DATA, area.bytes);
    if (ret < 0)
        return ret;
    QEL_REQUIRE(values, -1);
    const uint32_t count = std::min<uint32_t>(area.bytes[0], len);
    (void)qel_memcpy_s(values, count + 1, area.bytes, count + 1);
    return ret;
}

int32_t ei2c_smbus_write_block_data(const ei2c_client *eclient, uint8_t command, uint32_t length,
                                    const uint8_t *values)
{
    if (length != 0)
        QEL_REQUIRE(values, -1);
    Area area;
    put_block(area, values, length);
    return ei2c_smbus_xfer(eclient, I2C_SMBUS_WRITE, command, I2C_SMBUS_BLOCK_DATA, area.bytes);
}

int32_t ei2c_smbus_wtrd_block_data(const ei2c_client *eclient, int32_t fd, uint8_t command,
                                   uint32_t write_len, const uint8_t *write_buf, uint8_t *read_buf,
                                   uint32_t *read_len, int32_t write_only)
{
    if (write_len != 0)
        QEL_REQUIRE(write_buf, -1);
    Area area;
    put_block(area, write_buf, write_len);
    return ei2c_smbus_xfer_wtrd(eclient, fd, I2C_SMBUS_WRITE, command, I2C_SMBUS_BLOCK_DATA,
                                area.bytes, read_buf, read_len, write_only);
}

int32_t ei2c_smbus_read_block_proc_call_data(const ei2c_client *eclient, uint8_t command,
                                             const uint8_t *write_buf, uint32_t write_len,
                                             uint8_t *read_buf, uint8_t *read_len)
{
    QEL_REQUIRE(read_len, -1);
    if (write_len != 0)
        QEL_REQUIRE(write_buf, -1);
    Area area;
    put_block(area, write_buf, write_len);
    const int32_t ret =
        ei2c_smbus_xfer(eclient, I2C_SMBUS_READ, command, I2C_SMBUS_BLOCK_PROC_CALL, area.bytes);
    if (ret < 0)
        return ret;
    if (area.bytes[0] != 0 && area.bytes[0] <= kLongestBlockReceived)
        QEL_REQUIRE(read_buf, -1);
    return get_block("ei2c_smbus_read_block_proc_call_data", ret, area, command, read_buf,
                     read_len);
}

int32_t ei2c_smbus_read_i2c_block_data(const ei2c_client *eclient, uint32_t write_len,
                                       const uint8_t *write_buf, uint32_t read_len,
                                       uint8_t *read_buf)
{
    QEL_REQUIRE(eclient, -1);
    if (write_len != 0)
        QEL_REQUIRE(write_buf, -1);
    uint8_t sent[256] = {};
    uint8_t received[255] = {};
    const uint32_t sent_length = cut(write_len);
    const uint32_t received_length = cut(read_len);
    if (sent_length != 0)
        (void)qel_memcpy_s(sent, sent_length, write_buf, sent_length);
    i2c_msg messages[2] = {
        {eclient->addr, eclient->flags, static_cast<uint16_t>(sent_length), sent},
        {eclient->addr, static_cast<uint16_t>(eclient->flags | I2C_M_RD),
         static_cast<uint16_t>(received_length), received}};
    const int32_t ret = ei2c_rdwr_xfer(eclient, messages, 2);
    if (ret >= 0 && received_length != 0) {
        QEL_REQUIRE(read_buf, -1);
        (void)qel_memcpy_s(read_buf, received_length, received, received_length);
    }
    return ret;
}

int32_t ei2c_smbus_write_i2c_block_data(const ei2c_client *eclient, uint8_t command,
                                        uint32_t length, const uint8_t *values)
{
    if (length != 0)
        QEL_REQUIRE(values, -1);
    Area area;
    put_block(area, values, length);
    return ei2c_smbus_xfer(eclient, I2C_SMBUS_WRITE, command, I2C_SMBUS_I2C_BLOCK_DATA, area.bytes);
}

int32_t ei2c_smbus_read_byte_data_without_lock(const ei2c_client *eclient, uint8_t command,
                                               uint8_t *value)
{
    QEL_REQUIRE(value, -1);
    return read_byte(ei2c_smbus_xfer_without_lock, eclient, command, I2C_SMBUS_BYTE_DATA, value);
}

int32_t ei2c_smbus_write_byte_data_without_lock(const ei2c_client *eclient, uint8_t command,
                                                uint8_t value)
{
    return write_byte_data(ei2c_smbus_xfer_without_lock, eclient, command, value);
}
