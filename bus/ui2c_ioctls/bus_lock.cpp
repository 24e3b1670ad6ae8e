// The bus's device file, its semaphore, the lock on its device file, and the record of who took it.
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "bus/cancellation.h"
#include "bus/lock_order.h"
#include "bus/process_locks.h"
#include "bus/ui2c_ioctls/core.h"

// The C++ compiler always asks for the GNU strerror_r; this is the C library's name of the POSIX
// one.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's to use
extern "C" int __xpg_strerror_r(int errnum, char *text, size_t size);

uintptr_t tpidMap = 0;
uint32_t mapFlag = 0;
uint32_t pid = 0;
uint32_t g_dwEi2cLog = 0;

namespace
{

constexpr uint32_t kLockableBuses = 16;
constexpr uint32_t kFirstSemaphoreKey = 0x3060;
constexpr uint32_t kWaitWithoutLimit = 65535;
constexpr off_t kOwnerTableAddress = 0xB8210000;
static_assert(sizeof(off_t) == 8, "the owner table lies above the reach of a 32-bit offset");
constexpr size_t kOwnerTableSize = kLockableBuses * sizeof(uint32_t);

int32_t open_device_file(uint32_t bus)
{
    char path[16] = {};
    int32_t fd = -1;
    // A number cut short would name another bus.
    if (qel_snprintf_s(path, sizeof(path), "/dev/i2c-%d", static_cast<int>(bus)) >= 0)
        fd = sigwrap_open(path, O_RDWR);
    else
        errno = ENODEV;
    if (fd < 0)
        QEL_ERROR_ERRNO(132, "open %s failed, fd = %d, errno = %d, %s\n", path, fd);
    return fd;
}

// Lines of the log and failed checks tell this name.
int32_t _adapter_ipcsemid(ui2c_adapter *adapter) // NOLINT(bugprone-reserved-identifier)
{
    QEL_REQUIRE(adapter, -1);
    const uint32_t bus = adapter->bus;
    ui2c_adapter_data *data = bus < kLockableBuses ? __adapter_data(adapter) : nullptr;
    const int32_t semid = data == nullptr ? -1 : create_once(data->semid, [bus] {
        return OAL_SemCreate(bus + kFirstSemaphoreKey);
    });
    if (semid < 0)
        QEL_RUNTIME("line: %d, func: %s(), ipc sem_creat for bus %u failed\n", __LINE__,
                    "_adapter_ipcsemid", bus);
    return semid;
}

[[gnu::noinline]] ui2c_adapter_data *create_adapter_data(ui2c_adapter &adapter)
{
    if (!lock_first_use())
        return nullptr;
    ui2c_adapter_data *data = adapter.data;
    if (data == nullptr) {
        data = static_cast<ui2c_adapter_data *>(malloc(sizeof(*data)));
        if (data != nullptr) {
            (void)qel_memset_s(data, sizeof(*data), 0, sizeof(*data));
            data->fd = -1;
            data->semid = -1;
            __atomic_store_n(&adapter.data, data, __ATOMIC_RELEASE);
        }
    }
    unlock_first_use();
    return data;
}

// Under the first-use mutex, with the table not mapped yet.
void map_owner_table()
{
    const int fd = open("/dev/mem", O_RDWR);
    if (fd < 0) {
        QEL_ERROR(132, "[%s] Failed to get device fd.\n", kLogTag);
        return;
    }
    void *table =
        mmap(nullptr, kOwnerTableSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, kOwnerTableAddress);
    if (table == MAP_FAILED) {
        QEL_ERROR(132, "[%s] Failed to get mem vir addr.\n", kLogTag);
        (void)close(fd);
        return;
    }
    (void)close(fd);
    tpidMap = reinterpret_cast<uintptr_t>(table);
    pid = static_cast<uint32_t>(getpid());
    __atomic_store_n(&mapFlag, 1U, __ATOMIC_RELEASE);
}

bool owner_table_mapped()
{
    return __atomic_load_n(&mapFlag, __ATOMIC_ACQUIRE) != 0;
}

[[gnu::noinline]] bool map_owner_table_once()
{
    const CancellationPutOff put_off;
    if (!lock_first_use())
        return false;
    if (!owner_table_mapped())
        map_owner_table();
    unlock_first_use();
    return owner_table_mapped();
}

} // namespace

// Failed checks tell this name.
ui2c_adapter_data *__adapter_data(ui2c_adapter *adapter) // NOLINT(bugprone-reserved-identifier)
{
    QEL_REQUIRE(adapter, nullptr);
    ui2c_adapter_data *data = __atomic_load_n(&adapter->data, __ATOMIC_ACQUIRE);
    return data != nullptr ? data : create_adapter_data(*adapter);
}

int32_t ui2c_adapter_fd(ui2c_adapter *adapter)
{
    QEL_REQUIRE(adapter, -1);
    ui2c_adapter_data *data = __adapter_data(adapter);
    if (data == nullptr)
        return -1;
    return create_once(data->fd, [adapter] { return open_device_file(adapter->bus); });
}

int32_t ipc_lock_adapter(ui2c_adapter *adapter)
{
    const int32_t semid = _adapter_ipcsemid(adapter);
    if (semid < 0)
        return semid;
    if (OAL_SemLockBySemId(semid, kWaitWithoutLimit) == 0) {
        note_semaphore(adapter->bus, semid);
        return semid;
    }
    QEL_ERROR_ERRNO(132, "bus:%d OAL_SemLockBySemId failed: %d, %s\n",
                    static_cast<int>(adapter->bus));
    return -1;
}

int32_t ipc_unlock_adapter(int32_t semid)
{
    note_semaphore_release(semid);
    return OAL_SemUnLockBySemId(semid, kWaitWithoutLimit);
}

int32_t exclusive_file_lock(int32_t fd)
{
    if (file_lock_write(fd) >= 0)
        return 0;
    const int error = errno;
    char text[20] = {};
    (void)__xpg_strerror_r(error, text, sizeof(text));
    QEL_ERROR(132, "fd:%d Error getting exclusive lock: %s", fd, text);
    errno = error;
    return -1;
}

int32_t surrender_i2c_access(int32_t fd)
{
    return file_unlock(fd);
}

int32_t getPidOfI2CAccess(ui2c_adapter *adapter)
{
    if (!owner_table_mapped() && !map_owner_table_once())
        return -1;
    if (adapter->bus < kLockableBuses) {
        // A global of the interface holds the address as a number.
        auto *slots = reinterpret_cast<uint32_t *>(tpidMap); // NOLINT(performance-no-int-to-ptr)
        __atomic_store_n(slots + adapter->bus, pid, __ATOMIC_RELAXED);
    }
    return 0;
}
