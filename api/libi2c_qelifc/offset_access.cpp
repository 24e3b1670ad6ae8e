// Reads and writes at an offset that is sent ahead of the data.
#include <cstdlib>

#include "bus/report.h"
#include "bus/wire.h"
#include "qeli2c.h"

namespace
{
constexpr char log_tag[] = "libi2c_qelifc";
} // namespace

int32_t i2cRead(const ei2c_client *eclient, uint32_t datalen, uint8_t *data, uint32_t offsetlen,
                uint32_t offset)
{
    QEL_REQUIRE("i2cRead", eclient, -1);
    if (datalen != 0)
        QEL_REQUIRE("i2cRead", data, -1);
    if (datalen > longest_message || offsetlen > longest_message) {
        QEL_RUNTIME_TEXT("offsetlen + datalen overflow\n");
        return -1;
    }
    uint8_t *sent = nullptr;
    if (offsetlen != 0) {
        sent = static_cast<uint8_t *>(malloc(offsetlen));
        if (sent == nullptr)
            return 0;
        put_big_endian(sent, offsetlen, offset);
    }
    uint8_t *answer = nullptr;
    if (datalen != 0) {
        answer = static_cast<uint8_t *>(malloc(datalen));
        if (answer == nullptr) {
            free(sent);
            return 0;
        }
        (void)qel_memset_s(answer, datalen, 0, datalen);
    }
    i2c_msg messages[2] = {{eclient->addr, 0, static_cast<uint16_t>(offsetlen), sent},
                           {eclient->addr, I2C_M_RD, static_cast<uint16_t>(datalen), answer}};
    const int32_t ret = offsetlen != 0 ? ei2c_rdwr_xfer(eclient, messages, 2)
                                       : ei2c_rdwr_xfer(eclient, &messages[1], 1);
    const int error = errno;
    if (ret < 0)
        QEL_RUNTIME("ei2c_rdwr_xfer = %d\n", ret);
    else if (datalen != 0)
        (void)qel_memcpy_s(data, datalen, answer, datalen);
    free(answer);
    free(sent);
    errno = error;
    return ret;
}

int32_t i2cWrite(const ei2c_client *eclient, uint32_t datalen, const uint8_t *data,
                 uint32_t offsetlen, uint32_t offset)
{
    QEL_REQUIRE("i2cWrite", eclient, -1);
    if (datalen != 0)
        QEL_REQUIRE("i2cWrite", data, -1);
    const uint64_t total = uint64_t{offsetlen} + datalen;
    if (total >= longest_message) {
        QEL_RUNTIME_TEXT("offsetlen + datalen overflow\n");
        return -1;
    }
    uint8_t *sent = nullptr;
    if (total != 0) {
        sent = static_cast<uint8_t *>(malloc(static_cast<size_t>(total)));
        if (sent == nullptr)
            return 0;
        put_big_endian(sent, offsetlen, offset);
        if (datalen != 0)
            (void)qel_memcpy_s(sent + offsetlen, datalen, data, datalen);
    }
    i2c_msg message = {eclient->addr, 0, static_cast<uint16_t>(total), sent};
    const int32_t ret = ei2c_rdwr_xfer(eclient, &message, 1);
    const int error = errno;
    if (ret < 0)
        QEL_RUNTIME("ei2c_rdwr_xfer = %d\n", ret);
    free(sent);
    errno = error;
    return ret;
}
