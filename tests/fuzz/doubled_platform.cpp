#include "tests/fuzz/doubled_platform.h"

#include "include/qeli2c.h"
#include "platform/qelplatform.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <linux/i2c-dev.h>
#include <sanitizer/asan_interface.h>
#include <sys/mman.h>
#include <unistd.h>

namespace fuzz
{

thread_local Platform platform;

namespace
{

constexpr uint32_t kFirstSemaphore = 200;
constexpr uint32_t kFirstDescriptor = 100;
constexpr uint32_t kHighDescriptors = 2000; // above what a select takes
constexpr int kMemoryDescriptor = 99;
constexpr int32_t kEepromKey = 0x3001;
constexpr uint32_t kFirstKey = 0x3060;
constexpr uint32_t kBuses = 16;
constexpr size_t kLargestBlock = 0x20000;
constexpr uint16_t kLongestMessage = 8192; // of the kernel's i2c-dev
constexpr size_t kSmbusData = sizeof(i2c_smbus_data);

alignas(64) uint32_t owner_table[kBuses];

uint8_t next()
{
    return platform.replies != nullptr ? platform.replies->byte() : 0;
}

// 0, or a failure's result with its errno.
int outcome()
{
    static constexpr int kErrors[] = {ENXIO, EAGAIN, ETIMEDOUT, EBUSY, EIO, EINTR, EPROTO, EBADMSG};
    const uint8_t reply = next();
    if (reply % 4 != 3)
        return 0;
    errno = kErrors[reply / 4 % 8];
    return -1 - reply / 64 * 4;
}

int failed(int error)
{
    errno = error;
    return -1;
}

uint32_t bit_of_semaphore(int32_t id)
{
    return 1U << (static_cast<uint32_t>(id) - kFirstSemaphore);
}

uint32_t bit_of_descriptor(int fd)
{
    return 1U << (static_cast<uint32_t>(fd) % 100 % kBuses);
}

// What the kernel copies has to be there.
void check_memory(void *bytes, size_t count)
{
    if (count != 0 && __asan_region_is_poisoned(bytes, count) != nullptr)
        broken("a request names memory that is not its caller's");
}

void check_bus(int fd)
{
    const uint32_t bit = bit_of_descriptor(fd);
    if (platform.bus_needed &&
        ((platform.semaphores & bit) == 0 || (platform.file_locks & bit) == 0))
        broken("a request on a bus that was not taken");
}

// As i2c-dev: lengths and addresses are looked at before anything is transferred, and all that was
// read is copied out when that succeeded.
int transfer(const i2c_rdwr_ioctl_data &request)
{
    if (request.nmsgs == 0 || request.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS)
        return failed(EINVAL);
    check_memory(request.msgs, request.nmsgs * sizeof(i2c_msg));
    for (uint32_t i = 0; i < request.nmsgs; i++) {
        const i2c_msg &message = request.msgs[i];
        if (message.len > kLongestMessage)
            return failed(EINVAL);
        if (message.buf == nullptr && message.len != 0)
            return failed(EFAULT);
        check_memory(message.buf, message.len);
    }
    if (outcome() != 0)
        return -1;
    const uint8_t shortened = next();
    for (uint32_t i = 0; i < request.nmsgs; i++) {
        const i2c_msg &message = request.msgs[i];
        if ((message.flags & I2C_M_RD) == 0 || message.len == 0)
            continue;
        memset(message.buf, next(), message.len);
        for (uint16_t at = 0; at < message.len && at < 4; at++)
            message.buf[at] = next();
    }
    return static_cast<int>(shortened < 224 ? request.nmsgs : shortened % (request.nmsgs + 1));
}

int smbus(const i2c_smbus_ioctl_data &request)
{
    if (request.size > I2C_SMBUS_I2C_BLOCK_DATA || request.read_write > I2C_SMBUS_READ)
        return failed(EINVAL);
    check_memory(request.data, kSmbusData);
    if (outcome() != 0)
        return -1;
    if (request.read_write == I2C_SMBUS_READ || request.size == I2C_SMBUS_BLOCK_PROC_CALL ||
        request.size == I2C_SMBUS_PROC_CALL) {
        memset(request.data, next(), kSmbusData);
        request.data->block[0] = next(); // any count, as an adapter that is not asked twice has it
        request.data->block[1] = next();
    }
    return 0;
}

void format_line(const char *format, va_list arguments)
{
    char line[512];
    const int error = errno;
    if (platform.formats && vsnprintf(line, sizeof(line), format, arguments) < 0)
        broken("a log line cannot be formatted");
    errno = error;
}

} // namespace

int32_t semaphore_of(uint32_t bus)
{
    return static_cast<int32_t>(kFirstSemaphore + bus);
}

int32_t descriptor_of(uint32_t bus)
{
    return static_cast<int32_t>(kFirstDescriptor + bus % kBuses);
}

void forget_platform()
{
    platform = {};
    tpidMap = 0;
    mapFlag = 0;
    pid = 0;
}

} // namespace fuzz

