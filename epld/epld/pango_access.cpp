// Access to EPLDs that take a command byte first, and may refuse a transfer without that being a
// failure.
#include "epld/epld/epld.h"

namespace
{

// A message of the command byte, `count` bytes of `value` and `extra` bytes, which are 0. The total
// fits a message.
uint8_t *new_message(uint8_t reg, uint32_t value, uint32_t count, uint32_t extra)
{
    auto *bytes = static_cast<uint8_t *>(malloc(size_t{1} + count + extra));
    if (bytes == nullptr)
        return nullptr;
    bytes[0] = reg;
    put_big_endian(bytes + 1, count, value);
    if (extra != 0)
        (void)qel_memset_s(bytes + 1 + count, extra, 0, extra);
    return bytes;
}

} // namespace

int32_t pango_i2c_read_multi_para(const ei2c_client *client, uint8_t ucReg, uint32_t dwOffsetAddr,
                                  uint32_t dwOffsetLen, uint32_t dwDataLen, uint8_t *pucData)
{
    QEL_REQUIRE("pango_i2c_read_multi_para", client, -1);
    const uint64_t total = uint64_t{1} + dwOffsetLen;
    if (total % (longest_message + 1) == 0)
        return 0;
    if (total > longest_message || dwDataLen > longest_message)
        return -1;
    uint8_t *sent = new_message(ucReg, dwOffsetAddr, dwOffsetLen, 0);
    if (sent == nullptr)
        return -1;
    i2c_msg messages[2] = {{client->addr, 0, static_cast<uint16_t>(total), sent},
                           {client->addr, I2C_M_RD, static_cast<uint16_t>(dwDataLen), pucData}};
    const int32_t ret = ei2c_rdwr_xfer(client, messages, 2);
    if (ret < 0)
        (void)qel_printf_s("Read data failed!");
    free_keeping_errno(sent);
    if (ret >= 0)
        return 0;
    QEL_AUDIT("pango_i2c_read_multi_para",
              "i2c I/O error at bus(%d), slave(0x%x), reg(0x%x): i2c read failed !\n",
              static_cast<int>(client->bus), client->addr, ucReg);
    return -1;
}

int32_t pango_i2c_write_multi_para(const ei2c_client *client, uint8_t ucReg, uint32_t dwOffsetAddr,
                                   uint32_t dwOffsetLen, uint32_t dwDataLen, const uint8_t *pucData)
{
    QEL_REQUIRE("pango_i2c_write_multi_para", client, -1);
    const uint64_t total = uint64_t{1} + dwOffsetLen + dwDataLen;
    if (total > longest_message)
        return -1;
    uint8_t *sent = new_message(ucReg, dwOffsetAddr, dwOffsetLen, dwDataLen);
    if (sent == nullptr)
        return -1;
    if (pucData != nullptr && dwDataLen != 0)
        (void)qel_memcpy_s(sent + 1 + dwOffsetLen, dwDataLen, pucData, dwDataLen);
    i2c_msg message = {client->addr, 0, static_cast<uint16_t>(total), sent};
    const int32_t ret = ei2c_rdwr_xfer(client, &message, 1);
    if (ret < 0)
        (void)qel_printf_s("ei2c_rdwr_xfer failed");
    free_keeping_errno(sent);
    if (ret >= 0)
        return 0;
    QEL_AUDIT("pango_i2c_write_multi_para",
              "i2c I/O error at bus(%d), slave(0x%x), reg(0x%x): I2C Write failed !\n",
              static_cast<int>(client->bus), client->addr, ucReg);
    return -1;
}

int32_t pango_i2c_write_or_read_with_nack(const ei2c_client *client, uint8_t ucReg,
                                          uint32_t dwValue, uint32_t dwValueLen, int32_t bRead)
{
    QEL_REQUIRE("pango_i2c_write_or_read_with_nack", client, -1);
    const uint64_t total = uint64_t{1} + dwValueLen;
    if (total > longest_message)
        return -1;
    uint8_t *sent = new_message(ucReg, dwValue, dwValueLen, 0);
    if (sent == nullptr) {
        QEL_AUDIT_TEXT("pango_i2c_write_or_read_with_nack", "malloc failed");
        return -1;
    }
    uint8_t discarded = 0;
    i2c_msg messages[2] = {{client->addr, 0, static_cast<uint16_t>(total), sent},
                           {client->addr, I2C_M_RD, 1, &discarded}};
    (void)ei2c_rdwr_xfer_without_retry(client, messages, bRead != 0 ? 2 : 1);
    free(sent);
    return 0;
}
