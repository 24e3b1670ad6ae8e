// qeli2c epld: board logic devices.
#include "command_line.h"
#include "failure.h"
#include "interrupt.h"
#include "muted.h"
#include "number.h"
#include "output.h"
#include "tool.h"
#include "transfer.h"

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <optional>

namespace tool
{

namespace
{

constexpr uint32_t kMostData = 8000; // of one message, with its command and offset

struct EpldArguments {
    std::string device;
    std::vector<std::string> numbers;
    std::string width = "2", command; // of the offset; the command byte in front of it
};

struct Place {
    Target target;
    uint32_t width = 2;
    std::optional<uint8_t> command;
};

Place place_of(const EpldArguments &arguments, const Options &options)
{
    Place place;
    place.target = resolve(load_board(options.board_file), arguments.device);
    place.width = number_in(arguments.width, 0, 4, "--offset-width");
    if (!arguments.command.empty())
        place.command = static_cast<uint8_t>(number_in(arguments.command, 0, 0xff, "--command"));
    return place;
}

uint32_t parse_offset(const std::string &text, const Place &place)
{
    if (place.width == 0)
        return number_in(text, 0, 0, "offset of no bytes:");
    return number_in(text, 0, UINT32_MAX >> (32 - 8 * place.width), "offset");
}

std::vector<uint8_t> parse_bytes(std::vector<std::string>::const_iterator first,
                                 std::vector<std::string>::const_iterator end)
{
    std::vector<uint8_t> bytes;
    for (; first != end; ++first)
        bytes.push_back(static_cast<uint8_t>(number_in(*first, 0, 0xff, "value")));
    if (bytes.size() > kMostData)
        throw usage_error("at most " + std::to_string(kMostData) + " bytes are written at once");
    return bytes;
}

// Makes one call of the library on the device, its lines muted, and fails when it does.
template <class Call>
void access(const Options &options, const Place &place, const char *doing, Call call)
{
    const ei2c_client client = to_client(place.target.path);
    defer_interrupts();
    int32_t result;
    {
        const Muted muted(options);
        errno = 0;
        result = call(&client, static_cast<uint8_t>(place.width));
    }
    if (result < 0)
        fail_transfer(place.target, doing, result, errno);
}

void announce_write(const Options &options, const Place &place, size_t count, uint32_t offset)
{
    announce(options, "write " + std::to_string(count) + (count == 1 ? " byte" : " bytes") +
                          " at " + hex(offset, static_cast<int>(2 * place.width)) +
                          " of the logic device " + to_string(place.target));
}

void print_read(const Options &options, const Place &place, uint32_t offset,
                const std::vector<uint8_t> &bytes)
{
    if (options.json) {
        Json::Value json = json_of(place.target);
        json["register"] = offset;
        json["values"] = json_array(bytes);
        print_json(json);
    } else if (bytes.size() == 1) {
        std::cout << hex(bytes[0], 2) << "\n";
    } else {
        print_dump(offset, static_cast<int>(2 * std::max(place.width, 1U)),
                   {bytes.begin(), bytes.end()}, 1);
    }
}

void read(const EpldArguments &arguments, const Options &options)
{
    const Place place = place_of(arguments, options);
    if (arguments.numbers.size() > 2)
        throw usage_error("too many arguments: '" + arguments.numbers[2] + "'");
    const uint32_t offset = parse_offset(arguments.numbers[0], place);
    const uint32_t count =
        arguments.numbers.size() > 1 ? number_in(arguments.numbers[1], 1, kMostData, "count") : 1;
    std::vector<uint8_t> bytes(count);
    access(options, place, "cannot read", [&](const ei2c_client *client, uint8_t width) {
        return place.command ? pango_i2c_read_multi_para(client, *place.command, offset, width,
                                                         count, bytes.data())
                             : i2c_read_multi_para(client, offset, width, count, bytes.data());
    });
    print_read(options, place, offset, bytes);
}

void write(const EpldArguments &arguments, const Options &options)
{
    const Place place = place_of(arguments, options);
    if (arguments.numbers.size() < 2)
        throw usage_error("no value to write: DEVICE OFFSET VALUE...");
    const uint32_t offset = parse_offset(arguments.numbers[0], place);
    const std::vector<uint8_t> bytes =
        parse_bytes(arguments.numbers.begin() + 1, arguments.numbers.end());
    announce_write(options, place, bytes.size(), offset);
    const auto count = static_cast<uint32_t>(bytes.size());
    access(options, place, "cannot write", [&](const ei2c_client *client, uint8_t width) {
        return place.command ? pango_i2c_write_multi_para(client, *place.command, offset, width,
                                                          count, bytes.data())
                             : i2c_write_multi_para(client, offset, width, count, bytes.data());
    });
    if (options.json) {
        Json::Value json = json_of(place.target);
        json["register"] = offset;
        json["written"] = count;
        print_json(json);
    }
}

void write_read(const EpldArguments &arguments, const Options &options)
{
    const Place place = place_of(arguments, options);
    if (arguments.numbers.size() < 4)
        throw usage_error("write-read takes WRITE-AT READ-AT COUNT VALUE...");
    const uint32_t offsets[] = {parse_offset(arguments.numbers[0], place),
                                parse_offset(arguments.numbers[1], place)};
    std::vector<uint8_t> got(number_in(arguments.numbers[2], 1, kMostData, "count"));
    const std::vector<uint8_t> bytes =
        parse_bytes(arguments.numbers.begin() + 3, arguments.numbers.end());
    announce_write(options, place, bytes.size(), offsets[0]);
    const uint32_t lengths[] = {static_cast<uint32_t>(bytes.size()),
                                static_cast<uint32_t>(got.size())};
    access(options, place, "cannot write and read", [&](const ei2c_client *client, uint8_t width) {
        return i2c_write_and_read_multi_para(client, offsets, width, lengths, bytes.data(),
                                             got.data());
    });
    print_read(options, place, offsets[1], got);
}

// Each vendor is asked in its own way, which every other vendor's device takes as well as it can.
void id(const EpldArguments &arguments, const Options &options)
{
    static constexpr const char *kVendors[] = {"pango", "lattice", "anlogic"};
    const Place place = place_of(arguments, options);
    const ei2c_client client = to_client(place.target.path);
    uint8_t bytes[4] = {};
    defer_interrupts();
    if (!acknowledges(place.target.path))
        fail_transfer(place.target, "cannot identify", -1, ENXIO);
    int32_t vendor;
    {
        const Muted muted(options);
        vendor = epld_i2c_read_deviceId(&client, bytes);
    }
    if (vendor < 1)
        throw operation_failed("cannot identify " + to_string(place.target) +
                               ": it answers to its address, but to no vendor's request");
    const char *name = kVendors[vendor - 1];
    const uint32_t word = BytesToDword(bytes);
    if (word == 0 || word == UINT32_MAX)
        throw operation_failed("cannot identify " + to_string(place.target) + ": it answers " +
                               hex(word, 8) + ", which identifies nothing");
    if (options.json) {
        Json::Value json = json_of(place.target);
        json["vendor"] = name;
        json["id"] = word;
        print_json(json);
    } else {
        std::cout << name << " " << hex(word, 8) << "\n";
    }
}

CLI::App &add(CLI::App &group, Tool &tool, const char *name, const char *description,
              const char *footer, const char *numbers,
              void (*run)(const EpldArguments &, const Options &))
{
    const auto [command, arguments] = add_command(group, tool, name, description, footer, run);
    add_device(command, arguments.device);
    if (run == id)
        return command;
    add_arguments(command, numbers, arguments.numbers, "Where, and what", Number::at_least_one);
    add_option(command, "-w,--offset-width", arguments.width, "N",
               "Bytes of the offset, 0 to 4; 2 if not given");
    if (run != write_read)
        add_option(command, "--command", arguments.command, "BYTE",
                   "Send this command byte ahead of the offset");
    // cppcheck-suppress returnReference ; the name is one for the parser's own record
    return command;
}

} // namespace

void add_epld(CLI::App &app, Tool &tool)
{
    CLI::App &group = add_group(app, "epld", "Board logic: identification and registers",
                                "Offsets go out most significant byte first.");
    add(group, tool, "id", "Find out the vendor and the identification",
        "The requests of the vendors are tried in turn: an Anlogic EF2 is left with its\n"
        "configuration port in SPI mode.",
        "", id);
    add(group, tool, "read", "Read registers", "", "OFFSET [COUNT]", read);
    add(group, tool, "write", "Write registers", "", "OFFSET VALUE...", write);
    add(group, tool, "write-read", "Write, then read elsewhere, while the bus is held",
        "Example: qeli2c epld write-read board-epld 0x8010 0x8020 4 0x01",
        "WRITE-AT READ-AT COUNT VALUE...", write_read);
}

} // namespace tool