using namespace fuzz;

#define FORMAT_LINE()                                                                              \
    va_list arguments;                                                                             \
    va_start(arguments, format);                                                                   \
    format_line(format, arguments);                                                                \
    va_end(arguments)

// A release or a pause that succeeds may leave any errno behind.
extern "C" {

void IDBG_LINUXAPP_DbgOut(uint32_t, const char *format, ...)
{
    FORMAT_LINE();
}
void IDBG_LINUXAPP_Runtime_DbgOut(uint32_t, const char *format, ...)
{
    FORMAT_LINE();
}
void IDBG_LINUXAPP_AuditOut(uint32_t, const char *format, ...)
{
    FORMAT_LINE();
}
void sspFailedStat(const char *, uint32_t) {}
void _ssp_error(uint32_t, const char *, uint32_t, const char *, const char *) {}
void _ssp_info(uint32_t, const char *, uint32_t, const char *, const char *format, ...)
{
    FORMAT_LINE();
}
int qel_printf_s(const char *format, ...)
{
    FORMAT_LINE();
    errno = EDOM;
    return 0;
}

int32_t OAL_SemCreate(uint32_t key)
{
    if (key != kEepromKey && (key < kFirstKey || key >= kFirstKey + kBuses))
        broken("a semaphore that is none of the library's");
    const int failure = outcome();
    return failure != 0 ? failure : semaphore_of(key == kEepromKey ? kBuses : key - kFirstKey);
}
int32_t OAL_SemLockBySemId(int32_t id, uint32_t)
{
    if (id < semaphore_of(0) || id > semaphore_of(kBuses))
        broken("a semaphore is waited for that was not created");
    const uint32_t bit = bit_of_semaphore(id);
    if ((platform.semaphores & bit) != 0)
        broken("a semaphore is waited for by its holder");
    const int failure = outcome();
    platform.semaphores |= failure == 0 ? bit : 0;
    return failure;
}
int32_t OAL_SemUnLockBySemId(int32_t id, uint32_t)
{
    if (id < semaphore_of(0) || id > semaphore_of(kBuses))
        return failed(EINVAL);
    const uint32_t bit = bit_of_semaphore(id);
    // The EEPROM's is given back even when it could not be taken.
    if (platform.own_releases && bit != kEepromBit && (platform.semaphores & bit) == 0)
        broken("a semaphore is released that is not held");
    platform.semaphores &= ~bit;
    errno = EDOM;
    return outcome();
}
int file_lock_write(int fd)
{
    if (platform.own_releases && (platform.semaphores & bit_of_descriptor(fd)) == 0)
        broken("a file lock is taken before the semaphore");
    const int failure = outcome();
    platform.file_locks |= failure == 0 ? bit_of_descriptor(fd) : 0;
    return failure;
}
int file_unlock(int fd)
{
    if (platform.own_releases && (platform.file_locks & bit_of_descriptor(fd)) == 0)
        broken("a file lock is released that is not held");
    platform.file_locks &= ~bit_of_descriptor(fd);
    errno = EDOM;
    return outcome();
}
int sigwrap_open(const char *path, int, ...)
{
    unsigned bus = 0;
    if (sscanf(path, "/dev/i2c-%u", &bus) != 1 && strcmp(path, "/dev/i2c--1") != 0)
        broken("a file is opened that is no bus");
    const int failure = outcome();
    if (failure != 0)
        return failure;
    return static_cast<int>(next() < 250 ? kFirstDescriptor + bus % kBuses
                                         : kHighDescriptors + bus % kBuses);
}
int sigwrap_select(int nfds, fd_set *readable, fd_set *, fd_set *, struct timeval *)
{
    if (nfds < 1 || nfds > FD_SETSIZE || !FD_ISSET(nfds - 1, readable))
        broken("a wait for no descriptor");
    const int failure = outcome();
    return failure != 0 ? failure : next() < 240 ? 1 : 0;
}
void select_sleep(uint32_t, uint32_t)
{
    errno = EDOM;
}
int mmap_read32(uint32_t, uint32_t *value)
{
    *value = next() * 0x01010101U;
    return outcome();
}
int i2c_mctp_read_on_fd(int, uint8_t *buffer)
{
    const int failure = outcome();
    if (failure != 0 || buffer == nullptr)
        return failure != 0 ? failure : failed(EFAULT);
    const uint8_t count = next();
    memset(buffer, next(), count);
    return count == 255 ? 256 : count;
}

int qel_memset_s(void *dest, size_t dest_size, int value, size_t count)
{
    if (dest == nullptr || count > dest_size)
        broken("qel_memset_s is misused");
    memset(dest, value, count);
    return 0;
}
int qel_memcpy_s(void *dest, size_t dest_size, const void *source, size_t count)
{
    if (dest == nullptr || source == nullptr || count > dest_size)
        broken("qel_memcpy_s is misused");
    memcpy(dest, source, count);
    return 0;
}
int qel_snprintf_s(char *dest, size_t dest_size, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(dest, dest_size, format, arguments);
    va_end(arguments);
    return static_cast<size_t>(length) < dest_size ? length : -1;
}
const char *qel_strerror_s(int)
{
    errno = EDOM;
    return "error";
}

int __real_close(int fd);
void *__real_malloc(size_t size);
void __real_free(void *block);
unsigned __real_sleep(unsigned seconds);

int __wrap_ioctl(int fd, unsigned long code, ...)
{
    va_list arguments;
    va_start(arguments, code);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (static_cast<uint32_t>(fd) < kFirstDescriptor)
        return failed(ENOTTY);
    check_bus(fd);
    if (code == I2C_RDWR)
        return transfer(*static_cast<i2c_rdwr_ioctl_data *>(argument));
    if (code == I2C_SMBUS)
        return smbus(*static_cast<i2c_smbus_ioctl_data *>(argument));
    return outcome() != 0 ? -1 : 0;
}
int __wrap_open64(const char *path, int, ...)
{
    if (strcmp(path, "/dev/mem") != 0)
        return failed(EMFILE);
    return outcome() != 0 ? -1 : kMemoryDescriptor;
}
int __wrap_close(int fd)
{
    return fd == kMemoryDescriptor ? 0 : __real_close(fd);
}
void *__wrap_mmap64(void *, size_t, int, int, int, off64_t)
{
    return outcome() != 0 ? MAP_FAILED : owner_table;
}
void *__wrap_malloc(size_t size)
{
    if (platform.replies == nullptr)
        return __real_malloc(size);
    if (size > kLargestBlock || (!platform.memory_lasts && next() >= 250)) {
        errno = ENOMEM;
        return nullptr;
    }
    platform.blocks++;
    return __real_malloc(size);
}
void __wrap_free(void *block)
{
    platform.blocks -= platform.replies != nullptr && block != nullptr ? 1 : 0;
    __real_free(block);
}
unsigned __wrap_sleep(unsigned seconds)
{
    if (platform.replies == nullptr)
        return __real_sleep(seconds);
    errno = EDOM;
    return 0;
}
}
