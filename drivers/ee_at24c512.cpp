// Driver for EEPROMs of the AT24C512 class: two address bytes, transfers that stay within 32-byte
// pages, and one semaphore that keeps whole operations of all processes apart.
#include <algorithm>

#include "bus/cancellation.h"
#include "bus/lock_order.h"
#include "bus/message_bytes.h"
#include "bus/process_locks.h"
#include "bus/report.h"
#include "qeli2c.h"

namespace
{

constexpr char kLogTag[] = "ee_at24c512";
constexpr int32_t kPageSize = 32;
constexpr int32_t kHighestOffset = 0x7FFFFFDF;
constexpr uint32_t kAddressBytes = 2;
constexpr uint32_t kSemaphoreKey = 0x3001;
constexpr uint32_t kWaitWithoutLimit = 0xFFFF;
constexpr uint32_t kWritePauseUs = 25000;
constexpr uint32_t kReadPauseUs = 5000;

int32_t cached_semid = -1;

// How many bytes one transfer covers: at most to the end of the page. Negative when there is none.
int32_t chunk_length(int32_t offset, int32_t len)
{
    if (offset < 0 || offset > kHighestOffset || len < 0)
        return -1;
    const int32_t page_end = (offset + kPageSize) / kPageSize * kPageSize;
    return std::min({len, kPageSize, page_end - offset});
}

template <typename Byte, typename PageCall>
int32_t whole_operation(const ei2c_client *eclient, int32_t offset, Byte *data, int32_t len,
                        PageCall page_call)
{
    const CancellationPutOff put_off;
    if (ee_lock_eeprom() < 0) {
        QEL_PRINT("lock eeprom failed\n");
        return 0;
    }
    int32_t total = 0;
    for (int32_t remaining = len; remaining != 0;) {
        const int32_t done = page_call(eclient, offset, data, remaining);
        if (done <= 0) {
            if (total == 0)
                total = done;
            break;
        }
        offset += done;
        data += done;
        remaining -= done;
        total += done;
    }
    const int error = errno;
    if (ee_unlock_eeprom() < 0)
        QEL_PRINT("unlock eeprom failed\n");
    errno = error;
    return total;
}

void pause_keeping_errno(uint32_t microseconds)
{
    const int error = errno;
    select_sleep(0, microseconds);
    errno = error;
}

} // namespace

int32_t ee_eeprom_page_write(const ei2c_client *eclient, int32_t offset, const uint8_t *data,
                             int32_t len)
{
    QEL_REQUIRE(eclient, -1);
    const int32_t count = chunk_length(offset, len);
    if (count < 0)
        return -1;
    if (count != 0)
        QEL_REQUIRE(data, -1);
    uint8_t sent[kAddressBytes + kPageSize] = {};
    put_big_endian(sent, kAddressBytes, static_cast<uint32_t>(offset));
    if (count != 0)
        (void)qel_memcpy_s(sent + kAddressBytes, kPageSize, data, static_cast<size_t>(count));
    i2c_msg message = {eclient->addr, 0,
                       static_cast<uint16_t>(kAddressBytes + static_cast<uint32_t>(count)), sent};
    const int32_t ret = ei2c_rdwr_xfer(eclient, &message, 1);
    pause_keeping_errno(kWritePauseUs);
    return ret == 1 ? count : ret;
}

int32_t ee_eeprom_page_read(const ei2c_client *eclient, int32_t offset, uint8_t *data, int32_t len)
{
    QEL_REQUIRE(eclient, -1);
    const int32_t count = chunk_length(offset, len);
    if (count < 0)
        return -1;
    if (count != 0)
        QEL_REQUIRE(data, -1);
    uint8_t address[kAddressBytes] = {};
    put_big_endian(address, kAddressBytes, static_cast<uint32_t>(offset));
    i2c_msg messages[2] = {{eclient->addr, 0, kAddressBytes, address},
                           {eclient->addr, I2C_M_RD, static_cast<uint16_t>(count), data}};
    const int32_t ret = ei2c_rdwr_xfer(eclient, messages, 2);
    pause_keeping_errno(kReadPauseUs);
    return ret == 2 ? count : ret;
}

int32_t eeprom_write(const ei2c_client *eclient, int32_t offset, const uint8_t *data, int32_t len)
{
    return whole_operation(eclient, offset, data, len, ee_eeprom_page_write);
}

int32_t eeprom_read(const ei2c_client *eclient, int32_t offset, uint8_t *data, int32_t len)
{
    return whole_operation(eclient, offset, data, len, ee_eeprom_page_read);
}

int32_t ee_eeprom_semid(void)
{
    const int32_t semid = create_once(cached_semid, [] { return OAL_SemCreate(kSemaphoreKey); });
    if (semid < 0)
        QEL_PRINT("line: %d, func: %s(), ipc sem creat fail\n", __LINE__, "ee_eeprom_semid");
    return semid;
}

int32_t ee_lock_eeprom(void)
{
    const int32_t semid = ee_eeprom_semid();
    note_eeprom_wait();
    if (semid >= 0)
        (void)OAL_SemLockBySemId(semid, kWaitWithoutLimit);
    return semid;
}

int32_t ee_unlock_eeprom(void)
{
    return OAL_SemUnLockBySemId(ee_eeprom_semid(), kWaitWithoutLimit);
}

// The second names.
extern "C" int32_t ei2c_eeprom_read(const ei2c_client *eclient, int32_t offset, uint8_t *buf,
                                    int32_t len) __attribute__((alias("eeprom_read")));
extern "C" int32_t ei2c_eeprom_write(const ei2c_client *eclient, int32_t offset, const uint8_t *buf,
                                     int32_t len) __attribute__((alias("eeprom_write")));
