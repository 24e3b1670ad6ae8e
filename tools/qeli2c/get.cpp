// qeli2c get: reads registers, or an EEPROM's bytes.
#include "command_line.h"
#include "failure.h"
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

struct GetArguments {
    std::string device;
    std::vector<std::string> numbers;
    AccessOptions access;
};

struct Request {
    std::optional<uint32_t> offset; // nothing: read on from wherever the device stands
    uint32_t count = 1;             // values
};

Request parse_request(const std::vector<std::string> &numbers, const Access &access,
                      const Memory &memory)
{
    Request request;
    size_t next = 0;
    if (access.offset_width > 0 && !numbers.empty())
        request.offset = parse_register(numbers[next++], access);
    const uint32_t most =
        (memory.size ? memory.size : static_cast<uint32_t>(kMostBytes)) / access.value_width;
    if (next < numbers.size())
        request.count = number_in(numbers[next++], 1, access.smbus ? 1 : most, "count");
    if (next < numbers.size())
        throw usage_error("too many arguments: '" + numbers[next] + "'");
    const uint32_t bytes = request.count * access.value_width;
    check_in_memory(memory, request.offset.value_or(0), bytes);
    return request;
}

std::vector<uint8_t> read_messages(const Target &target, const Request &request,
                                   const Access &access)
{
    const uint32_t total = request.count * access.value_width;
    std::vector<uint8_t> all;
    while (all.size() < total && !interrupted()) { // more than one round only in an EEPROM
        std::vector<Message> messages;
        const auto done = static_cast<uint32_t>(all.size());
        if (request.offset && access.offset_width > 0)
            messages.push_back({false, offset_bytes(*request.offset + done, access)});
        messages.push_back(
            {true, std::vector<uint8_t>(std::min<size_t>(total - done, kMostBytes))});
        transfer(target, messages, "cannot read");
        const std::vector<uint8_t> &bytes = messages.back().bytes;
        all.insert(all.end(), bytes.begin(), bytes.end());
    }
    all.resize(all.size() / access.value_width * access.value_width);
    return all;
}

uint32_t read_smbus(const Target &target, const Request &request, const Access &access)
{
    ei2c_client client = to_client(target.path);
    client.flags = access.pec ? QELI2C_CLIENT_PEC : 0;
    const auto command = static_cast<uint8_t>(request.offset.value_or(0));
    uint8_t byte = 0;
    uint16_t word = 0;
    int32_t result;
    errno = 0;
    if (!request.offset)
        result = ei2c_smbus_read_byte(&client, &byte);
    else if (access.value_width == 1)
        result = ei2c_smbus_read_byte_data(&client, command, &byte);
    else
        result = ei2c_smbus_read_word_data(&client, command, &word);
    if (result < 0)
        fail_transfer(target, "cannot read", result, errno);
    if (access.big_endian)
        word = static_cast<uint16_t>(word << 8 | word >> 8);
    return access.value_width == 1 ? byte : word;
}

void print_values(const Options &options, const Target &target, const Request &request,
                  const Access &access, std::vector<uint32_t> values)
{
    for (uint32_t &value : values)
        value &= access.mask;
    if (options.json) {
        Json::Value json = json_of(target);
        if (request.offset)
            json["register"] = *request.offset;
        json["values"] = json_array(values);
        print_json(json);
    } else if (request.count == 1 && !values.empty()) {
        std::cout << hex(values[0], static_cast<int>(2 * access.value_width)) << "\n";
    } else {
        print_dump(request.offset.value_or(0), offset_digits(access), values,
                   static_cast<int>(access.value_width));
    }
}

void get(const GetArguments &arguments, const Options &options)
{
    const Board &board = load_board(options.board_file);
    const Target target = resolve(board, arguments.device);
    const Access access = make_access(arguments.access, target);
    const Request request = parse_request(arguments.numbers, access, memory_of(target));
    defer_interrupts();
    if (access.smbus)
        print_values(options, target, request, access, {read_smbus(target, request, access)});
    else
        print_values(options, target, request, access,
                     values_of(read_messages(target, request, access), access));
}

} // namespace

void add_get(CLI::App &app, Tool &tool)
{
    const auto [command, arguments] =
        add_command(app, tool, "get", "Read registers or memory of a device",
                    "Without REGISTER, or with --offset-width 0 (then the number is COUNT),\n"
                    "no register number is sent. Register number and values travel in one\n"
                    "combined transfer. The offset width comes from the device's type where\n"
                    "that is known: 2 for an at24c512, 0 for a pca9548, else 1.",
                    get);
    add_device(command, arguments.device);
    add_arguments(command, "REGISTER [COUNT]", arguments.numbers,
                  "Register, then how many values to read", Number::any);
    add_access_options(command, arguments.access);
    add_mask_option(command, arguments.access, "Show only these bits, the others as 0");
}

} // namespace tool
