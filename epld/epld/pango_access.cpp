// Access to EPLDs that take a command byte first, and may refuse a transfer without that being a
// failure.
#include "bus/message_bytes.h"
#include "bus/report.h"
#include "qeli2c.h"

namespace
{

constexpr char kLogTag[] = "epld";

} // namespace

int32_t pango_i2c_read_multi_para(const ei2c_client *client, uint8_t ucReg, uint32_t dwOffsetAddr,
                                  uint32_t dwOffsetLen, uint32_t dwDataLen, uint8_t *pucData)
{
    QEL_REQUIRE(client, -1);
    const uint64_t total = uint64_t{1} + dwOffsetLen;
    if (total % (kLongestMessage + 1) == 0)
        return 0;
    if (total > kLongestMessage)
        return -1;
    MessageBytes sent;
    if (!lay_out(sent, &ucReg, dwOffsetLen, dwOffsetAddr, nullptr, 0))
        return -1;
    i2c_msg messages[2] = {{client->addr, 0, sent.length, sent.bytes},
                           {client->addr, I2C_M_RD, static_cast<uint16_t>(dwDataLen), pucData}};
    const int32_t ret = ei2c_rdwr_xfer(client, messages, 2);
    if (ret < 0)
        QEL_PRINT("Read data failed!");
    free_keeping_errno(sent.bytes);
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
    QEL_REQUIRE(client, -1);
    const uint64_t total = uint64_t{1} + dwOffsetLen + dwDataLen;
    if (total > kLongestMessage)
        return -1;
    MessageBytes sent;
    if (!lay_out(sent, &ucReg, dwOffsetLen, dwOffsetAddr, pucData, dwDataLen))
        return -1;
    i2c_msg message = {client->addr, 0, sent.length, sent.bytes};
    const int32_t ret = ei2c_rdwr_xfer(client, &message, 1);
    if (ret < 0)
        QEL_PRINT("ei2c_rdwr_xfer failed");
    free_keeping_errno(sent.bytes);
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
    QEL_REQUIRE(client, -1);
    const uint64_t total = uint64_t{1} + dwValueLen;
    if (total > kLongestMessage)
        return -1;
    MessageBytes sent;
    if (!lay_out(sent, &ucReg, dwValueLen, dwValue, nullptr, 0)) {
        QEL_AUDIT_TEXT("pango_i2c_write_or_read_with_nack", "malloc failed");
        return -1;
    }
    uint8_t discarded = 0;
    i2c_msg messages[2] = {{client->addr, 0, sent.length, sent.bytes},
                           {client->addr, I2C_M_RD, 1, &discarded}};
    (void)ei2c_rdwr_xfer_without_retry(client, messages, bRead != 0 ? 2 : 1);
    free(sent.bytes);
    return 0;
}
