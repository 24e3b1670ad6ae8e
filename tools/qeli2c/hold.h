// A bus held with the path to a device open, for several transfers in a row.
#ifndef QELI2C_HOLD_H
#define QELI2C_HOLD_H

#include "board_file.h"
#include "transfer.h"

#include <string>

namespace tool
{

class Hold
{
public:
    enum class With { path, bus_only };

    // Takes the bus and opens the path in front of the device. Whether that went well is told by
    // failure().
    explicit Hold(const DevicePath &path, With with = With::path);
    // The same, and a Failure that begins with `doing` when it does not go well.
    Hold(const Target &target, const std::string &doing);
    ~Hold();
    Hold(const Hold &) = delete;
    Hold &operator=(const Hold &) = delete;

    // In words; empty while the bus is held.
    const std::string &failure() const { return failure_; }
    ui2c_adapter *adapter() const { return adapter_; }
    // Before the end of the scope, to see whether that goes well.
    bool release();

private:
    ei2c_client client_;
    With with_;
    int32_t fd_ = -1;
    int32_t semaphore_ = -1;
    ui2c_adapter *adapter_ = nullptr;
    std::string failure_;
};

// One combined transfer, or SMBus transaction, with the device under the hold; up to four tries.
// Negative results with errno set.
int32_t transfer_held(const Hold &hold, uint16_t address, std::vector<Message> &messages);
int32_t smbus_held(const Hold &hold, uint16_t address, uint16_t flags, char read_write,
                   uint8_t command, int32_t size, uint8_t *area);

} // namespace tool

#endif
