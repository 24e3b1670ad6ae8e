// qeli2c-sim show: what is on a board, and in which state.
#include "chosen_board.h"
#include "color.h"
#include "json_output.h"
#include "show_facts.h"
#include "simboard/chip_kind.h"
#include "simboard/judge.h"
#include "subject.h"

#include <algorithm>
#include <cstdio>
#include <memory>

namespace runner
{

namespace
{

using simboard::BoardView;
using simboard::Chip;
using simboard::ChipType;
using simboard::State;

constexpr size_t kColumns = 80;
constexpr size_t kTypeColumn = 29;
constexpr size_t kFactColumn = 42;

struct Paint {
    bool on;

    std::string operator()(const char *code, const std::string &text) const
    {
        return on && !text.empty() ? std::string("\033[") + code + "m" + text + "\033[0m" : text;
    }
};
constexpr char kBold[] = "1";
constexpr char kRed[] = "31";
constexpr char kGreen[] = "32";
constexpr char kYellow[] = "33";

std::vector<const Chip *> chips_at(const State &state, uint32_t bus, uint32_t parent,
                                   uint32_t channel)
{
    std::vector<const Chip *> found;
    const simboard::Bus &on = state.buses[bus];
    for (uint32_t i = 0; i < on.chip_count; i++) {
        const Chip &chip = state.chips[on.first_chip + i];
        if (chip.parent == parent && (parent == simboard::kNoParent || chip.channel == channel)) {
            found.push_back(&chip);
        }
    }
    return found;
}

uint32_t index_of(const State &state, const Chip &chip)
{
    return static_cast<uint32_t>(&chip - state.chips);
}

std::string speed_text(const simboard::Bus &bus)
{
    return bus.bit_ns == 0 ? "instant" : std::to_string(1000000 / bus.bit_ns) + "k";
}

std::string pad(const std::string &text, size_t column)
{
    return text.size() < column ? text + std::string(column - text.size(), ' ') : text + " ";
}

// Words from a column on, in as many lines as they need.
void print_words(const std::string &head, const std::vector<std::string> &words, size_t margin,
                 const Paint &paint, const char *color)
{
    std::string line;
    std::string printed = head;
    for (const std::string &word : words) {
        const size_t used = std::max(head.size(), margin);
        if (!line.empty() && used + line.size() + 2 + word.size() > kColumns) {
            std::printf("%s%s\n", printed.c_str(), paint(color, line).c_str());
            printed = std::string(margin, ' ');
            line.clear();
        }
        line += (line.empty() ? "" : "  ") + word;
    }
    std::printf("%s%s\n", printed.c_str(), paint(color, line).c_str());
}

void print_chips(const BoardView &view, uint32_t bus, uint32_t parent, uint32_t channel,
                 size_t indent, const Paint &paint);

void print_switch(const BoardView &view, const Chip &chip, const std::string &head, size_t indent,
                  const Paint &paint)
{
    const SwitchState state = read_switch(view, chip);
    std::vector<std::string> words = {"all channels closed"};
    if (state.channels != 0) {
        words.clear();
        for (unsigned channel = 0; channel < 8; channel++) {
            if ((state.channels >> channel & 1) != 0) {
                words.push_back("channel " + std::to_string(channel) + " open");
            }
        }
        words.push_back("by " + holder_text(state.opener));
    }
    const char *color = state.channels == 0 ? "" : state.opener.alive ? kGreen : kYellow;
    if (chip.state.unplugged != 0) {
        words = {"unplugged"};
        color = kRed;
    }
    print_words(head, words, kFactColumn, {paint.on && *color != '\0'}, color);
    for (uint32_t channel = 0; channel < 8; channel++) {
        const bool open = (state.channels >> channel & 1) != 0;
        if (!chips_at(*view.state, chip.bus, index_of(*view.state, chip), channel).empty()) {
            const std::string name = "channel " + std::to_string(channel);
            std::printf("%s%s\n", std::string(indent + 2, ' ').c_str(),
                        (open ? paint(kGreen, name + " (open)") : name).c_str());
            print_chips(view, chip.bus, index_of(*view.state, chip), channel, indent + 4, paint);
        }
    }
}

void print_chip(const BoardView &view, const Chip &chip, size_t indent, const Paint &paint)
{
    char address[8];
    std::snprintf(address, sizeof(address), "0x%02x ", chip.address);
    const std::string name = pad(std::string(indent, ' ') + address + chip.name, kTypeColumn);
    const std::string head = pad(name + simboard::chip_kind(chip.type).name, kFactColumn);
    if (chip.type == ChipType::pca9548) {
        print_switch(view, chip, head, indent, paint);
    } else if (chip.state.unplugged != 0) {
        print_words(head, {"unplugged"}, kFactColumn, paint, kRed);
    } else {
        std::vector<std::string> words;
        for (const Fact &fact : facts_of(view, chip)) {
            if (fact.brief) {
                words.push_back(fact.name == "used" && fact.value == 0
                                    ? fact.text
                                    : fact.name + " " + fact.text);
            }
        }
        print_words(head, words, kFactColumn, {false}, "");
    }
}

void print_chips(const BoardView &view, uint32_t bus, uint32_t parent, uint32_t channel,
                 size_t indent, const Paint &paint)
{
    for (const Chip *const chip : chips_at(*view.state, bus, parent, channel)) {
        print_chip(view, *chip, indent, paint);
    }
}

void print_board(const BoardView &view, const Paint &paint)
{
    const State &state = *view.state;
    std::printf("board %s (%s)\n", state.header.name, view.directory.c_str());
    for (const simboard::Bus &bus : state.buses) {
        if (bus.described == 0) {
            continue;
        }
        const BusHolders holders = read_holders(view, bus.number);
        std::string line =
            paint(kBold, "bus " + std::to_string(bus.number)) + "  " + speed_text(bus);
        if (holders.semaphore.alive) {
            line += "  semaphore held by " + holder_text(holders.semaphore);
        }
        if (holders.file.alive) {
            line += "  file lock held by " + holder_text(holders.file);
        }
        std::printf("\n%s\n", line.c_str());
        print_chips(view, bus.number, simboard::kNoParent, 0, 2, paint);
    }
}

Json::Value to_json(const Holder &holder)
{
    Json::Value value;
    if (holder.task.pid != 0) {
        value["pid"] = holder.task.pid;
        value["tid"] = holder.task.tid;
        value["name"] = holder.name;
        value["alive"] = holder.alive;
    }
    return value;
}

Json::Value chips_to_json(const BoardView &view, uint32_t bus, uint32_t parent, uint32_t channel);

void add_switch(const BoardView &view, const Chip &chip, Json::Value &value)
{
    const SwitchState state = read_switch(view, chip);
    value["open"] = Json::Value(Json::arrayValue);
    value["opener"] = to_json(state.opener);
    value["channels"] = Json::Value(Json::objectValue);
    for (uint32_t channel = 0; channel < 8; channel++) {
        if ((state.channels >> channel & 1) != 0) {
            value["open"].append(channel);
        }
        const Json::Value chips =
            chips_to_json(view, chip.bus, index_of(*view.state, chip), channel);
        if (!chips.empty()) {
            value["channels"][std::to_string(channel)] = chips;
        }
    }
}

Json::Value chip_to_json(const BoardView &view, const Chip &chip)
{
    Json::Value value;
    value["name"] = chip.name;
    value["type"] = simboard::chip_kind(chip.type).name;
    value["address"] = chip.address;
    value["path"] = path_of(*view.state, chip);
    value["reachable"] = simboard::is_reachable(*view.state, chip) && chip.state.unplugged == 0;
    value["unplugged"] = chip.state.unplugged != 0;
    value["state"] = Json::Value(Json::objectValue);
    for (const Fact &fact : facts_of(view, chip)) {
        value["state"][fact.name] = fact.value;
    }
    if (chip.type == ChipType::pca9548) {
        add_switch(view, chip, value);
    }
    return value;
}

Json::Value chips_to_json(const BoardView &view, uint32_t bus, uint32_t parent, uint32_t channel)
{
    Json::Value list(Json::arrayValue);
    for (const Chip *const chip : chips_at(*view.state, bus, parent, channel)) {
        list.append(chip_to_json(view, *chip));
    }
    return list;
}

void print_board_json(const BoardView &view)
{
    const State &state = *view.state;
    Json::Value root;
    root["board"] = state.header.name;
    root["directory"] = view.directory;
    root["buses"] = Json::Value(Json::arrayValue);
    for (const simboard::Bus &bus : state.buses) {
        if (bus.described != 0) {
            const BusHolders holders = read_holders(view, bus.number);
            Json::Value entry;
            entry["bus"] = bus.number;
            entry["bit_ns"] = bus.bit_ns;
            entry["semaphore"] = to_json(holders.semaphore);
            entry["file_lock"] = to_json(holders.file);
            entry["devices"] = chips_to_json(view, bus.number, simboard::kNoParent, 0);
            root["buses"].append(entry);
        }
    }
    print_json(root);
}

// Sixteen bytes a line; lines like the one before are left out, with a star in their place.
void print_registers(const std::vector<uint8_t> &bytes)
{
    constexpr size_t kLine = 16;
    bool starred = false;
    for (size_t at = 0; at < bytes.size(); at += kLine) {
        const size_t end = std::min(at + kLine, bytes.size());
        const bool same = at >= kLine && end - at == kLine && end != bytes.size() &&
                          std::equal(bytes.begin() + static_cast<long>(at),
                                     bytes.begin() + static_cast<long>(end),
                                     bytes.begin() + static_cast<long>(at - kLine));
        if (same) {
            std::printf("%s", starred ? "" : "*\n");
            starred = true;
            continue;
        }
        starred = false;
        std::printf("%04zx:", at);
        std::string characters;
        for (size_t i = at; i < end; i++) {
            std::printf(" %02x", bytes[i]);
            characters += bytes[i] >= 0x20 && bytes[i] < 0x7f ? static_cast<char>(bytes[i]) : '.';
        }
        characters.erase(characters.find_last_not_of(' ') + 1);
        const int gap = static_cast<int>(3 * (kLine - (end - at))) + 2;
        std::printf("%*s%s\n", characters.empty() ? 0 : gap, "", characters.c_str());
    }
}

void print_pins(const std::vector<Pin> &pins)
{
    for (size_t i = 0; i < pins.size(); i++) {
        const std::string name = "pin " + std::to_string(i) + " " + pins[i].name;
        std::printf("%s%s %d\n", pad(name, 24).c_str(), pins[i].is_input ? "input " : "output",
                    pins[i].level ? 1 : 0);
    }
}

Json::Value to_json(const std::vector<Pin> &pins)
{
    Json::Value list(Json::arrayValue);
    for (size_t i = 0; i < pins.size(); i++) {
        Json::Value entry;
        entry["pin"] = Json::UInt64(i);
        entry["name"] = pins[i].name;
        entry["input"] = pins[i].is_input;
        entry["level"] = pins[i].level ? 1 : 0;
        list.append(entry);
    }
    return list;
}

void print_device(const BoardView &view, const Chip &chip, const std::vector<Pin> &pins, bool json,
                  const Paint &paint)
{
    const std::vector<uint8_t> bytes = simboard::peek(view, chip, 0, count_registers(chip));
    if (json) {
        Json::Value value = chip_to_json(view, chip);
        value["registers"] = Json::Value(Json::arrayValue);
        for (const uint8_t byte : bytes) {
            value["registers"].append(byte);
        }
        if (!pins.empty()) {
            value["pins"] = to_json(pins);
        }
        print_json(value);
        return;
    }
    std::printf("%s  %s  %s%s\n", paint(kBold, chip.name).c_str(),
                simboard::chip_kind(chip.type).name, path_of(*view.state, chip).c_str(),
                chip.state.unplugged != 0 ? paint(kRed, "  unplugged").c_str() : "");
    if (chip.type == ChipType::pca9548) {
        const SwitchState state = read_switch(view, chip);
        std::printf("%-16s %s\n", "opened by",
                    state.channels == 0 ? "-" : holder_text(state.opener).c_str());
    }
    for (const Fact &fact : facts_of(view, chip)) {
        std::printf("%-16s %s\n", fact.name.c_str(), fact.text.c_str());
    }
    print_pins(pins);
    std::printf("\n");
    print_registers(bytes);
}

struct ShowArguments {
    std::string board;
    std::string device;
    std::string color;
    bool json = false;
};

int show(const ShowArguments &arguments)
{
    ChosenBoard board(arguments.board);
    const Paint paint = {!arguments.json && wants_color(arguments.color)};
    if (!arguments.device.empty()) {
        const Chip &chip = simboard::find_chip(board.view(), arguments.device);
        print_device(board.view(), chip, pins_of(board.view(), chip, pin_names(board, chip)),
                     arguments.json, paint);
    } else if (arguments.json) {
        print_board_json(board.view());
    } else {
        print_board(board.view(), paint);
    }
    return kDone;
}

} // namespace

void add_show(CLI::App &app, Runner &runner)
{
    const auto arguments = std::make_shared<ShowArguments>();
    CLI::App &command = add_command(
        app, runner, "show", "Show buses, switches and devices as they are now",
        "Registers and levels in hexadecimal, other numbers in decimal. Looking makes no\n"
        "traffic.",
        [arguments] { return show(*arguments); });
    add_board_argument(command, arguments->board);
    add_option(command, "--device", arguments->device, "DEVICE",
               "Only this device, with all its registers");
    add_flag(command, "--json", arguments->json, "Print it as JSON (docs/trace.md)");
    add_color_option(command, arguments->color);
}

} // namespace runner
