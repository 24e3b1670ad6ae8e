// A bus held, with the path to a bridge open, from one call of the caller to another.
#include "bus/cancellation.h"
#include "bus/device_path.h"
#include "bus/lock_order.h"
#include "bus/report.h"
#include "qeli2c.h"

namespace
{

constexpr char kLogTag[] = "libi2c_qelifc";
constexpr int kAttempts = 4;

// One attempt to open the path; true when it is open.
bool select_path(const char *function, const ei2c_client &eclient, const DevicePath &path)
{
    int32_t ret = 0;
    if (path.upstream != nullptr)
        ret = ui2c_swi_select(path.upstream, eclient.swi_chnl >> 16);
    if (ret >= 0)
        ret = ui2c_swi_select(path.near, eclient.swi_chnl & 0xFFFF);
    if (ret < 0)
        QEL_ERROR(130, "RB: [%s] swi_select(%u,%x,%u) = %d\n", function, eclient.bus,
                  eclient.swi_addr, eclient.swi_chnl, ret);
    return ret >= 0;
}

// One attempt to close it; the result of the last switch written.
int32_t deselect_path(const char *function, const ei2c_client &eclient, const DevicePath &path)
{
    int32_t ret = ui2c_swi_deselect(path.near, eclient.swi_chnl & 0xFFFF);
    if (ret >= 0 && path.upstream != nullptr)
        ret = ui2c_swi_deselect(path.upstream, eclient.swi_chnl >> 16);
    if (ret < 0)
        QEL_ERROR(130, "RB: [%s] swi_deselect(%u,%x,%u) = %d\n", function, eclient.bus,
                  eclient.swi_addr, eclient.swi_chnl, ret);
    return ret;
}

void release(const char *function, const ei2c_client &eclient, int32_t fd, int32_t semid)
{
    (void)surrender_i2c_access(fd);
    const int32_t ret = ipc_unlock_adapter(semid);
    if (ret < 0)
        QEL_ERROR(130, "RB: [%s] unlock_adapter(%u) = %d\n", function, eclient.bus, ret);
}

} // namespace

int32_t lockAndSelectBridge_Ridgeback(const ei2c_client *eclient, int32_t *psdwSemId, int32_t *pfd)
{
    const char *const self = "lockAndSelectBridge_Ridgeback";
    if (eclient == nullptr || psdwSemId == nullptr || pfd == nullptr) {
        QEL_ERROR(130, "RB: [%s] eclient or psdwSemId or pfd is NULL\n", self);
        return -1;
    }
    const CancellationPutOff put_off;
    DevicePath path;
    if (!find_device(*eclient, path)) {
        QEL_ERROR(130, "RB: [%s] _uc is NULL\n", self);
        return -1;
    }
    *pfd = ui2c_adapter_fd(path.client->adapter);
    if (*pfd < 0) {
        QEL_ERROR(130, "RB: [%s] *pfd = %d\n", self, *pfd);
        return -1;
    }
    *psdwSemId = ipc_lock_adapter(path.client->adapter);
    if (*psdwSemId < 0) {
        QEL_ERROR(130, "RB: [%s] lock_adapter(%u) failed\n", self, eclient->bus);
        return -1;
    }
    if (exclusive_file_lock(*pfd) < 0) {
        QEL_ERROR(130, "RB: [%s] Cannot obtain exclusive lock on i2c device file", self);
        release(self, *eclient, *pfd, *psdwSemId);
        return -1;
    }
    note_lock(eclient->bus, Lock::file);
    // The caller holds the bus even when the path could not be opened.
    for (int attempt = 0; path.near != nullptr && attempt < kAttempts; ++attempt) {
        if (select_path(self, *eclient, path))
            break;
    }
    return 0;
}

int32_t unlockAndDeselectBridge_Ridgeback(const ei2c_client *eclient, int32_t *psdwSemId,
                                          int32_t *pfd)
{
    const char *const self = "unlockAndDeselectBridge_Ridgeback";
    if (eclient == nullptr || psdwSemId == nullptr || pfd == nullptr) {
        QEL_ERROR(130, "RB: [%s] eclient or psdwSemId or pfd is NULL\n", self);
        return -1;
    }
    const CancellationPutOff put_off;
    DevicePath path;
    if (!find_device(*eclient, path)) {
        release(self, *eclient, *pfd, *psdwSemId);
        QEL_ERROR(130, "RB: [%s] _uc is NULL\n", self);
        return -1;
    }
    int32_t ret = -1;
    for (int attempt = 0; path.near != nullptr && attempt < kAttempts; ++attempt)
        ret = deselect_path(self, *eclient, path);
    if (ret < 0)
        QEL_ERROR(130, "RB: [%s] bus=%u, addr=%x, swiaddr=%x, swichnl=%u, ret=%d\n", self,
                  eclient->bus, eclient->addr, eclient->swi_addr, eclient->swi_chnl, ret);
    release(self, *eclient, *pfd, *psdwSemId);
    return 0;
}
