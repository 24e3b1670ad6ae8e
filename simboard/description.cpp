// Reading a board description, and saying everything that is wrong with it.
#include "simboard/description.h"

#include <json/json.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <optional>
#include <set>

#include "simboard/chip_kind.h"
#include "simboard/description_check.h"
#include "simboard/description_reader.h"

namespace simboard
{

namespace
{

// Where a device list stands: what its devices have in common.
struct Segment {
    uint32_t bus = 0;
    int parent = -1;
    uint32_t channel = 0;
};

unsigned line_of_member(Reader &reader, const Json::Value &object, const char *key)
{
    return line_of(reader, object.isMember(key) ? object[key] : object);
}

uint32_t read_speed(Reader &reader, const Json::Value &object, const std::string &path,
                    uint32_t bit_ns)
{
    if (object.isMember("speed")) {
        const Json::Value &value = object["speed"];
        if (!value.isString() || !parse_speed(value.asString(), bit_ns)) {
            complain(reader, value, join(path, "speed"),
                     "must be \"instant\", \"100k\" or \"400k\"");
        }
    }
    return bit_ns;
}

void read_devices(Reader &reader, const Json::Value &list, const std::string &path,
                  const Segment &segment);

void read_channels(Reader &reader, const Json::Value &device, const std::string &path,
                   const Segment &here, int index)
{
    const Json::Value &channels = device["channels"];
    const std::string channels_path = join(path, "channels");
    if (!channels.isObject()) {
        complain(reader, channels, channels_path, "must be an object");
        return;
    }
    for (const std::string &key : channels.getMemberNames()) {
        if (key.size() != 1 || key[0] < '0' || key[0] > '7') {
            complain(reader, channels[key], join(channels_path, key),
                     "a channel is a number from 0 to 7");
            continue;
        }
        read_devices(reader, channels[key], join(channels_path, key),
                     {here.bus, index, static_cast<uint32_t>(key[0] - '0')});
    }
}

void read_device(Reader &reader, const Json::Value &value, const std::string &path,
                 const Segment &segment)
{
    static const std::set<std::string> known = device_keys();
    if (!check_object(reader, value, path, known)) {
        return;
    }
    DeviceDescription device;
    device.name = read_text(reader, value, path, "name");
    if (!device.name.empty() && !is_device_name(device.name)) {
        complain(reader, value["name"], join(path, "name"),
                 "must start with a letter and hold letters, digits, '-', '_' and '.', at most 63");
    }
    device.type = read_text(reader, value, path, "type");
    if (!device.type.empty() && !is_device_type(device.type)) {
        complain(reader, value["type"], join(path, "type"), "must be " + list_chip_types());
        device.type.clear();
    }
    const auto address =
        read_number(reader, value, path, "address", 0x08, 0x77, "0x08 to 0x77, a 7-bit address");
    device.address = static_cast<uint16_t>(address.value_or(0));
    device.bus = segment.bus;
    device.parent = segment.parent;
    device.channel = segment.channel;
    device.line = line_of(reader, value);
    read_options(reader, value, path, device);

    const int index = static_cast<int>(reader.board.devices.size());
    reader.board.devices.push_back(device);
    const DevicePlace place = {path, line_of_member(reader, value, "name"),
                               line_of_member(reader, value, "address")};
    check_new_device(reader.board, place, reader.errors);
    if (device.type == "pca9548" && value.isMember("channels")) {
        read_channels(reader, value, path, segment, index);
    }
}

void read_devices(Reader &reader, const Json::Value &list, const std::string &path,
                  const Segment &segment)
{
    if (!list.isArray()) {
        complain(reader, list, path, "must be a list of devices");
        return;
    }
    for (Json::ArrayIndex i = 0; i < list.size(); i++) {
        read_device(reader, list[i], join(path, i), segment);
    }
}

void read_bus(Reader &reader, const Json::Value &value, const std::string &path,
              uint32_t board_bit_ns)
{
    static const std::set<std::string> known = {"bus", "speed", "status", "devices"};
    if (!check_object(reader, value, path, known)) {
        return;
    }
    const auto number = read_number(reader, value, path, "bus", 0, 15, "0 to 15");
    const auto &buses = reader.board.buses;
    if (number && std::find(buses.begin(), buses.end(), *number) != buses.end()) {
        complain(reader, value["bus"], join(path, "bus"),
                 "bus " + std::to_string(*number) + " is already described");
    }
    reader.board.bit_ns.push_back(read_speed(reader, value, path, board_bit_ns));
    // A bus without a proper number gets one that no other has, so that its devices are checked all
    // the same.
    const uint32_t stand_in = UINT32_MAX - static_cast<uint32_t>(buses.size());
    reader.board.buses.push_back(number.value_or(stand_in));
    reader.board.status.push_back(
        value.isMember("status")
            ? read_number(reader, value, path, "status", 0, UINT32_MAX, "0 to 0xffffffff")
            : std::nullopt);
    if (value.isMember("devices")) {
        read_devices(reader, value["devices"], join(path, "devices"), {buses.back(), -1, 0});
    }
}

void read_board(Reader &reader, const Json::Value &root)
{
    if (!check_object(reader, root, "", {"name", "speed", "buses"})) {
        return;
    }
    reader.board.name = read_text(reader, root, "", "name");
    if (reader.board.name.size() > 63) {
        complain(reader, root["name"], "name", "must have at most 63 characters");
    }
    const uint32_t bit_ns = read_speed(reader, root, "", 0);
    const Json::Value *const buses = require(reader, root, "", "buses");
    if (buses == nullptr) {
        return;
    }
    if (!buses->isArray() || buses->empty()) {
        complain(reader, *buses, "buses", "must be a list of at least one bus");
        return;
    }
    for (Json::ArrayIndex i = 0; i < buses->size(); i++) {
        read_bus(reader, (*buses)[i], join("buses", i), bit_ns);
    }
}

} // namespace

BoardDescription parse_board_description(const std::string &text,
                                         std::vector<DescriptionError> &errors)
{
    Json::Value root;
    if (!parse_json(text, root, errors)) {
        return {};
    }
    Reader reader = {text, errors, {}};
    read_board(reader, root);
    sort_by_line(errors);
    return reader.board;
}

BoardDescription load_board_description(const std::string &path,
                                        std::vector<DescriptionError> &errors)
{
    std::string text;
    if (!read_text_file(path, text)) {
        errors.push_back({0, "", std::string("cannot be read: ") + std::strerror(errno)});
        return {};
    }
    return parse_board_description(text, errors);
}

std::string to_string(const std::string &path, const DescriptionError &error)
{
    std::string text = path;
    if (error.line != 0) {
        text += ":" + std::to_string(error.line);
    }
    if (!error.key.empty()) {
        text += ": " + error.key;
    }
    return text + ": " + error.message;
}

bool parse_speed(const std::string &text, uint32_t &bit_ns)
{
    static const std::map<std::string, uint32_t> speeds = {
        {"instant", 0}, {"100k", 10'000}, {"400k", 2'500}};
    const auto found = speeds.find(text);
    if (found == speeds.end()) {
        return false;
    }
    bit_ns = found->second;
    return true;
}

bool read_text_file(const std::string &path, std::string &text)
{
    std::FILE *const file = std::fopen(path.c_str(), "re");
    if (file == nullptr) {
        return false;
    }
    char part[4096];
    size_t size;
    while ((size = std::fread(part, 1, sizeof(part), file)) > 0) {
        text.append(part, size);
    }
    const bool good = std::ferror(file) == 0;
    const int saved = errno;
    std::fclose(file);
    errno = saved;
    return good;
}

} // namespace simboard
