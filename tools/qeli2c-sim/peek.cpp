// qeli2c-sim peek: what a device holds, without traffic on its bus.
#include "json_output.h"
#include "subject.h"
#include "tools/qeli2c/number.h"

#include <iostream>
#include <memory>

namespace runner
{

namespace
{

constexpr uint32_t kBytesALine = 16;
constexpr uint32_t kOverviewBytes = 256;

struct Arguments {
    std::string board;
    std::string subject;
    std::vector<std::string> range; // OFFSET [COUNT]
    bool json = false;
};

struct Range {
    uint32_t offset = 0;
    uint32_t count = 0;
};

Range parse_range(const simboard::Chip &chip, const std::vector<std::string> &words)
{
    const uint32_t size = count_registers(chip);
    if (words.empty()) {
        return {0, std::min(size, kOverviewBytes)};
    }
    if (words.size() > 2) {
        throw UsageError("peek takes a device, an offset and a count");
    }
    const uint32_t offset = parse_offset(chip, words[0]);
    const uint32_t count =
        words.size() > 1 ? tool::number_in(words[1], 1, size - offset, "count") : 1;
    return {offset, count};
}

Json::Value bytes_to_json(const std::vector<uint8_t> &bytes)
{
    Json::Value list(Json::arrayValue);
    for (const uint8_t byte : bytes) {
        list.append(byte);
    }
    return list;
}

void print_bytes(uint32_t offset, const std::vector<uint8_t> &bytes)
{
    char byte[8];
    for (size_t i = 0; i < bytes.size(); i++) {
        if (bytes.size() > kBytesALine && i % kBytesALine == 0) {
            std::cout << tool::hex(offset + static_cast<uint32_t>(i), 4) << ":";
        }
        std::snprintf(byte, sizeof(byte), "%02x", bytes[i]);
        const bool last = i % kBytesALine == kBytesALine - 1 || i + 1 == bytes.size();
        std::cout << (bytes.size() > kBytesALine ? " " : "0x") << byte
                  << (last                         ? "\n"
                      : bytes.size() > kBytesALine ? ""
                                                   : " ");
    }
}

void peek_quantity(ChosenBoard &board, const Subject &subject, bool json)
{
    const int64_t value = read_quantity(board, subject);
    if (!json) {
        std::cout << value << "\n";
        return;
    }
    Json::Value root;
    root["device"] = subject.chip->name;
    root["quantity"] = subject.quantity;
    root["value"] = Json::Int64(value);
    print_json(root);
}

void peek_device(ChosenBoard &board, const simboard::Chip &chip, const Range &range, bool overview,
                 bool json)
{
    const std::vector<uint8_t> bytes =
        simboard::peek(board.view(), chip, range.offset, range.count);
    Json::Value root;
    root["device"] = chip.name;
    root["offset"] = range.offset;
    root["bytes"] = bytes_to_json(bytes);
    for (const std::string &name : simboard::list_stimuli(chip)) {
        const int64_t value = simboard::read_stimulus(board.view(), chip, name);
        if (overview && json) {
            root["surroundings"][name] = Json::Int64(value);
        } else if (overview) {
            std::cout << name << " " << value << "\n";
        }
    }
    if (json) {
        print_json(root);
    } else {
        print_bytes(range.offset, bytes);
    }
}

int peek_at(const Arguments &arguments)
{
    ChosenBoard board(arguments.board);
    const Subject subject = find_subject(board, arguments.subject);
    if (!subject.quantity.empty()) {
        if (!arguments.range.empty()) {
            throw UsageError("only registers have an offset");
        }
        peek_quantity(board, subject, arguments.json);
        return kDone;
    }
    peek_device(board, *subject.chip, parse_range(*subject.chip, arguments.range),
                arguments.range.empty(), arguments.json);
    return kDone;
}

} // namespace

void add_peek(CLI::App &app, Runner &runner)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App &peek =
        add_command(app, runner, "peek", "Print what a device holds or senses",
                    "peek EEPROM 0x100 16     sixteen bytes from 0x100 on\n"
                    "peek MONITOR.voltage_mv  the voltage at a power monitor\n"
                    "peek EXPANDER.3          the level at a pin, by its number or its name\n"
                    "peek DEVICE              all of it: surroundings, and the first 256 registers",
                    [arguments] { return peek_at(*arguments); });
    add_board_option(peek, arguments->board);
    add_argument(peek, "DEVICE[.QUANTITY]", arguments->subject, "What to look at");
    add_arguments(peek, "OFFSET [COUNT]", arguments->range, "Registers or bytes of it", 0);
    add_flag(peek, "--json", arguments->json, "Print it as JSON");
}

} // namespace runner
