// Checks between the devices of a description.
#include "simboard/description_check.h"

#include <cctype>
#include <cstdio>

#include "simboard/chip_kind.h"

namespace simboard
{

namespace
{

constexpr size_t kMaxDevices = 1024;
constexpr size_t kMaxDevicesPerBus = 128;

bool on_one_segment(const DeviceDescription &a, const DeviceDescription &b)
{
    return a.bus == b.bus && a.parent == b.parent && (a.parent < 0 || a.channel == b.channel);
}

// Whether `upstream` sits on a segment that is connected while `device` is reached: its own, or
// that of a switch in front of it.
bool is_connected(const BoardDescription &board, const DeviceDescription &device,
                  const DeviceDescription &upstream)
{
    const DeviceDescription *at = &device;
    while (!on_one_segment(*at, upstream)) {
        if (at->parent < 0) {
            return false;
        }
        at = &board.devices[static_cast<size_t>(at->parent)];
    }
    return true;
}

std::string address_text(uint16_t address)
{
    char text[8];
    std::snprintf(text, sizeof(text), "0x%02x", address);
    return text;
}

void check_against(const BoardDescription &board, const DeviceDescription &device,
                   const DeviceDescription &other, const DevicePlace &place,
                   std::vector<DescriptionError> &errors)
{
    const bool same_name = !device.name.empty() && device.name == other.name;
    const bool same_address =
        device.address != 0 && device.address == other.address && device.bus == other.bus;
    if (!same_name && !same_address) {
        return;
    }
    const std::string where = " (line " + std::to_string(other.line) + ")";
    if (same_name) {
        errors.push_back({place.name_line, place.path + ".name",
                          "\"" + device.name + "\" is already taken" + where});
    }
    if (!same_address) {
        return;
    }
    const std::string at = address_text(device.address);
    const std::string name = " \"" + other.name + "\"" + where;
    if (on_one_segment(device, other)) {
        errors.push_back({place.address_line, place.path + ".address",
                          at + " is already the address of" + name + " on this segment"});
    } else if (is_connected(board, device, other)) {
        errors.push_back({place.address_line, place.path + ".address",
                          at + " is also the address of" + name + ", upstream on the same path"});
    } else if (is_connected(board, other, device)) {
        errors.push_back({place.address_line, place.path + ".address",
                          at + " is also the address of" + name + ", downstream of this segment"});
    }
}

} // namespace

bool is_device_name(const std::string &name)
{
    if (name.empty() || name.size() > 63 ||
        std::isalpha(static_cast<unsigned char>(name[0])) == 0) {
        return false;
    }
    for (const char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '-' && c != '_' && c != '.') {
            return false;
        }
    }
    return true;
}

bool is_device_type(const std::string &type)
{
    return chip_type(type) != ChipType::none;
}

void check_new_device(const BoardDescription &board, const DevicePlace &place,
                      std::vector<DescriptionError> &errors)
{
    const DeviceDescription &device = board.devices.back();
    size_t on_bus = 0;
    for (const DeviceDescription &other : board.devices) {
        on_bus += other.bus == device.bus ? 1 : 0;
        if (&other != &device) {
            check_against(board, device, other, place, errors);
        }
    }
    if (board.devices.size() == kMaxDevices + 1 || on_bus == kMaxDevicesPerBus + 1) {
        errors.push_back({device.line, place.path,
                          "too many devices: a board has room for 1024, a bus for 128"});
    }
}

} // namespace simboard
