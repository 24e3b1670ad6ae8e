// Taking and releasing a bus, the retry loop that every locked transfer runs in, and the I2C_RDWR
// transfers.
#include "bus/lock_order.h"
#include "bus/ui2c_ioctls/core.h"

namespace
{

void report_no_descriptor(TakeLines lines, int32_t fd)
{
    if (lines == TakeLines::hold || lines == TakeLines::hold_with_errno_text)
        QEL_RUNTIME("fd = %d, errno = %d \n", fd, errno);
    else
        QEL_RUNTIME_ERRNO("fd = %d, errno = %d, %s\n", fd);
}

void report_no_semaphore(TakeLines lines, uint32_t bus)
{
    if (lines == TakeLines::hold)
        QEL_RUNTIME("lock_adapter(%u) failed, errno = %d\n", bus, errno);
    else
        QEL_RUNTIME_ERRNO("lock_adapter(%u) failed, errno = %d, %s\n", bus);
}

void report_no_file_lock(TakeLines lines)
{
    if (lines == TakeLines::transfer)
        QEL_ERROR_TEXT(132, "Cannot obtain exclusive lock on i2c device file");
    else if (lines == TakeLines::transfer_lock_at_runtime)
        QEL_RUNTIME_TEXT("Cannot obtain exclusive lock on i2c device file");
    else
        QEL_RUNTIME_TEXT("Cannot obtain shared lock on i2c device file");
}

int32_t release_semaphore(uint32_t bus, int32_t semid)
{
    const int32_t ret = ipc_unlock_adapter(semid);
    if (ret < 0)
        QEL_ERROR_ERRNO(132, "unlock_adapter(%u) = %d, errno = %d, %s\n", bus, ret);
    return ret;
}

int32_t rdwr(const DevicePath &path, i2c_msg *messages, uint32_t count)
{
    return ui2c_rdwr_xfer(path.client->adapter, path.client->addr, messages,
                          static_cast<int32_t>(count));
}

struct Tries {
    int32_t ret = 0;   // of the latest switch operation
    int32_t xfer = -1; // of the latest transfer
    bool transferred = false;
    int error = 0; // errno of what gave the result
};

bool try_once(const ei2c_client &eclient, const DevicePath &path, const Transfer &transfer,
              Tries &tries)
{
    tries.ret = open_path(eclient, path, ErrnoForm::number_and_text);
    if (tries.ret < 0) {
        if (!tries.transferred)
            tries.error = errno;
        return false;
    }
    tries.xfer = transfer_once(eclient, path, transfer);
    tries.transferred = true;
    tries.error = errno;
    tries.ret = close_path(eclient, path);
    return tries.ret >= 0 && tries.xfer >= 0;
}

} // namespace

int32_t take_bus(const ei2c_client &eclient, TakeLines lines, HeldBus &held)
{
    if (!find_device(eclient, held.path))
        return take_no_record;
    ui2c_adapter *adapter = held.path.client->adapter;
    held.fd = ui2c_adapter_fd(adapter);
    if (held.fd < 0) {
        report_no_descriptor(lines, held.fd);
        return QELI2C_NO_DEVICE_FILE;
    }
    held.semid = ipc_lock_adapter(adapter);
    if (held.semid < 0) {
        report_no_semaphore(lines, eclient.bus);
        return take_no_semaphore;
    }
    note_lock(eclient.bus, Lock::owner);
    (void)getPidOfI2CAccess(adapter);
    if (exclusive_file_lock(held.fd) < 0) {
        const int error = errno;
        report_no_file_lock(lines);
        const int32_t released = release_semaphore(eclient.bus, held.semid);
        errno = error;
        return released < 0 ? take_not_released : take_no_file_lock;
    }
    note_lock(eclient.bus, Lock::file);
    return take_held;
}

int32_t release_bus(const ei2c_client &eclient, int32_t fd, int32_t semid)
{
    note_unlock(eclient.bus, Lock::owner);
    (void)surrender_i2c_access(fd);
    return release_semaphore(eclient.bus, semid);
}

