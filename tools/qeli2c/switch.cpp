// qeli2c switch: the channels of switches.
#include "child.h"
#include "command_line.h"
#include "failure.h"
#include "hold.h"
#include "interrupt.h"
#include "number.h"
#include "output.h"
#include "tool.h"
#include "transfer.h"

#include <algorithm>
#include <cerrno>
#include <iostream>

namespace tool
{

namespace
{

struct SwitchArguments {
    std::string path;
    std::vector<std::string> words;
};

constexpr uint16_t kFirstSwitch = 0x70; // addresses a PCA9548 can be strapped to
constexpr uint16_t kLastSwitch = 0x77;

std::vector<Target> chosen_switches(const Board &board, const std::vector<std::string> &words)
{
    std::vector<Target> switches;
    for (const std::string &word : words) {
        switches.push_back(resolve(board, word));
        const Target &target = switches.back();
        if (!target.type.empty() && target.type != "pca9548")
            throw usage_error(to_string(target) + " is no switch but of type " + target.type);
    }
    if (!words.empty())
        return switches;
    if (board.file.empty())
        throw usage_error("no board file (--board FILE or QELI2C_BOARD) that says which switches "
                          "there are: name them, as in 'qeli2c switch status 4/0x70'");
    for (const simboard::DeviceDescription &device : board.description.devices) {
        const DevicePath path = path_of(board.description, device);
        if (device.type == "pca9548" && path.hops.size() <= kMostSwitches)
            switches.push_back({path, device.name, device.type});
    }
    return switches;
}

std::string channels_in_words(uint8_t control)
{
    std::string text;
    for (uint32_t channel = 0; channel < kChannels; channel++)
        if (control >> channel & 1)
            text += (text.empty() ? "open: " : ", ") + std::to_string(channel);
    return text.empty() ? "closed" : text;
}

Json::Value channels_json(uint8_t control)
{
    Json::Value channels(Json::arrayValue);
    for (uint32_t channel = 0; channel < kChannels; channel++)
        if (control >> channel & 1)
            channels.append(channel);
    return channels;
}

void status(const SwitchArguments &arguments, const Options &options)
{
    const std::vector<Target> switches =
        chosen_switches(load_board(options.board_file), arguments.words);
    defer_interrupts();
    Json::Value json(Json::arrayValue);
    for (const Target &target : switches) {
        std::vector<Message> messages = {{true, std::vector<uint8_t>(1)}};
        transfer(target, messages, "cannot read");
        const uint8_t control = messages[0].bytes[0];
        if (options.json) {
            json.append(json_of(target));
            json[json.size() - 1]["open"] = channels_json(control);
        } else {
            std::cout << to_string(target) << ": " << channels_in_words(control) << "\n";
        }
    }
    if (options.json) {
        Json::Value all;
        all["switches"] = json;
        print_json(all);
    }
}

// Where a command is to reach: "4/0x70.5" and "sw-main.5" end at a channel, anything else is a
// device.
DevicePath parse_channel(const Board &board, const std::string &text)
{
    const size_t slash = text.rfind('/');
    const size_t dot = text.rfind('.');
    const bool at_channel = dot != std::string::npos &&
                            (slash == std::string::npos || dot > slash) &&
                            parse_number(text.substr(dot + 1)).has_value();
    if (!at_channel)
        return resolve(board, text).path;
    const Target target = resolve(board, text.substr(0, dot));
    DevicePath path = target.path;
    path.hops.push_back(
        {path.address, number_in(text.substr(dot + 1), 0, kChannels - 1, "channel")});
    if (path.hops.size() > kMostSwitches)
        throw usage_error("at most two switches can be opened");
    path.address = kFirstAddress; // stands for whatever sits there
    return path;
}

void open(const SwitchArguments &arguments, const Options &options)
{
    const DevicePath path = parse_channel(load_board(options.board_file), arguments.path);
    if (path.hops.empty())
        throw usage_error("no switch stands in front of " + arguments.path +
                          ": name a channel, as in 4/0x70.5");
    int status = EXIT_FAILED;
    {
        defer_interrupts();
        Hold hold(path);
        if (!hold.failure().empty())
            throw operation_failed("cannot open " + segment_text(path.bus, path.hops) + ": " +
                                   hold.failure());
        status = status_of_child(start_child(arguments.words));
        if (!hold.release())
            throw operation_failed("the bus could not be released");
    }
    if (status != EXIT_DONE)
        throw Failure{status, ""};
}

struct Closed { // a switch that was found, and what it was found with
    DevicePath path;
    uint8_t was;
};

int32_t control(const Hold &hold, uint16_t address, bool read, uint8_t &value)
{
    uint8_t area[QELI2C_SMBUS_AREA] = {};
    errno = 0;
    const int32_t result =
        ui2c_smbus_xfer(hold.adapter(), address, 0, read ? I2C_SMBUS_READ : I2C_SMBUS_WRITE, value,
                        I2C_SMBUS_BYTE, area);
    if (read && result >= 0)
        value = area[0];
    return result;
}

bool may_be_switch(const Board &board, const DevicePath &path)
{
    const simboard::DeviceDescription *known = device_at(board, path);
    return !known || known->type == "pca9548";
}

// Closes what answers as a switch on a segment that is connected now, but not `in_front` of it.
std::vector<Closed> close_segment(const Hold &hold, const Board &board, uint32_t bus,
                                  const std::vector<Hop> &hops,
                                  const std::vector<uint16_t> &in_front)
{
    std::vector<Closed> closed;
    for (uint16_t address = kFirstSwitch; address <= kLastSwitch; address++) {
        const DevicePath path{bus, hops, address};
        uint8_t was = 0;
        if (std::find(in_front.begin(), in_front.end(), address) != in_front.end() ||
            !may_be_switch(board, path) || control(hold, address, true, was) < 0)
            continue;
        uint8_t none = 0;
        if (control(hold, address, false, none) < 0)
            throw operation_failed("cannot close " + to_string(path) + ": " +
                                   cause_in_words(bus, -1, errno));
        closed.push_back({path, was});
    }
    return closed;
}

// First what is connected now, as a path left open shows more than one level at once. Then behind
// every channel, where a switch may have been left open by a path that is closed in front of it.
std::vector<Closed> close_bus(const Board &board, uint32_t bus)
{
    Hold hold({bus, {}, kFirstAddress}, Hold::With::bus_only);
    if (!hold.failure().empty())
        throw operation_failed("bus " + std::to_string(bus) + ": " + hold.failure());
    std::vector<Closed> closed = close_segment(hold, board, bus, {}, {});
    std::vector<Closed> front;
    std::vector<uint16_t> addresses;
    for (const Closed &entry : closed) {
        uint8_t value = 0; // one that has gone away was behind another
        if (control(hold, entry.path.address, true, value) < 0)
            continue;
        front.push_back(entry);
        addresses.push_back(entry.path.address);
    }
    closed = front;
    for (const Closed &entry : front) {
        for (uint32_t channel = 0; channel < kChannels && !interrupted(); channel++) {
            auto open = static_cast<uint8_t>(1U << channel);
            uint8_t none = 0;
            if (control(hold, entry.path.address, false, open) < 0)
                continue;
            const std::vector<Closed> behind =
                close_segment(hold, board, bus, {{entry.path.address, channel}}, addresses);
            closed.insert(closed.end(), behind.begin(), behind.end());
            if (control(hold, entry.path.address, false, none) < 0)
                throw operation_failed("cannot close " + to_string(entry.path) + ": " +
                                       cause_in_words(bus, -1, errno));
        }
    }
    return closed;
}

void close(const SwitchArguments &arguments, const Options &options)
{
    const Board &board = load_board(options.board_file);
    std::vector<uint32_t> buses;
    for (const std::string &word : arguments.words)
        buses.push_back(number_in(word, 0, kLastBus, "bus"));
    for (const uint32_t bus : buses)
        announce(options, "write to every switch at 0x70 to 0x77 on bus " + std::to_string(bus) +
                              " and behind the channels of those");
    defer_interrupts();
    Json::Value json;
    json["closed"] = Json::Value(Json::arrayValue);
    for (const uint32_t bus : buses) {
        for (const Closed &entry : close_bus(board, bus)) {
            const Target target = resolve(board, to_string(entry.path));
            Json::Value one = json_of(target);
            one["open"] = channels_json(entry.was);
            json["closed"].append(one);
            if (!options.json)
                std::cout << to_string(target) << ": was " << channels_in_words(entry.was) << "\n";
        }
    }
    if (options.json)
        print_json(json);
    if (interrupted())
        throw operation_failed("interrupted: not all channels were looked behind");
}

} // namespace

void add_switch(CLI::App &app, Tool &tool)
{
    CLI::App &group = add_group(app, "switch", "Channels of switches");
    const auto [status_command, which] =
        add_command(group, tool, "status", "Show which channels are open",
                    "Reading a switch behind another one opens the way to it for the moment, and\n"
                    "closes it again.",
                    status);
    add_arguments(status_command, "SWITCH...", which.words,
                  "Paths or names; all of the board file if none", Number::any);
    const auto [open_command, what] =
        add_command(group, tool, "open", "Keep a path open while a command runs",
                    "The bus is held meanwhile: the command can use i2cdetect, i2cget and others\n"
                    "that know nothing of holds, but what takes the bus itself, as qeli2c does,\n"
                    "waits without end. The exit status is that of the command.\n"
                    "Example: qeli2c switch open 4/0x70.5 -- i2cdetect -y 4",
                    open);
    add_argument(open_command, "PATH", what.path, "A channel (4/0x70.5, sw-main.5) or a device");
    add_arguments(open_command, "COMMAND...", what.words, "What to run", Number::at_least_one);
    const auto [close_command, buses] = add_command(
        group, tool, "close", "Close every channel on buses, to recover after a crash",
        "Whatever reads as a control register at 0x70 to 0x77 is closed, then the same\n"
        "behind each channel. Devices which the board file knows as something else are\n"
        "left alone.",
        close);
    add_arguments(close_command, "BUS...", buses.words, "Buses", Number::at_least_one);
}

} // namespace tool
