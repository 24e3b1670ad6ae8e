// A bus held, with the path to a bridge open, from one call of the caller to another.
#include "bus/report.h"
#include "qeli2c.h"

namespace
{

constexpr char log_tag[] = "libi2c_qelifc";
constexpr int attempts = 4;

uint32_t near_channel(const ei2c_client &eclient)
{
    return eclient.swi_chnl & 0xFFFF;
}
uint32_t upstream_channel(const ei2c_client &eclient)
{
    return eclient.swi_chnl >> 16;
}

// One attempt to open the path; true when it is open.
bool select_path(const char *function, const ei2c_client &eclient, ui2c_switch *near,
                 ui2c_switch *upstream)
{
    int32_t ret = upstream == nullptr ? 0 : ui2c_swi_select(upstream, upstream_channel(eclient));
    if (ret >= 0)
        ret = ui2c_swi_select(near, near_channel(eclient));
    if (ret < 0)
        QEL_ERROR(130, "RB: [%s] swi_select(%u,%x,%u) = %d\n", function, eclient.bus,
                  eclient.swi_addr, eclient.swi_chnl, ret);
    return ret >= 0;
}

// One attempt to close it; the result of the last switch written.
int32_t deselect_path(const char *function, const ei2c_client &eclient, ui2c_switch *near,
                      ui2c_switch *upstream)
{
    int32_t ret = ui2c_swi_deselect(near, near_channel(eclient));
    if (ret >= 0 && upstream != nullptr)
        ret = ui2c_swi_deselect(upstream, upstream_channel(eclient));
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

ui2c_client *look_up(const ei2c_client &eclient)
{
    return ui2c_to_client(eclient.bus, eclient.addr, eclient.swi_addr, eclient.swi_chnl);
}

} // namespace

int32_t lockAndSelectBridge_Ridgeback(const ei2c_client *eclient, int32_t *psdwSemId, int32_t *pfd)
{
    const char *const self = "lockAndSelectBridge_Ridgeback";
    if (eclient == nullptr || psdwSemId == nullptr || pfd == nullptr) {
        QEL_ERROR(130, "RB: [%s] eclient or psdwSemId or pfd is NULL\n", self);
        return -1;
    }
    const ui2c_client *client = look_up(*eclient);
    if (client == nullptr) {
        QEL_ERROR(130, "RB: [%s] _uc is NULL\n", self);
        return -1;
    }
    *pfd = ui2c_adapter_fd(client->adapter);
    if (*pfd < 0) {
        QEL_ERROR(130, "RB: [%s] *pfd = %d\n", self, *pfd);
        return -1;
    }
    *psdwSemId = ipc_lock_adapter(client->adapter);
    if (*psdwSemId < 0) {
        QEL_ERROR(130, "RB: [%s] lock_adapter(%u) failed\n", self, eclient->bus);
        return -1;
    }
    if (exclusive_file_lock(*pfd) < 0) {
        QEL_ERROR(130, "RB: [%s] Cannot obtain exclusive lock on i2c device file", self);
        release(self, *eclient, *pfd, *psdwSemId);
        return -1;
    }
    // The caller holds the bus even when the path could not be opened.
    if (client->swi != nullptr) {
        ui2c_switch *upstream = __atomic_load_n(&client->swi->upstream, __ATOMIC_RELAXED);
        for (int attempt = 0; attempt < attempts; ++attempt) {
            if (select_path(self, *eclient, client->swi, upstream))
                break;
        }
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
    const ui2c_client *client = look_up(*eclient);
    if (client == nullptr) {
        release(self, *eclient, *pfd, *psdwSemId);
        QEL_ERROR(130, "RB: [%s] _uc is NULL\n", self);
        return -1;
    }
    int32_t ret = -1;
    if (client->swi != nullptr) {
        ui2c_switch *upstream = __atomic_load_n(&client->swi->upstream, __ATOMIC_RELAXED);
        for (int attempt = 0; attempt < attempts; ++attempt)
            ret = deselect_path(self, *eclient, client->swi, upstream);
    }
    if (ret < 0)
        QEL_ERROR(130, "RB: [%s] bus=%u, addr=%x, swiaddr=%x, swichnl=%u, ret=%d\n", self,
                  eclient->bus, eclient->addr, eclient->swi_addr, eclient->swi_chnl, ret);
    release(self, *eclient, *pfd, *psdwSemId);
    return 0;
}