int32_t transfer_once(const ei2c_client &eclient, const DevicePath &path, const Transfer &transfer)
{
    int32_t xfer = -1;
    if (transfer.kind == Transfer::Kind::smbus) {
        const auto &smbus = transfer.smbus;
        xfer = ui2c_smbus_xfer(path.client->adapter, path.client->addr, eclient.flags,
                               static_cast<char>(smbus.read_write),
                               static_cast<uint8_t>(smbus.command),
                               static_cast<int32_t>(smbus.size), smbus.data);
        if (xfer < 0)
            QEL_RUNTIME_ERRNO("ui2c_smbus_xfer(%u,%x) = %d, errno = %d, %s\n", eclient.bus,
                              eclient.addr, xfer);
        return xfer;
    }
    xfer = rdwr(path, transfer.sets[0].messages, transfer.sets[0].count);
    if (xfer >= 0 && transfer.kind == Transfer::Kind::rdwr_pair)
        xfer = rdwr(path, transfer.sets[1].messages, transfer.sets[1].count);
    if (xfer < 0)
        QEL_RUNTIME_ERRNO("ui2c_rdwr_xfer(%u,%x) = %d, errno = %d, %s\n", eclient.bus, eclient.addr,
                          xfer);
    return xfer;
}

int32_t transfer_with_retries(const ei2c_client &eclient, const DevicePath &path,
                              const Transfer &transfer)
{
    Tries tries;
    int32_t failed = 0;
    while (!try_once(eclient, path, transfer, tries)) {
        if (++failed == kTryLimit)
            break;
    }
    if (failed >= kTryLimit - 1)
        QEL_RUNTIME_ERRNO("bus=%u, addr=%x, swiaddr=%x, swichnl=%u, ret=%d, xfer=%d, tries=%d, "
                          "retries=%d, errno=%d, %s\n",
                          eclient.bus, eclient.addr, eclient.swi_addr, eclient.swi_chnl, tries.ret,
                          tries.xfer, failed, kTryLimit - 1);
    if (tries.xfer < 0)
        errno = tries.error;
    return tries.xfer;
}

int32_t locked_transfer(const ei2c_client &eclient, TakeLines lines, const Transfer &transfer)
{
    HeldBus held;
    const int32_t taken = take_bus(eclient, lines, held);
    if (taken < 0)
        return taken == QELI2C_NO_DEVICE_FILE ? taken : -1;
    const int32_t xfer = transfer_with_retries(eclient, held.path, transfer);
    const int error = errno;
    (void)release_bus(eclient, held.fd, held.semid);
    errno = error;
    return xfer;
}

int32_t ei2c_rdwr_xfer(const ei2c_client *eclient, i2c_msg *msgs, uint32_t num)
{
    QEL_REQUIRE(eclient, -1);
    QEL_REQUIRE(msgs, -1);
    Transfer transfer = {Transfer::Kind::rdwr, {{msgs, num}, {}}, {}};
    return locked_transfer(*eclient, TakeLines::transfer_lock_at_runtime, transfer);
}

int32_t ei2c_rdwr_mxfer(const ei2c_client *eclient, i2c_msg **msgs, const uint32_t *num)
{
    QEL_REQUIRE(eclient, -1);
    QEL_REQUIRE(num, -1);
    QEL_REQUIRE(msgs, -1);
    Transfer transfer = {Transfer::Kind::rdwr_pair, {{msgs[0], num[0]}, {msgs[1], num[1]}}, {}};
    return locked_transfer(*eclient, TakeLines::transfer, transfer);
}

int32_t ei2c_rdwr_xfer_without_retry(const ei2c_client *eclient, i2c_msg *msgs, uint32_t num)
{
    QEL_REQUIRE(eclient, -1);
    QEL_REQUIRE(msgs, -1);
    HeldBus held;
    const int32_t taken = take_bus(*eclient, TakeLines::transfer, held);
    if (taken < 0)
        return taken == QELI2C_NO_DEVICE_FILE ? taken : -1;
    int32_t xfer = -1;
    const bool open = open_path(*eclient, held.path, ErrnoForm::number_and_text) >= 0;
    if (open)
        xfer = rdwr(held.path, msgs, num);
    const int error = errno;
    if (open)
        (void)close_path(*eclient, held.path);
    (void)release_bus(*eclient, held.fd, held.semid);
    errno = error;
    return xfer;
}
