// Reads and writes device paths and turns them into the library's device records.
#include "device_path.h"

#include "failure.h"
#include "number.h"

namespace tool
{

namespace
{

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    size_t start = 0;
    for (;;) {
        const size_t end = text.find(separator, start);
        parts.push_back(text.substr(start, end - start));
        if (end == std::string_view::npos)
            return parts;
        start = end + 1;
    }
}

uint16_t parse_address(std::string_view text, const std::string &what)
{
    const std::optional<uint32_t> value = parse_number(text);
    if (!value)
        throw usage_error(what + " '" + std::string(text) + "' is not a number");
    if (*value < kFirstAddress || *value > kLastAddress)
        throw usage_error(what + " " + std::string(text) +
                          " is out of range: 7-bit addresses are " + hex(kFirstAddress, 2) +
                          " to " + hex(kLastAddress, 2));
    return static_cast<uint16_t>(*value);
}

Hop parse_hop(std::string_view text)
{
    const size_t dot = text.find('.');
    if (dot == std::string_view::npos)
        throw usage_error("switch '" + std::string(text) +
                          "' has no channel: write ADDRESS.CHANNEL, as in 0x70.5");
    const uint16_t address = parse_address(text.substr(0, dot), "switch address");
    const std::string what = "channel of switch " + hex(address, 2) + ":";
    return Hop{address, number_in(text.substr(dot + 1), 0, kChannels - 1, what)};
}

DevicePath parse_parts(std::string_view text)
{
    const std::vector<std::string_view> parts = split(text, '/');
    DevicePath path;
    path.bus = number_in(parts.front(), 0, kLastBus, "bus");
    if (parts.size() < 2)
        throw usage_error("a bus, not a device: write BUS/ADDRESS, as in 4/0x50");
    if (parts.size() > 2 + kMostSwitches)
        throw usage_error("at most two switches can stand in front of a device");
    for (size_t i = 1; i + 1 < parts.size(); i++)
        path.hops.push_back(parse_hop(parts[i]));
    if (parts.back().find('.') != std::string_view::npos)
        throw usage_error("ends at a switch channel: add /ADDRESS of the device behind it");
    path.address = parse_address(parts.back(), "address");
    return path;
}

} // namespace

DevicePath parse_device_path(std::string_view text)
{
    try {
        return parse_parts(text);
    } catch (const Failure &failure) {
        throw usage_error("device '" + std::string(text) + "': " + failure.message);
    }
}

std::string segment_text(uint32_t bus, const std::vector<Hop> &hops)
{
    std::string text = std::to_string(bus);
    for (const Hop &hop : hops)
        text += "/" + hex(hop.address, 2) + "." + std::to_string(hop.channel);
    return text;
}

std::string to_string(const DevicePath &path)
{
    return segment_text(path.bus, path.hops) + "/" + hex(path.address, 2);
}

ei2c_client to_client(const DevicePath &path)
{
    ei2c_client client{};
    client.bus = path.bus;
    client.addr = path.address;
    if (!path.hops.empty()) {
        client.swi_addr = path.hops.back().address;
        client.swi_chnl = path.hops.back().channel;
    }
    if (path.hops.size() == kMostSwitches) {
        client.swi_addr |= static_cast<uint32_t>(path.hops.front().address) << 16;
        client.swi_chnl |= path.hops.front().channel << 16;
    }
    return client;
}

} // namespace tool
