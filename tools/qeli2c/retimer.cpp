// qeli2c retimer: raw blocks to and from retimers.
#include "command_line.h"
#include "failure.h"
#include "interrupt.h"
#include "muted.h"
#include "number.h"
#include "output.h"
#include "tool.h"
#include "transfer.h"

#include <cerrno>
#include <iostream>

namespace tool
{

namespace
{

constexpr uint32_t kMostRead = 255; // what the library hands out

struct RetimerArguments {
    std::string device;
    std::vector<std::string> numbers;
};

void read(const RetimerArguments &arguments, const Options &options)
{
    const Target target = resolve(load_board(options.board_file), arguments.device);
    if (arguments.numbers.size() > 2)
        throw usage_error("too many arguments: '" + arguments.numbers[2] + "'");
    const uint32_t reg = number_in(arguments.numbers[0], 0, 0xff, "register");
    std::vector<uint8_t> bytes(
        arguments.numbers.size() > 1 ? number_in(arguments.numbers[1], 1, kMostRead, "count") : 1);
    const ei2c_client client = to_client(target.path);
    defer_interrupts();
    int32_t result;
    {
        const Muted muted(options);
        errno = 0;
        result = Retimer_I2CReadBlockData(&client, static_cast<uint8_t>(reg),
                                          static_cast<uint32_t>(bytes.size()), bytes.data());
    }
    if (result < 0)
        fail_transfer(target, "cannot read", result, errno);
    if (options.json) {
        Json::Value json = json_of(target);
        json["register"] = reg;
        json["values"] = json_array(bytes);
        print_json(json);
    } else if (bytes.size() == 1) {
        std::cout << hex(bytes[0], 2) << "\n";
    } else {
        print_dump(reg, 2, {bytes.begin(), bytes.end()}, 1);
    }
}

void write(const RetimerArguments &arguments, const Options &options)
{
    const Target target = resolve(load_board(options.board_file), arguments.device);
    std::vector<uint8_t> bytes;
    for (const std::string &text : arguments.numbers)
        bytes.push_back(static_cast<uint8_t>(number_in(text, 0, 0xff, "byte")));
    if (bytes.size() > kMostBytes)
        throw usage_error(std::to_string(bytes.size()) + " bytes are too many for one message");
    const ei2c_client client = to_client(target.path);
    defer_interrupts();
    int32_t result;
    {
        const Muted muted(options);
        errno = 0;
        result =
            Retimer_I2CWriteBlockData(&client, static_cast<uint32_t>(bytes.size()), bytes.data());
    }
    if (result < 0)
        fail_transfer(target, "cannot write", result, errno);
    if (options.json) {
        Json::Value json = json_of(target);
        json["written"] = static_cast<Json::UInt>(bytes.size());
        print_json(json);
    }
}

} // namespace

void add_retimer(CLI::App &app, Tool &tool)
{
    CLI::App &group = add_group(app, "retimer", "Blocks of retimers");
    const auto [reading, what] =
        add_command(group, tool, "read", "Send a register byte and read a block",
                    "Example: qeli2c retimer read retimer0 0x00 16", read);
    add_device(reading, what.device);
    add_arguments(reading, "REGISTER [COUNT]", what.numbers,
                  "Register byte, then how many bytes, 1 to 255", Number::at_least_one);
    const auto [writing, bytes] =
        add_command(group, tool, "write", "Send bytes as they are, the register byte first",
                    "Example: qeli2c retimer write retimer0 0x10 0xaa 0x55", write);
    add_device(writing, bytes.device);
    add_arguments(writing, "BYTE...", bytes.numbers, "Register byte, then values",
                  Number::at_least_one);
}

} // namespace tool
