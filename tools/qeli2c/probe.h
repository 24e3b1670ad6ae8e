// Probing: which addresses of a bus, or of a channel behind switches, acknowledge.
#ifndef QELI2C_PROBE_H
#define QELI2C_PROBE_H

#include "device_path.h"

#include <array>
#include <bitset>
#include <string>
#include <vector>

namespace tool
{

using Addresses = std::bitset<128>;

enum class Found : uint8_t {
    not_probed, // reserved, or the adapter cannot do the probe, or the scan ended before
    nothing,    // not acknowledged
    device,
    busy,    // a kernel driver owns the address
    in_front // answers on the bus in front of the switch, and so is not behind this channel
};

// One bus, or one channel of a switch, and the channels behind the switches found on it.
struct Segment {
    uint32_t bus = 0;
    std::vector<Hop> hops;
    std::array<Found, 128> found{};
    std::string failure; // in words; empty when the whole range was probed
    std::vector<Segment> channels;
};

enum class ProbeWith {
    mixed, // read byte at 0x30-0x37 and 0x50-0x5f, where a quick write may corrupt an EEPROM; quick
           // write elsewhere
    read   // read byte everywhere, for adapters without quick write
};

// Probes the addresses FIRST_ADDRESS to LAST_ADDRESS but those `in_front`, under one hold of the
// bus and with the path opened once. Ends early when the user interrupts.
void probe(Segment &segment, const Addresses &in_front, ProbeWith method);

// What answers on the segment itself.
Addresses answering(const Segment &segment);

} // namespace tool

#endif
