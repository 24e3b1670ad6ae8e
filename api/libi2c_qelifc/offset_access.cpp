// Reads and writes at an offset that is sent ahead of the data.
#include "bus/message_bytes.h"
#include "bus/report.h"
#include "qeli2c.h"

namespace
{
constexpr char kLogTag[] = "libi2c_qelifc";
} // namespace

int32_t i2cRead(const ei2c_client *eclient, uint32_t datalen, uint8_t *data, uint32_t offsetlen,
                uint32_t offset)
{
    QEL_REQUIRE(eclient, -1);
    if (datalen > kLongestMessage || offsetlen > kLongestMessage) {
        QEL_RUNTIME_TEXT("offsetlen + datalen overflow\n");
        return -1;
    }
    if (datalen != 0)
        QEL_REQUIRE(data, -1);
    MessageBytes sent;
    MessageBytes answer;
    if (!lay_out(sent, nullptr, offsetlen, offset, nullptr, 0))
        return 0;
    if (!lay_out(answer, nullptr, 0, 0, nullptr, datalen)) {
        free(sent.bytes);
        return 0;
    }
    i2c_msg messages[2] = {{eclient->addr, 0, sent.length, sent.bytes},
                           {eclient->addr, I2C_M_RD, answer.length, answer.bytes}};
    const int32_t ret = offsetlen != 0 ? ei2c_rdwr_xfer(eclient, messages, 2)
                                       : ei2c_rdwr_xfer(eclient, &messages[1], 1);
    if (ret < 0)
        QEL_RUNTIME("ei2c_rdwr_xfer = %d\n", ret);
    else if (datalen != 0)
        (void)qel_memcpy_s(data, datalen, answer.bytes, datalen);
    free_keeping_errno(answer.bytes);
    free_keeping_errno(sent.bytes);
    return ret;
}

int32_t i2cWrite(const ei2c_client *eclient, uint32_t datalen, const uint8_t *data,
                 uint32_t offsetlen, uint32_t offset)
{
    QEL_REQUIRE(eclient, -1);
    if (uint64_t{offsetlen} + datalen >= kLongestMessage) {
        QEL_RUNTIME_TEXT("offsetlen + datalen overflow\n");
        return -1;
    }
    if (datalen != 0)
        QEL_REQUIRE(data, -1);
    MessageBytes sent;
    if (!lay_out(sent, nullptr, offsetlen, offset, data, datalen))
        return 0;
    i2c_msg message = {eclient->addr, 0, sent.length, sent.bytes};
    const int32_t ret = ei2c_rdwr_xfer(eclient, &message, 1);
    if (ret < 0)
        QEL_RUNTIME("ei2c_rdwr_xfer = %d\n", ret);
    free_keeping_errno(sent.bytes);
    return ret;
}
