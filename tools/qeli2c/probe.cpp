// Probing of one segment under one hold of its bus.
#include "probe.h"

#include "hold.h"
#include "interrupt.h"
#include "number.h"
#include "transfer.h"

#include <cerrno>

namespace tool
{

namespace
{

bool probed_by_reading(uint16_t address, ProbeWith method)
{
    return method == ProbeWith::read || (address >= 0x30 && address <= 0x37) ||
           (address >= 0x50 && address <= 0x5f);
}

int32_t probe_address(ui2c_adapter *adapter, uint16_t address, ProbeWith method)
{
    uint8_t area[QELI2C_SMBUS_AREA] = {};
    if (probed_by_reading(address, method))
        return ui2c_smbus_xfer(adapter, address, 0, I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE, area);
    return ui2c_smbus_xfer(adapter, address, 0, I2C_SMBUS_WRITE, 0, I2C_SMBUS_QUICK, nullptr);
}

// Returns false when probing on makes no sense.
bool judge(Segment &segment, uint16_t address, int32_t result, int error)
{
    if (result >= 0)
        segment.found[address] = Found::device;
    else if (result == QELI2C_NO_DEVICE_FILE || error == ETIMEDOUT || error == ENODEV)
        segment.failure = hex(address, 2) + ": " + cause_in_words(segment.bus, result, error);
    else if (error == EBUSY)
        segment.found[address] = Found::busy;
    else if (error == EOPNOTSUPP)
        segment.failure = "the bus adapter cannot do quick writes; --read probes the rest";
    else
        segment.found[address] = Found::nothing;
    return segment.failure.empty() || error == EOPNOTSUPP;
}

} // namespace

void probe(Segment &segment, const Addresses &in_front, ProbeWith method)
{
    Hold hold({segment.bus, segment.hops, kFirstAddress});
    segment.failure = hold.failure();
    if (!segment.failure.empty())
        return;
    for (uint16_t address = kFirstAddress; address <= kLastAddress && !interrupted(); address++) {
        if (in_front.test(address)) {
            segment.found[address] = Found::in_front;
            continue;
        }
        errno = 0;
        const int32_t result = probe_address(hold.adapter(), address, method);
        if (!judge(segment, address, result, errno))
            break;
    }
    if (!hold.release() && segment.failure.empty())
        segment.failure = "the bus could not be released";
}

Addresses answering(const Segment &segment)
{
    Addresses addresses;
    for (size_t address = 0; address < segment.found.size(); address++)
        addresses.set(address, segment.found[address] == Found::device ||
                                   segment.found[address] == Found::busy);
    return addresses;
}

} // namespace tool
