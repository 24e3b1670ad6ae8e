// Opening and closing of the switches in front of a device: upstream first when opening, near first
// when closing.
#include "bus/lock_order.h"
#include "bus/ui2c_ioctls/core.h"

namespace
{

void report(const char *what, const ei2c_client &eclient, int32_t ret, ErrnoForm form)
{
    if (form == ErrnoForm::number_and_text)
        QEL_RUNTIME_ERRNO("%s(%u,%x,%u) = %d, errno = %d, %s\n", what, eclient.bus,
                          eclient.swi_addr, eclient.swi_chnl, ret);
    else
        QEL_RUNTIME("%s(%u,%x,%u) = %d, errno = %d \n", what, eclient.bus, eclient.swi_addr,
                    eclient.swi_chnl, ret, errno);
}

int32_t open_switch(const ei2c_client &eclient, ui2c_switch *swi, uint32_t channel, ErrnoForm form)
{
    const int32_t ret = ui2c_swi_select(swi, channel);
    if (ret < 0)
        report("swi_select", eclient, ret, form);
    return ret;
}

} // namespace

int32_t close_switch(const ei2c_client &eclient, ui2c_switch *swi, uint32_t channel, ErrnoForm form)
{
    const int32_t ret = ui2c_swi_deselect(swi, channel);
    if (ret < 0)
        report("swi_deselect", eclient, ret, form);
    return ret;
}

int32_t open_path(const ei2c_client &eclient, const DevicePath &path, ErrnoForm form)
{
    note_lock(eclient.bus, Lock::path);
    if (path.upstream != nullptr) {
        const int32_t ret = open_switch(eclient, path.upstream, eclient.swi_chnl >> 16, form);
        if (ret < 0)
            return ret;
    }
    return path.near == nullptr ? 0
                                : open_switch(eclient, path.near, eclient.swi_chnl & 0xFFFF, form);
}

int32_t close_path(const ei2c_client &eclient, const DevicePath &path)
{
    int32_t ret = 0;
    if (path.near != nullptr)
        ret =
            close_switch(eclient, path.near, eclient.swi_chnl & 0xFFFF, ErrnoForm::number_and_text);
    if (path.upstream != nullptr)
        ret = close_switch(eclient, path.upstream, eclient.swi_chnl >> 16,
                           ErrnoForm::number_and_text);
    note_unlock(eclient.bus, Lock::file);
    return ret;
}

int32_t SelectSwitch(const ei2c_client *eclient)
{
    QEL_REQUIRE(eclient, -1);
    DevicePath path;
    if (!find_device(*eclient, path))
        return -1;
    const CancellationPutOff put_off;
    return open_path(*eclient, path, ErrnoForm::number_and_text) < 0 ? -1 : 0;
}

int32_t DeselectSwitch(const ei2c_client *eclient)
{
    QEL_REQUIRE(eclient, -1);
    DevicePath path;
    const CancellationPutOff put_off;
    return find_device(*eclient, path) ? close_path(*eclient, path) : -1;
}

int32_t readSwitchStatus(const ei2c_client *eclient, uint8_t *val)
{
    QEL_REQUIRE(eclient, -1);
    QEL_REQUIRE(val, -1);
    DevicePath path;
    if (!find_device(*eclient, path)) {
        QEL_ERROR_TEXT(132, "Pointer _uc is NULL\n");
        return -1;
    }
    if (path.near == nullptr) {
        QEL_ERROR_TEXT(132, "Pointer uc_swi is NULL\n");
        return -1;
    }
    const int32_t ret = ui2c_swi_status(path.near, val);
    if (ret < 0)
        QEL_RUNTIME_ERRNO("ui2c_swi_status(%u,%x,%u) = %d, errno = %d, %s\n", eclient->bus,
                          eclient->swi_addr, eclient->swi_chnl, ret);
    return ret;
}
