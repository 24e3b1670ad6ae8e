// qeli2c scan: finds the devices on buses and behind the switches the board file describes.
#include "scan.h"

#include "command_line.h"
#include "failure.h"
#include "hold.h"
#include "interrupt.h"
#include "number.h"
#include "output.h"
#include "tool.h"

#include <algorithm>
#include <iostream>

namespace tool
{

namespace
{

struct ScanArguments {
    std::vector<std::string> buses;
    bool grid = false;
    bool read = false;
    bool discover = false;
};

struct Search {
    ProbeWith method;
    bool discover;
};

std::vector<uint32_t> choose_buses(const ScanArguments &arguments, const Board &board)
{
    std::vector<uint32_t> buses;
    for (const std::string &text : arguments.buses)
        buses.push_back(number_in(text, 0, kLastBus, "bus"));
    if (!buses.empty())
        return buses;
    if (board.file.empty())
        throw usage_error(
            "no board file (--board FILE or QELI2C_BOARD) that says which buses there are: "
            "name the buses, as in 'qeli2c scan 4'");
    return board.description.buses;
}

bool is_described_switch(const Board &board, const Segment &segment, uint16_t address)
{
    const simboard::DeviceDescription *device =
        device_at(board, {segment.bus, segment.hops, address});
    return device && device->type == "pca9548";
}

// Whatever is at 0x70 to 0x77, is not known as something else, and keeps what is written to it.
bool is_discovered_switch(const Board &board, const Segment &segment, uint16_t address)
{
    if (address < 0x70 || device_at(board, {segment.bus, segment.hops, address}))
        return false;
    const Hold hold({segment.bus, segment.hops, address});
    if (!hold.failure().empty())
        return false;
    bool same = true;
    for (const uint8_t channels : std::initializer_list<uint8_t>{0x01, 0x80, 0x00}) {
        uint8_t area[QELI2C_SMBUS_AREA] = {};
        same = same &&
               ui2c_smbus_xfer(hold.adapter(), address, 0, I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE,
                               area) >= 0 &&
               ui2c_smbus_xfer(hold.adapter(), address, 0, I2C_SMBUS_WRITE, channels,
                               I2C_SMBUS_BYTE, nullptr) >= 0 &&
               ui2c_smbus_xfer(hold.adapter(), address, 0, I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE,
                               area) >= 0 &&
               area[0] == channels;
    }
    return same;
}

void scan_segment(const Board &board, Segment &segment, const Addresses &in_front,
                  const Search &search, const Options &options)
{
    show_progress(options, "scanning " + segment_text(segment.bus, segment.hops));
    probe(segment, in_front, search.method);
    if (segment.hops.size() == kMostSwitches)
        return;
    const Addresses seen = in_front | answering(segment);
    for (uint16_t address = kFirstAddress; address <= kLastAddress; address++) {
        if (segment.found[address] != Found::device ||
            !(is_described_switch(board, segment, address) ||
              (search.discover && is_discovered_switch(board, segment, address))))
            continue;
        for (uint32_t channel = 0; channel < kChannels && !interrupted(); channel++) {
            Segment behind;
            behind.bus = segment.bus;
            behind.hops = segment.hops;
            behind.hops.push_back({address, channel});
            scan_segment(board, behind, seen, search, options);
            segment.channels.push_back(std::move(behind));
        }
    }
}

size_t report_failures(const Segment &segment)
{
    size_t failures = 0;
    if (!segment.failure.empty()) {
        tell("scan of " + segment_text(segment.bus, segment.hops) + ": " + segment.failure);
        failures++;
    }
    for (const Segment &channel : segment.channels)
        failures += report_failures(channel);
    return failures;
}

size_t count_missing(const Board &board, const Segment &segment)
{
    size_t missing = 0;
    for (const Entry &entry : entries_of(board, segment)) {
        missing += state_of(entry) == "missing";
        for (const Segment *channel : entry.channels)
            missing += count_missing(board, *channel);
    }
    return missing;
}

void print_scan(const ScanArguments &arguments, const Options &options, const Board &board,
                const std::vector<Segment> &buses)
{
    if (options.json)
        print_scan_json(board, buses);
    else if (arguments.grid)
        print_grids(buses);
    else
        print_tree(board, buses);
}

void scan(const ScanArguments &arguments, const Options &options)
{
    const Board &board = load_board(options.board_file);
    std::vector<Segment> buses;
    defer_interrupts();
    const Search search{arguments.read ? ProbeWith::read : ProbeWith::mixed, arguments.discover};
    for (const uint32_t bus : choose_buses(arguments, board)) {
        if (interrupted())
            break;
        buses.emplace_back();
        buses.back().bus = bus;
        scan_segment(board, buses.back(), {}, search, options);
    }
    show_progress(options, "");
    print_scan(arguments, options, board, buses);
    std::cout.flush();
    size_t failures = 0;
    size_t missing = 0;
    for (const Segment &bus : buses) {
        failures += report_failures(bus);
        missing += count_missing(board, bus);
    }
    if (interrupted())
        throw operation_failed("interrupted: the scan is not complete");
    if (missing && !options.quiet)
        tell(std::to_string(missing) + (missing == 1 ? " device" : " devices") +
             " of the board file did not answer");
    if (failures)
        throw operation_failed("the scan is not complete");
}

} // namespace

void add_scan(CLI::App &app, Tool &tool)
{
    const auto [command, arguments] = add_command(
        app, tool, "scan", "Find the devices on buses and behind switches",
        "Addresses 0x08 to 0x77 are probed with a quick write, 0x30 to 0x37 and\n"
        "0x50 to 0x5f by reading a byte, as a write could harm what usually sits\n"
        "there. UU: a kernel driver owns the address. In a grid, '..' marks what\n"
        "answers already in front of the switch. --discover also opens what answers at\n"
        "0x70 to 0x77 and keeps what is written to it, as a control register does.",
        scan);
    add_arguments(command, "BUS...", arguments.buses, "Buses; all of the board file if none",
                  Number::any);
    add_flag(command, "--grid", arguments.grid, "A grid of addresses for each bus and channel");
    add_flag(command, "--discover", arguments.discover,
             "Follow switches that the board file lacks");
    add_flag(command, "--read", arguments.read, "Probe by reading a byte everywhere");
}

} // namespace tool
