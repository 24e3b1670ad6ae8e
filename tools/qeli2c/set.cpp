// qeli2c set: writes registers, or an EEPROM's bytes page by page.
#include "command_line.h"
#include "eeprom_pages.h"
#include "failure.h"
#include "hold.h"
#include "interrupt.h"
#include "number.h"
#include "output.h"
#include "register_access.h"
#include "tool.h"
#include "transfer.h"

#include <cerrno>

namespace tool
{

namespace
{

struct SetArguments {
    std::string device;
    std::vector<std::string> numbers;
    AccessOptions access;
};

struct Request {
    uint32_t offset = 0;
    std::vector<uint32_t> values;
    std::vector<uint32_t> former; // what a masked write found
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
    if (access.mask != UINT32_MAX && (access.smbus || memory.size))
        throw usage_error("--mask is for plain registers");
    for (const uint32_t value : request.values)
        if (value & ~access.mask)
            throw usage_error("value " + hex(value, 2) + " has bits outside the mask " +
                              hex(access.mask, 2));
    check_in_memory(memory, request.offset, bytes);
    if (!memory.size && bytes + access.offset_width > kMostBytes)
        throw usage_error(std::to_string(bytes) + " bytes are too many for one message");
    return request;
}

std::vector<Message> write_of(const Request &request, const Access &access)
{
    std::vector<Message> messages(1);
    messages[0].bytes = offset_bytes(request.offset, access);
    const std::vector<uint8_t> bytes = bytes_of(request.values, access);
    messages[0].bytes.insert(messages[0].bytes.end(), bytes.begin(), bytes.end());
    return messages;
}

// A page write that runs past its page wraps to the page's start, so each page gets its own.
void write_pages(const Target &target, const Request &request, const Access &access,
                 const Memory &memory)
{
    const Eeprom eeprom{target, memory, Pace::fast};
    const std::vector<uint8_t> bytes = bytes_of(request.values, access);
    const EepromLock lock;
    for (uint32_t done = 0; done < bytes.size();) {
        if (interrupted())
            throw operation_failed("interrupted: " + std::to_string(done) + " of " +
                                   std::to_string(bytes.size()) + " bytes are written");
        const uint32_t offset = request.offset + done;
        const uint32_t count = page_part(eeprom, offset, bytes.size() - done);
        write_page(eeprom, offset, bytes.data() + done, count);
        done += count;
    }
}

// Nobody comes between the read and the write: both are done under one hold of the bus.
void write_masked(const Target &target, Request &request, const Access &access)
{
    Hold hold(target, "cannot write");
    std::vector<Message> messages;
    if (access.offset_width > 0)
        messages.push_back({false, offset_bytes(request.offset, access)});
    messages.push_back({true, std::vector<uint8_t>(bytes_of(request.values, access).size())});
    int32_t result = transfer_held(hold, target.path.address, messages);
    if (result >= 0) {
        request.former = values_of(messages.back().bytes, access);
        for (size_t i = 0; i < request.values.size(); i++)
            request.values[i] |= request.former[i] & ~access.mask;
        std::vector<Message> write = write_of(request, access);
        result = transfer_held(hold, target.path.address, write);
    }
    const int error = errno;
    hold.release(); // finding out what is missing takes the bus again
    if (result < 0)
        fail_transfer(target, "cannot write", result, error);
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

void print_result(const Target &target, const Request &request, const Access &access)
{
    Json::Value json = json_of(target);
    if (access.offset_width > 0)
        json["register"] = request.offset;
    json["written"] = static_cast<Json::UInt>(request.values.size() * access.value_width);
    if (!request.former.empty()) {
        json["former"] = json_array(request.former);
        json["values"] = json_array(request.values);
    }
    print_json(json);
}

void set(const SetArguments &arguments, const Options &options)
{
    const Board &board = load_board(options.board_file);
    const Target target = resolve(board, arguments.device);
    const Access access = make_access(arguments.access, target);
    const Memory memory = memory_of(target);
    Request request = parse_request(arguments.numbers, access, memory);
    if (!delicate(target).empty())
        announce(options, describe(target, request, access));
    defer_interrupts();
    if (access.smbus)
        write_smbus(target, request, access);
    else if (memory.page)
        write_pages(target, request, access, memory);
    else if (access.mask != UINT32_MAX)
        write_masked(target, request, access);
    else {
        std::vector<Message> messages = write_of(request, access);
        transfer(target, messages, "cannot write");
    }
    if (options.json)
        print_result(target, request, access);
}

} // namespace

void add_set(CLI::App &app, Tool &tool)
{
    const auto [command, arguments] =
        add_command(app, tool, "set", "Write registers or memory of a device",
                    "All values go in one message that starts with the register number. With\n"
                    "--offset-width 0 none is sent and every number is a value. --mask reads the\n"
                    "registers, changes the masked bits and writes them back while the bus is\n"
                    "held. An at24c512 is written page by page, waiting for each write cycle.\n"
                    "Writes to switches, EEPROMs and logic devices are announced, and asked\n"
                    "about at a terminal; -y goes on.",
                    set);
    add_device(command, arguments.device);
    add_arguments(command, "[REGISTER] VALUE...", arguments.numbers,
                  "Register, then the values to write", Number::at_least_one);
    add_access_options(command, arguments.access);
    add_mask_option(command, arguments.access, "Change only these bits");
}

} // namespace tool
