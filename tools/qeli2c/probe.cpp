// Probing of one segment under one hold of its bus.
#include "probe.h"

#include "interrupt.h"
#include "number.h"
#include "transfer.h"

#include <cerrno>

namespace tool
{

namespace
{

constexpr int32_t kPathNotOpened = -5; // of ei2c_smbus_select_switch()

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

// A near switch that does not answer leaves the upstream switch open.
void close_upstream(const Segment &segment)
{
    const ei2c_client upstream = to_client({segment.bus, {}, segment.hops.front().address});
    uint8_t closed = 0;
    i2c_msg message{upstream.addr, 0, 1, &closed};
    ei2c_rdwr_xfer(&upstream, &message, 1);
}

std::string hold_in_words(const Segment &segment, int32_t result, int error)
{
    if (result == QELI2C_NO_DEVICE_FILE)
        return cause_in_words(segment.bus, result, error);
    if (result == kPathNotOpened)
        return "the path could not be opened: " + cause_in_words(segment.bus, result, error);
    return "the bus could not be taken: " + cause_in_words(segment.bus, result, error);
}

} // namespace

void probe(Segment &segment, const Addresses &in_front, ProbeWith method)
{
    const ei2c_client client = to_client({segment.bus, segment.hops, kFirstAddress});
    int32_t fd = -1;
    int32_t semaphore = -1;
    errno = 0;
    const int32_t held = ei2c_smbus_select_switch(&client, &fd, &semaphore);
    if (held < 0) {
        segment.failure = hold_in_words(segment, held, errno);
        if (held == kPathNotOpened && segment.hops.size() == kMostSwitches)
            close_upstream(segment);
        return;
    }
    ui2c_adapter *adapter =
        ui2c_to_client(client.bus, client.addr, client.swi_addr, client.swi_chnl)->adapter;
    for (uint16_t address = kFirstAddress; address <= kLastAddress && !interrupted(); address++) {
        if (in_front.test(address)) {
            segment.found[address] = Found::in_front;
            continue;
        }
        errno = 0;
        const int32_t result = probe_address(adapter, address, method);
        if (!judge(segment, address, result, errno))
            break;
    }
    if (ei2c_smbus_deselect_switch(&client, fd, semaphore) < 0 && segment.failure.empty())
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
