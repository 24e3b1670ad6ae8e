// qeli2c info: what the board file knows of one device, or of the board.
#include "command_line.h"
#include "failure.h"
#include "number.h"
#include "output.h"
#include "register_access.h"
#include "tool.h"

#include <iomanip>
#include <iostream>
#include <map>

namespace tool
{

namespace
{

struct InfoArguments {
    std::vector<std::string> devices;
};

constexpr int kKeyWidth = 14;

void print_line(const std::string &key, const std::string &value)
{
    std::cout << std::left << std::setw(kKeyWidth) << key << value << "\n";
}

void print_board(const Board &board, const Options &options)
{
    std::map<std::string, uint32_t> types;
    for (const simboard::DeviceDescription &device : board.description.devices)
        types[device.type]++;
    Json::Value json;
    json["board"] = board.description.name;
    json["file"] = board.file;
    json["buses"] = json_array(board.description.buses);
    json["types"] = Json::Value(Json::objectValue);
    for (const auto &[type, count] : types)
        json["types"][type] = count;
    if (options.json) {
        print_json(json);
        return;
    }
    print_line("board", board.description.name);
    print_line("file", board.file);
    print_line("buses", std::to_string(board.description.buses.size()));
    print_line("devices", std::to_string(board.description.devices.size()));
    for (const auto &[type, count] : types)
        print_line("", std::to_string(count) + " " + type);
}

Json::Value json_of_device(const Board &board, const Target &target)
{
    Json::Value json = json_of(target);
    const simboard::DeviceDescription *known = device_at(board, target.path);
    if (!known)
        throw operation_failed("the board file knows nothing of " + to_string(target));
    if (known->parent >= 0) {
        json["switch"] = board.description.devices[static_cast<size_t>(known->parent)].name;
        json["channel"] = known->channel;
    }
    if (const Memory memory = memory_of(target); memory.size) {
        json["bytes"] = memory.size;
        json["page"] = memory.page;
    }
    for (const auto &[name, value] : known->surroundings)
        json["described"][name] = Json::Int64(value);
    if (!known->pins.empty())
        json["pins"] = json_array(known->pins);
    for (const simboard::DeviceDescription &device : board.description.devices)
        if (device.parent >= 0 &&
            &board.description.devices[static_cast<size_t>(device.parent)] == known)
            json["behind"][std::to_string(device.channel)].append(device.name);
    return json;
}

void print_device(const Board &board, const Target &target)
{
    const Json::Value json = json_of_device(board, target);
    print_line("name", target.name);
    print_line("type", target.type);
    print_line("path", to_string(target.path));
    if (json.isMember("switch"))
        print_line("behind",
                   "channel " + json["channel"].asString() + " of " + json["switch"].asString());
    if (json.isMember("bytes"))
        print_line("memory",
                   json["bytes"].asString() + " bytes in pages of " + json["page"].asString());
    for (const std::string &name : json["described"].getMemberNames())
        print_line(name, json["described"][name].asString());
    for (Json::ArrayIndex pin = 0; pin < json["pins"].size(); pin++)
        if (!json["pins"][pin].asString().empty())
            print_line("pin " + std::to_string(pin), json["pins"][pin].asString());
    for (const std::string &channel : json["behind"].getMemberNames())
        for (const Json::Value &name : json["behind"][channel])
            print_line("channel " + channel, name.asString());
}

void info(const InfoArguments &arguments, const Options &options)
{
    const Board &board = load_board(options.board_file);
    if (board.file.empty())
        throw usage_error("no board file to look into (--board FILE or QELI2C_BOARD)");
    if (arguments.devices.empty()) {
        print_board(board, options);
        return;
    }
    Json::Value all;
    for (const std::string &device : arguments.devices) {
        const Target target = resolve(board, device);
        if (options.json)
            all["devices"].append(json_of_device(board, target));
        else if (&device != &arguments.devices.front())
            std::cout << "\n";
        if (!options.json)
            print_device(board, target);
    }
    if (options.json)
        print_json(all);
}

} // namespace

void add_info(CLI::App &app, Tool &tool)
{
    const auto [command, arguments] = add_command(
        app, tool, "info", "Show what the board file says of devices, or of itself", "", info);
    add_arguments(command, "DEVICE...", arguments.devices, "Paths or names; the board if none",
                  Number::any);
}

} // namespace tool
