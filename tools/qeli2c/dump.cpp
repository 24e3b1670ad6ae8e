// qeli2c dump: a range of registers as a grid.
#include "command_line.h"
#include "failure.h"
#include "hold.h"
#include "interrupt.h"
#include "number.h"
#include "output.h"
#include "register_access.h"
#include "tool.h"
#include "transfer.h"

#include <algorithm>
#include <cerrno>
#include <iostream>

namespace tool
{

namespace
{

constexpr uint32_t kRowBytes = 16;
constexpr uint32_t kUsualLast = 0xff;

struct DumpArguments {
    std::string device;
    std::vector<std::string> ranges;
    AccessOptions access;
    bool block = false;
};

struct Range {
    uint32_t first, last; // registers
};

constexpr int64_t kNotAcknowledged = -1;
using Values = std::vector<int64_t>;

Range parse_range(const std::string &text, const Access &access)
{
    const size_t dash = text.find('-');
    Range range{};
    range.first = parse_register(text.substr(0, dash), access);
    range.last =
        dash == std::string::npos ? range.first : parse_register(text.substr(dash + 1), access);
    if (range.last < range.first)
        throw usage_error("range " + text + " ends before it begins");
    if (range.last - range.first >= 0x10000)
        throw usage_error("range " + text + " is longer than 65536 bytes");
    return range;
}

// `count` values from `reg` on in one transfer.
int32_t read_values(const Hold &hold, uint16_t address, uint32_t reg, uint32_t count,
                    const Access &access, Values &values)
{
    std::vector<Message> messages = {
        {false, offset_bytes(reg, access)},
        {true, std::vector<uint8_t>(size_t{count} * access.value_width)}};
    const int32_t result = transfer_held(hold, address, messages);
    if (result >= 0) {
        const std::vector<uint32_t> got = values_of(messages[1].bytes, access);
        values.insert(values.end(), got.begin(), got.end());
    } else if (errno == ENXIO || errno == EREMOTEIO) {
        values.insert(values.end(), count, kNotAcknowledged);
    } else {
        return result;
    }
    return 0;
}

// The bus is held for a row at a time, so that others get their turn.
void read_row(const Target &target, const Range &row, const Access &access, bool block,
              Values &values)
{
    Hold hold(target, "cannot read");
    const uint32_t step = block ? row.last - row.first + 1 : access.value_width;
    int32_t result = 0;
    for (uint32_t reg = row.first; reg <= row.last && result >= 0 && !interrupted(); reg += step)
        result =
            read_values(hold, target.path.address, reg, step / access.value_width, access, values);
    const int error = errno;
    hold.release();
    if (result < 0)
        fail_transfer(target, "cannot read", result, error);
}

Values read_range(const Target &target, const Range &range, const Access &access, bool block)
{
    Values values;
    for (uint32_t reg = range.first; reg <= range.last && !interrupted();) {
        const uint32_t row_end = reg - reg % kRowBytes + kRowBytes - 1;
        const uint32_t last = std::min(range.last, row_end);
        read_row(target, {reg, last}, access, block, values);
        reg = last + 1;
        if (reg == 0)
            break; // that was the last register there can be
    }
    if (std::none_of(values.begin(), values.end(), [](int64_t value) { return value >= 0; }) &&
        !interrupted())
        fail_transfer(target, "cannot read", -1, ENXIO);
    return values;
}

void print_heading(const Access &access)
{
    const int width = 2 * static_cast<int>(access.value_width);
    std::string line(static_cast<size_t>(offset_digits(access)) + 3, ' ');
    for (uint32_t i = 0; i < kRowBytes; i += access.value_width)
        line += std::string(static_cast<size_t>(width) - 1, ' ') + hex(i, 1).substr(2) + " ";
    if (access.value_width == 1)
        line += "    0123456789abcdef";
    line.erase(line.find_last_not_of(' ') + 1);
    std::cout << line << "\n";
}

void print_grid(const Range &range, const Access &access, const Values &values)
{
    const uint32_t width = access.value_width;
    const int digits = 2 * static_cast<int>(width);
    size_t next = 0;
    for (uint64_t row = range.first - range.first % kRowBytes;
         row <= range.last && next < values.size(); row += kRowBytes) {
        std::string line = hex(static_cast<uint32_t>(row), offset_digits(access)) + ":";
        std::string characters;
        for (uint64_t reg = row; reg < row + kRowBytes; reg += width) {
            const bool asked = reg >= range.first && next < values.size();
            const int64_t value = asked ? values[next++] : kNotAcknowledged;
            const std::string blank(static_cast<size_t>(digits), asked ? 'X' : ' ');
            line += " ";
            line += value >= 0 ? hex(static_cast<uint32_t>(value), digits).substr(2) : blank;
            if (value < 0)
                characters += blank[0];
            else
                characters += value >= 0x20 && value < 0x7f ? static_cast<char>(value) : '.';
        }
        if (width == 1)
            line += "    " + characters;
        line.erase(line.find_last_not_of(' ') + 1);
        std::cout << line << "\n";
    }
}

Json::Value json_of(const Range &range, const Values &values)
{
    Json::Value json;
    json["register"] = range.first;
    json["values"] = Json::Value(Json::arrayValue);
    for (const int64_t value : values)
        json["values"].append(value < 0 ? Json::Value() : Json::Value(Json::Int64(value)));
    return json;
}

std::vector<Range> parse_ranges(const DumpArguments &arguments, const Access &access,
                                const Memory &memory)
{
    std::vector<Range> ranges;
    for (const std::string &text : arguments.ranges) {
        Range range = parse_range(text, access);
        if (text.find('-') == std::string::npos)
            range.last = std::min(range.first | kUsualLast, range.first + kUsualLast);
        ranges.push_back(range);
    }
    if (ranges.empty())
        ranges.push_back({0, kUsualLast});
    for (const Range &range : ranges) {
        check_in_memory(memory, range.first, range.last - range.first + 1);
        if (range.first % access.value_width || (range.last + 1) % access.value_width)
            throw usage_error("a range of values that wide begins and ends at multiples of " +
                              std::to_string(access.value_width));
    }
    return ranges;
}

void dump(const DumpArguments &arguments, const Options &options)
{
    const Board &board = load_board(options.board_file);
    const Target target = resolve(board, arguments.device);
    const Access access = make_access(arguments.access, target);
    const Memory memory = memory_of(target);
    if (access.offset_width == 0)
        throw usage_error("a device without register numbers cannot be dumped; "
                          "'qeli2c get -w 0' reads it");
    if (access.smbus)
        throw usage_error("--smbus is not for dump; 'qeli2c smbus' sends such commands");
    const std::vector<Range> ranges = parse_ranges(arguments, access, memory);
    defer_interrupts();
    Json::Value json = json_of(target);
    json["width"] = access.value_width;
    json["ranges"] = Json::Value(Json::arrayValue);
    for (const Range &range : ranges) {
        const Values values = read_range(target, range, access, arguments.block || memory.size);
        json["ranges"].append(json_of(range, values));
        if (options.json)
            continue;
        if (&range == &ranges.front())
            print_heading(access);
        print_grid(range, access, values);
    }
    if (options.json)
        print_json(json);
    if (interrupted())
        throw operation_failed("interrupted: the dump is not complete");
}

} // namespace

void add_dump(CLI::App &app, Tool &tool)
{
    const auto [command, arguments] =
        add_command(app, tool, "dump", "Show a range of registers as a grid",
                    "A RANGE is FIRST-LAST, or FIRST for it and all behind it up to 0x..ff; the\n"
                    "usual one is 0x00-0xff. Each register gets a transfer of its own, as not\n"
                    "every device counts on to the next one by itself; --block reads a row of\n"
                    "sixteen at once, as EEPROMs always are. XX: not acknowledged.",
                    dump);
    add_device(command, arguments.device);
    add_arguments(command, "RANGE...", arguments.ranges, "Registers, as in 0x10-0x3f", Number::any);
    add_access_options(command, arguments.access);
    add_flag(command, "--block", arguments.block, "One transfer a row");
}

} // namespace tool
