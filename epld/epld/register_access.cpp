// Register access to board logic: an offset of any length, most significant byte first, ahead of
// the data.
#include "bus/message_bytes.h"
#include "bus/report.h"
#include "qeli2c.h"

namespace
{

constexpr char kLogTag[] = "epld";

bool fits(const char *function, uint8_t offset_length, uint32_t data_length)
{
    if (uint64_t{offset_length} + data_length <= kLongestMessage)
        return true;
    QEL_AUDIT_TEXT(function, "ucOffsetLen + dwDataLen overflow !\n");
    return false;
}

void trace_read_data(const uint8_t *data, uint32_t length)
{
    QEL_RUNTIME_TEXT("readData:");
    for (uint32_t i = 0; i < length; ++i)
        QEL_RUNTIME(" %x", data[i]);
    QEL_RUNTIME_TEXT("\n");
}

} // namespace

int32_t i2c_read_multi_para(const ei2c_client *client, uint32_t dwOffsetAddr, uint8_t ucOffsetLen,
                            uint32_t dwDataLen, uint8_t *pucData)
{
    QEL_REQUIRE(client, -1);
    if (dwDataLen != 0)
        QEL_REQUIRE(pucData, -1);
    MessageBytes sent;
    if (lay_out(sent, nullptr, ucOffsetLen, dwOffsetAddr, nullptr, 0)) {
        i2c_msg messages[2] = {
            {client->addr, 0, sent.length, sent.bytes},
            {client->addr, I2C_M_RD, static_cast<uint16_t>(dwDataLen & 0xFFFF), pucData}};
        const int32_t ret = ei2c_rdwr_xfer(client, messages, 2);
        trace_read_data(pucData, dwDataLen);
        if (ret < 0)
            QEL_AUDIT_TEXT("i2c_read_multi_para", "Read data failed!\n");
        free_keeping_errno(sent.bytes);
        if (ret >= 0)
            return 0;
    }
    QEL_AUDIT("i2c_read_multi_para",
              "i2c I/O error at bus(%d), slave(0x%x), reg(0x%x): I2ReaMultPara failed !\n",
              static_cast<int>(client->bus), client->addr, dwOffsetAddr);
    return -1;
}

int32_t i2c_write_multi_para(const ei2c_client *client, uint32_t dwOffsetAddr, uint8_t ucOffsetLen,
                             uint32_t dwDataLen, const uint8_t *pucData)
{
    QEL_REQUIRE(client, -1);
    QEL_REQUIRE(pucData, -1);
    if (!fits("i2c_write_multi_para", ucOffsetLen, dwDataLen))
        return -1;
    MessageBytes sent;
    int32_t ret = -1;
    if (lay_out(sent, nullptr, ucOffsetLen, dwOffsetAddr, pucData, dwDataLen)) {
        i2c_msg message = {client->addr, 0, sent.length, sent.bytes};
        ret = ei2c_rdwr_xfer(client, &message, 1);
        free_keeping_errno(sent.bytes);
    }
    if (ret >= 0)
        return 0;
    QEL_AUDIT("i2c_write_multi_para",
              "i2c I/O error at bus(%d), slave(0x%x), reg(0x%x): DC_I2CWriteMultiPara() failed !\n",
              static_cast<int>(client->bus), client->addr, dwOffsetAddr);
    return -1;
}

int32_t i2c_write_and_read_multi_para(const ei2c_client *client, const uint32_t *pdwOffsetAddr,
                                      uint8_t ucOffsetLen, const uint32_t *pdwDataLen,
                                      const uint8_t *pucWriteData, uint8_t *pucReadData)
{
    const char *const self = "i2c_write_and_read_multi_para";
    QEL_REQUIRE(client, -1);
    QEL_REQUIRE(pdwOffsetAddr, -1);
    QEL_REQUIRE(pdwDataLen, -1);
    if (!fits(self, ucOffsetLen, pdwDataLen[0]))
        return -1;
    if (pdwDataLen[0] != 0)
        QEL_REQUIRE(pucWriteData, -1);
    if (pdwDataLen[1] != 0)
        QEL_REQUIRE(pucReadData, -1);
    MessageBytes written;
    if (!lay_out(written, nullptr, ucOffsetLen, pdwOffsetAddr[0], pucWriteData, pdwDataLen[0]))
        return -1;
    MessageBytes offset;
    int32_t ret = -1;
    if (lay_out(offset, nullptr, ucOffsetLen, pdwOffsetAddr[1], nullptr, 0)) {
        i2c_msg set0 = {client->addr, 0, written.length, written.bytes};
        i2c_msg set1[2] = {
            {client->addr, 0, offset.length, offset.bytes},
            {client->addr, I2C_M_RD, static_cast<uint16_t>(pdwDataLen[1] & 0xFFFF), pucReadData}};
        i2c_msg *sets[2] = {&set0, set1};
        const uint32_t counts[2] = {1, 2};
        ret = ei2c_rdwr_mxfer(client, sets, counts);
        free_keeping_errno(offset.bytes);
    }
    free_keeping_errno(written.bytes);
    if (ret >= 0)
        return 0;
    QEL_AUDIT(self,
              "i2c I/O error at bus(%d), slave(0x%x), reg(0x%x): "
              "i2c_write_and_read_multi_para() failed !\n",
              static_cast<int>(client->bus), client->addr, pdwOffsetAddr[0]);
    return -1;
}
