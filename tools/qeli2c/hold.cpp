// A bus held across several transfers.
#include "hold.h"

#include "failure.h"

#include <cerrno>

namespace tool
{

namespace
{

constexpr int32_t kPathNotOpened = -5; // of ei2c_smbus_select_switch()
constexpr int kTries = 4;              // as the library's locked transfers have it

// A near switch that does not answer leaves the upstream switch open.
void close_upstream(const DevicePath &path)
{
    const ei2c_client upstream = to_client({path.bus, {}, path.hops.front().address});
    uint8_t closed = 0;
    i2c_msg message{upstream.addr, 0, 1, &closed};
    ei2c_rdwr_xfer(&upstream, &message, 1);
}

std::string in_words(uint32_t bus, int32_t result, int error)
{
    if (result == QELI2C_NO_DEVICE_FILE)
        return cause_in_words(bus, result, error);
    if (result == kPathNotOpened)
        return "the path could not be opened: " + cause_in_words(bus, result, error);
    return "the bus could not be taken: " + cause_in_words(bus, result, error);
}

template <typename Try>
int32_t several_tries(Try attempt)
{
    int32_t result = -1;
    for (int i = 0; i < kTries && result < 0; i++) {
        errno = 0;
        result = attempt();
    }
    return result;
}

} // namespace

Hold::Hold(const DevicePath &path, With with) : client_(to_client(path)), with_(with)
{
    errno = 0;
    const int32_t held = with == With::path ? ei2c_smbus_select_switch(&client_, &fd_, &semaphore_)
                                            : ei2c_smbus_lock_adapter(&client_, &fd_, &semaphore_);
    if (held < 0) {
        failure_ = in_words(path.bus, held, errno);
        if (held == kPathNotOpened && path.hops.size() == kMostSwitches)
            close_upstream(path);
        return;
    }
    const ui2c_client *const found =
        ui2c_to_client(client_.bus, client_.addr, client_.swi_addr, client_.swi_chnl);
    adapter_ = found ? found->adapter : nullptr; // transfers refuse a null one
}

Hold::Hold(const Target &target, const std::string &doing) : Hold(target.path)
{
    if (!failure_.empty())
        throw operation_failed(doing + " " + to_string(target) + ": " + failure_);
}

Hold::~Hold()
{
    release();
}

bool Hold::release()
{
    if (!adapter_)
        return true;
    adapter_ = nullptr;
    return (with_ == With::path ? ei2c_smbus_deselect_switch(&client_, fd_, semaphore_)
                                : ei2c_smbus_unlock_adapter(&client_, fd_, semaphore_)) >= 0;
}

int32_t transfer_held(const Hold &hold, uint16_t address, std::vector<Message> &messages)
{
    std::vector<i2c_msg> raw = raw_messages(address, messages);
    return several_tries([&] {
        return ui2c_rdwr_xfer(hold.adapter(), address, raw.data(),
                              static_cast<int32_t>(raw.size()));
    });
}

int32_t smbus_held(const Hold &hold, uint16_t address, uint16_t flags, char read_write,
                   uint8_t command, int32_t size, uint8_t *area)
{
    return several_tries([&] {
        return ui2c_smbus_xfer(hold.adapter(), address, flags, read_write, command, size, area);
    });
}

} // namespace tool
