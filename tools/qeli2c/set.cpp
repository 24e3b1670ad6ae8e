// qeli2c set: writes registers, or an EEPROM's bytes page by page.
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
#include <chrono>
#include <iostream>
#include <memory>
#include <thread>

namespace tool
{

namespace
{

using Clock = std::chrono::steady_clock;

// The AT24C512C's write cycle takes 5 ms at most, older parts' 10 ms (datasheets, tWR).
constexpr std::chrono::milliseconds kLongestWriteCycle(100);
constexpr std::chrono::microseconds kPollPause(500);

struct SetArguments {
    std::string device;
    std::vector<std::string> numbers;
    AccessOptions access;
};

struct Request {
    uint32_t offset = 0;
    std::vector<uint32_t> values;
};

Request parse_request(const std::vector<std::string> &numbers, const Access &access,
                      const Memory &memory)
{
    Request request;
    size_t next = 0;
    if (access.offset_width > 0)
        request.offset = parse_register(numbers[next++], access);
    for (; next < numbers.size(); next++)
        request.values.push_back(number_in(numbers[next], 0, largest_value(access), "value"));
    if (request.values.empty())
        throw usage_error("no value to write: DEVICE REGISTER VALUE...");
    if (access.smbus && request.values.size() > 1)
        throw usage_error("--smbus writes one value");
    const size_t bytes = request.values.size() * access.value_width;
    if (memory.size ? request.offset + bytes > memory.size
                    : bytes + access.offset_width > kMostBytes)
        throw usage_error(
            std::to_string(bytes) + " bytes are too many" +
            (memory.size ? ": they go past the end of the memory" : " for one message"));
    return request;
}

// Acknowledge polling: a busy EEPROM does not answer to its address.
void wait_until_ready(const Target &target)
{
    const Clock::time_point deadline = Clock::now() + kLongestWriteCycle;
    errno = 0;
    while (!acknowledges(target.path)) {
        if (Clock::now() > deadline)
            fail_transfer(target, "cannot write", -1, errno);
        std::this_thread::sleep_for(kPollPause);
    }
}

void write_message(const Target &target, uint32_t offset, const uint8_t *bytes, size_t count,
                   const Access &access)
{
    std::vector<Message> messages(1);
    messages[0].bytes = offset_bytes(offset, access);
    messages[0].bytes.insert(messages[0].bytes.end(), bytes, bytes + count);
    transfer(target, messages, "cannot write");
}

// A page write that runs past its page wraps to the page's start, so each page gets its own.
void write_pages(const Target &target, const Request &request, const Access &access, uint32_t page)
{
    const std::vector<uint8_t> bytes = bytes_of(request.values, access);
    size_t done = 0;
    wait_until_ready(target);
    while (done < bytes.size()) {
        if (interrupted())
            throw operation_failed("interrupted: " + std::to_string(done) + " of " +
                                   std::to_string(bytes.size()) + " bytes are written");
        const uint32_t offset = request.offset + static_cast<uint32_t>(done);
        const size_t count = std::min<size_t>(bytes.size() - done, page - offset % page);
        write_message(target, offset, bytes.data() + done, count, access);
        wait_until_ready(target);
        done += count;
    }
}

void write_smbus(const Target &target, const Request &request, const Access &access)
{
    ei2c_client client = to_client(target.path);
    client.flags = access.pec ? QELI2C_CLIENT_PEC : 0;
    const auto command = static_cast<uint8_t>(request.offset);
    const uint32_t value = request.values[0];
    int32_t result;
    errno = 0;
    if (access.offset_width == 0)
        result = ei2c_smbus_write_byte(&client, static_cast<uint8_t>(value));
    else if (access.value_width == 1)
        result = ei2c_smbus_write_byte_data(&client, command, static_cast<uint8_t>(value));
    else
        result = ei2c_smbus_write_word_data(
            &client, command,
            static_cast<uint16_t>(access.big_endian ? value << 8 | value >> 8 : value));
    if (result < 0)
        fail_transfer(target, "cannot write", result, errno);
}

std::string describe(const Target &target, const Request &request, const Access &access)
{
    const size_t bytes = request.values.size() * access.value_width;
    std::string text = "write " + std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    text +=
        access.offset_width ? " at " + hex(request.offset, offset_digits(access)) + " of " : " to ";
    return text + delicate(target) + " " + to_string(target);
}

void set(const SetArguments &arguments, const Options &options)
{
    const Board board = load_board(options.board_file);
    const Target target = resolve(board, arguments.device);
    const Access access = make_access(arguments.access, target);
    const Memory memory = memory_of(target);
    const Request request = parse_request(arguments.numbers, access, memory);
    if (!delicate(target).empty())
        announce(options, describe(target, request, access));
    defer_interrupts();
    if (access.smbus)
        write_smbus(target, request, access);
    else if (memory.page)
        write_pages(target, request, access, memory.page);
    else
        write_message(target, request.offset, bytes_of(request.values, access).data(),
                      request.values.size() * access.value_width, access);
    if (options.json) {
        Json::Value json = json_of(target);
        if (access.offset_width > 0)
            json["register"] = request.offset;
        json["written"] = static_cast<Json::UInt>(request.values.size() * access.value_width);
        print_json(json);
    }
}

} // namespace

void add_set(CLI::App &app, Tool &tool)
{
    auto arguments = std::make_shared<SetArguments>();
    CLI::App &command =
        add_command(app, "set", "Write registers or memory of a device",
                    "All values go in one message that starts with the register number. With\n"
                    "--offset-width 0 none is sent and every number is a value. An at24c512 is\n"
                    "written page by page, waiting for each write cycle. Writes to switches,\n"
                    "EEPROMs and logic devices are announced, and asked about at a terminal;\n"
                    "-y goes on.",
                    [arguments, &tool] {
                        tool.action = [arguments, &tool] { set(*arguments, tool.options); };
                    });
    add_argument(command, "DEVICE", arguments->device, "Path (4/0x70.5/0x50) or name");
    add_arguments(command, "[REGISTER] VALUE...", arguments->numbers,
                  "Register, then the values to write", Number::at_least_one);
    add_access_options(command, arguments->access);
}

} // namespace tool
