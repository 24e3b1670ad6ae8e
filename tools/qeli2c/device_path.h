// Where a device sits, upstream first: "4/0x70.5/0x71.3/0x50" is bus 4, through channel 5 of the
// switch at 0x70, channel 3 of the switch at 0x71, to the device at 0x50.
#ifndef QELI2C_DEVICE_PATH_H
#define QELI2C_DEVICE_PATH_H

#include "qeli2c.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tool
{

inline constexpr uint32_t kLastBus = 15;
inline constexpr uint16_t kFirstAddress = 0x08; // below and above lie the addresses I2C reserves
inline constexpr uint16_t kLastAddress = 0x77;
inline constexpr uint32_t kChannels = 8;
inline constexpr size_t kMostSwitches = 2; // what the access library can open in front of a device

struct Hop {
    uint16_t address; // of the switch
    uint32_t channel;
    bool operator==(const Hop &) const = default;
};

struct DevicePath {
    uint32_t bus = 0;
    std::vector<Hop> hops; // upstream first
    uint16_t address = 0;
    bool operator==(const DevicePath &) const = default;
};

// The path `text` stands for; a usage error in words for anything else.
DevicePath parse_device_path(std::string_view text);

// "4/0x70.5/0x71.3": a bus, or a channel behind its switches.
std::string segment_text(uint32_t bus, const std::vector<Hop> &hops);
std::string to_string(const DevicePath &path);

// The library's record of the device; at most MOST_SWITCHES hops.
ei2c_client to_client(const DevicePath &path);

} // namespace tool

#endif
