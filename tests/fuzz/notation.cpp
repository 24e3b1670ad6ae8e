// What people type, part by part: numbers, device paths, raw messages, a fault's words, the setting
// of the log. Each is accepted, and told again the same way, or refused in words.
#include "simboard/fault_plan.h"
#include "simboard/fault_words.h"
#include "tests/fuzz/input.h"
#include "tools/qeli2c/device_path.h"
#include "tools/qeli2c/failure.h"
#include "tools/qeli2c/messages.h"
#include "tools/qeli2c/number.h"

#include <cstdlib>
#include <string>
#include <vector>

namespace
{
const char *log_setting = nullptr;
}

// The log reads its setting from the environment, once.
#define secure_getenv(name) log_setting
#include "platform/log_settings.cpp"
#undef secure_getenv

void write_log_line(Sink, uint32_t, const char *line, size_t size)
{
    if (size < 2 || line[size - 1] != '\n')
        fuzz::broken("a setting is refused without words");
}

namespace
{

using fuzz::broken;
using namespace simboard;

std::vector<std::string> split(const std::string &text, char separator)
{
    std::vector<std::string> words;
    for (size_t start = 0; start <= text.size();) {
        const size_t end = std::min(text.find(separator, start), text.size());
        words.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return words;
}

void read_path(const std::string &text)
{
    const tool::DevicePath path = tool::parse_device_path(text);
    if (tool::parse_device_path(tool::to_string(path)) != path)
        broken("a path is another one when it is told");
    const ei2c_client client = tool::to_client(path);
    if (client.bus > 15 || client.addr > 0x77 || (client.swi_chnl & ~0x70007U) != 0)
        broken("a path that no record can have");
}

void read_numbers(const std::string &text)
{
    const std::vector<std::string> parts = split(text, ' ');
    const uint32_t value = tool::number_in(parts[0], 0, UINT32_MAX, "number");
    if (tool::parse_number(tool::hex(value, 1)) != value)
        broken("a number is another one when it is told");
    (void)tool::number_in(parts.back(), value / 2, value, "number");
}

void read_messages(const std::string &text)
{
    for (const tool::Message &message : tool::parse_messages(split(text, ' ')))
        if (message.bytes.empty())
            broken("a message without bytes");
}

void read_fault(const std::string &text)
{
    static const BoardDescription board = {
        "board",
        {0, 3},
        {0, 0},
        {{}, {}},
        {{"sw", "pca9548", 0, 0x70}, {"ee", "at24c512", 3, 0x50}}};
    std::vector<std::pair<std::string, std::string>> members;
    for (const std::string &word : split(text, ' ')) {
        const size_t end = std::min(word.find('='), word.size());
        members.emplace_back(word.substr(0, end), word.substr(std::min(end + 1, word.size())));
    }
    std::vector<DescriptionError> errors;
    const PlannedFault fault = make_fault(members, board, 1, errors);
    for (const DescriptionError &error : errors)
        if (error.message.empty())
            broken("a refusal without words");
    if (errors.empty() && (fault.bus > 15 || describe_step(fault.step).empty()))
        broken("a fault that cannot be told");
}

void read_log_setting(const std::string &text)
{
    log_sinks = kDefaultSinks();
    log_setting = text.c_str();
    read_settings();
}

constexpr void (*kReaders[])(const std::string &text) = {read_path, read_numbers, read_messages,
                                                         read_fault, read_log_setting};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input in = {data, data + size};
    const auto reader = kReaders[in.byte() % std::size(kReaders)];
    try {
        reader(std::string(in.at, in.end));
    } catch (const tool::Failure &failure) {
        if (failure.message.empty() || failure.status != tool::EXIT_USAGE)
            broken("a refusal without words");
    }
    return 0;
}
