// Combined transfers, and the words for what can go wrong with them.
#include "transfer.h"

#include "failure.h"
#include "number.h"

#include <cerrno>
#include <cstring>

namespace tool
{

namespace
{

std::string name_of(int error)
{
    const char *name = strerrorname_np(error);
    return name ? name : "errno " + std::to_string(error);
}

bool not_acknowledged(int error)
{
    return error == ENXIO || error == EREMOTEIO;
}

std::string device_file_in_words(uint32_t bus, int error)
{
    const std::string file = "/dev/i2c-" + std::to_string(bus);
    std::string text =
        file + " cannot be opened: " + std::strerror(error) + " (" + name_of(error) + ")";
    if (error == EACCES || error == EPERM)
        return text + "; run as root or as a member of the group that owns it";
    return text + "; is that the bus, is i2c-dev loaded?";
}

// A failed transfer does not tell a missing device from a missing switch in front of it: ask the
// switches.
std::string who_is_missing(const Target &target)
{
    DevicePath probe{target.path.bus, {}, 0};
    for (const Hop &hop : target.path.hops) {
        probe.address = hop.address;
        if (!acknowledges(probe))
            return "the switch " + to_string(probe) + " before it does not acknowledge";
        probe.hops.push_back(hop);
    }
    return "nothing acknowledges";
}

} // namespace

std::string cause_in_words(uint32_t bus, int32_t result, int error)
{
    if (result == QELI2C_NO_DEVICE_FILE)
        return device_file_in_words(bus, error);
    const std::string name = " (" + name_of(error) + ")";
    switch (error) {
    case ETIMEDOUT:
        return "the transfer timed out" + name +
               "; is a device holding the bus's clock or data low?";
    case EAGAIN:
        return "arbitration lost" + name + "; another master uses the bus: try again";
    case EBUSY:
        return "a kernel driver owns the address" + name +
               "; unbind it, or use plain messages ('qeli2c xfer')";
    case EBADMSG:
        return "wrong packet error code" + name + "; does the device support PEC?";
    case EPROTO:
        return "the device answered against the protocol" + name;
    case EOPNOTSUPP:
        return "the bus adapter cannot do this kind of transfer" + name;
    case EIO:
        return "the bus adapter reports an error" + name +
               "; is the device powered and out of reset?";
    default:
        return std::strerror(error) + name;
    }
}

void fail_transfer(const Target &target, const std::string &doing, int32_t result, int error)
{
    std::string cause;
    if (result != QELI2C_NO_DEVICE_FILE && not_acknowledged(error))
        cause = who_is_missing(target) + " (" + name_of(error) + "); try 'qeli2c scan " +
                std::to_string(target.path.bus) + "'";
    else
        cause = cause_in_words(target.path.bus, result, error);
    throw operation_failed(doing + " " + to_string(target) + ": " + cause);
}

std::vector<i2c_msg> raw_messages(uint16_t address, std::vector<Message> &messages)
{
    std::vector<i2c_msg> raw;
    for (Message &message : messages)
        raw.push_back(i2c_msg{address, static_cast<uint16_t>(message.read ? I2C_M_RD : 0),
                              static_cast<uint16_t>(message.bytes.size()), message.bytes.data()});
    return raw;
}

void transfer(const Target &target, std::vector<Message> &messages, const std::string &doing,
              Tries tries)
{
    const ei2c_client client = to_client(target.path);
    std::vector<i2c_msg> raw = raw_messages(client.addr, messages);
    const auto count = static_cast<uint32_t>(raw.size());
    errno = 0;
    const int32_t result = tries == Tries::one
                               ? ei2c_rdwr_xfer_without_retry(&client, raw.data(), count)
                               : ei2c_rdwr_xfer(&client, raw.data(), count);
    if (result < 0)
        fail_transfer(target, doing, result, errno);
    if (static_cast<uint32_t>(result) != count)
        throw operation_failed(doing + " " + to_string(target) + ": only " +
                               std::to_string(result) + " of " + std::to_string(count) +
                               " messages were done");
}

bool acknowledges(const DevicePath &path)
{
    const ei2c_client client = to_client(path);
    uint8_t byte = 0;
    i2c_msg message{client.addr, I2C_M_RD, 1, &byte};
    return ei2c_rdwr_xfer_without_retry(&client, &message, 1) == 1;
}

} // namespace tool
