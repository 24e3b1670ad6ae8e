// EEPROM access that is repeated, with a second's pause, until something was read or written.
#include <unistd.h>

#include "bus/report.h"
#include "qeli2c.h"

namespace
{

constexpr char kLogTag[] = "libi2c_qelifc";
constexpr uint32_t kAttempts = 3;

template <typename Byte, typename Call>
int32_t repeat(const char *name, Call call, const ei2c_client *eclient, int32_t offset, Byte *buf,
               int32_t len)
{
    int32_t ret = 0;
    for (uint32_t attempt = 0; attempt < kAttempts; ++attempt) {
        ret = call(eclient, offset, buf, len);
        if (ret > 0)
            return ret;
        const int error = errno;
        QEL_ERROR(130, "%s_retry, %s error loop %u, result:%d\n", name, name, attempt, ret);
        (void)sleep(1);
        errno = error;
    }
    return ret;
}

} // namespace

int32_t ei2c_eeprom_read_retry(const ei2c_client *eclient, int32_t offset, uint8_t *buf,
                               int32_t len)
{
    return repeat("ei2c_eeprom_read", ei2c_eeprom_read, eclient, offset, buf, len);
}

int32_t ei2c_eeprom_write_retry(const ei2c_client *eclient, int32_t offset, const uint8_t *buf,
                                int32_t len)
{
    return repeat("ei2c_eeprom_write", ei2c_eeprom_write, eclient, offset, buf, len);
}
