// Holds of a bus across several calls: the caller carries the descriptor and the semaphore id in
// between.
#include <initializer_list>

#include "bus/ui2c_ioctls/core.h"

namespace
{

constexpr uint32_t kHighestBus = 65534;

bool open_path_for_hold(const ei2c_client &eclient, const DevicePath &path, int32_t &ret)
{
    for (int32_t attempt = 0; attempt < kTryLimit; ++attempt) {
        ret = open_path(eclient, path, ErrnoForm::number);
        if (ret >= 0)
            return true;
    }
    return false;
}

bool close_path_of_hold(const ei2c_client &eclient, const DevicePath &path)
{
    for (ui2c_switch *swi : {path.near, path.upstream}) {
        if (swi != nullptr && close_switch(eclient, swi, 0, ErrnoForm::number) < 0)
            return false;
    }
    return true;
}

} // namespace

int32_t ei2c_smbus_lock_adapter(const ei2c_client *eclient, int32_t *pfd, int32_t *psdwSemId)
{
    QEL_REQUIRE(eclient, -1);
    QEL_REQUIRE(pfd, -1);
    QEL_REQUIRE(psdwSemId, -1);
    if (eclient->bus > kHighestBus)
        return -1;
    HeldBus held;
    const int32_t taken = take_bus(*eclient, TakeLines::hold, held);
    if (taken < 0)
        return taken;
    *pfd = held.fd;
    *psdwSemId = held.semid;
    QEL_RUNTIME_TEXT("ei2c_smbus_lock_adapter success. \n");
    return take_held;
}

int32_t ei2c_smbus_unlock_adapter(const ei2c_client *eclient, int32_t fd, int32_t sdwSemId)
{
    QEL_REQUIRE(eclient, -1);
    if (eclient->bus > kHighestBus)
        return -1;
    const CancellationPutOff put_off;
    const int32_t ret = release_bus(*eclient, fd, sdwSemId);
    if (ret >= 0)
        QEL_RUNTIME_TEXT("ei2c_smbus_unlock_adapter success. \n");
    return ret;
}

int32_t ei2c_smbus_select_switch(const ei2c_client *eclient, int32_t *pfd, int32_t *psdwSemId)
{
    QEL_REQUIRE(eclient, -1);
    QEL_REQUIRE(pfd, -1);
    QEL_REQUIRE(psdwSemId, -1);
    if (eclient->bus > kHighestBus)
        return -1;
    HeldBus held;
    const int32_t taken = take_bus(*eclient, TakeLines::hold_with_errno_text, held);
    if (taken < 0)
        return taken;
    int32_t ret = 0;
    if (!open_path_for_hold(*eclient, held.path, ret)) {
        const int error = errno;
        const int32_t released = release_bus(*eclient, held.fd, held.semid);
        errno = error;
        return released < 0 ? take_not_released : take_no_path;
    }
    *pfd = held.fd;
    *psdwSemId = held.semid;
    return ret;
}

int32_t ei2c_smbus_deselect_switch(const ei2c_client *eclient, int32_t fd, int32_t sdwSemId)
{
    QEL_REQUIRE(eclient, -1);
    if (eclient->bus > kHighestBus)
        return -1;
    const CancellationPutOff put_off;
    DevicePath path;
    const bool found = find_device(*eclient, path);
    if (found) {
        for (int32_t attempt = 0; attempt < kTryLimit; ++attempt) {
            if (close_path_of_hold(*eclient, path))
                break;
        }
    }
    const int32_t ret = release_bus(*eclient, fd, sdwSemId);
    return found ? ret : -1;
}

int32_t ei2c_smbus_xfer_without_lock(const ei2c_client *eclient, uint32_t read_write,
                                     uint32_t command, uint32_t size, uint8_t *data)
{
    QEL_REQUIRE(eclient, -1);
    DevicePath path;
    if (!find_device(*eclient, path))
        return -1;
    const CancellationPutOff put_off;
    const Transfer transfer = {Transfer::Kind::smbus, {}, {read_write, command, size, data}};
    return transfer_with_retries(*eclient, path, transfer);
}
