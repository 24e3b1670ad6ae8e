// qeli2c xfer: raw messages in one combined transfer.
#include "command_line.h"
#include "interrupt.h"
#include "messages.h"
#include "output.h"
#include "tool.h"
#include "transfer.h"

#include <algorithm>

namespace tool
{

namespace
{

struct XferArguments {
    std::string device;
    std::vector<std::string> words;
    bool once = false;
};

// Two bytes written to an EEPROM are an address to read from; everything written to a switch moves
// its channels.
bool changes_device(const Target &target, const std::vector<Message> &messages)
{
    const size_t harmless = delicate(target) == "the EEPROM" ? 2 : 0;
    return std::any_of(messages.begin(), messages.end(), [harmless](const Message &message) {
        return !message.read && message.bytes.size() > harmless;
    });
}

void print_result(const Options &options, const Target &target,
                  const std::vector<Message> &messages)
{
    if (!options.json) {
        for (const Message &message : messages)
            if (message.read)
                print_bytes(message.bytes);
        return;
    }
    Json::Value json = json_of(target);
    json["messages"] = Json::Value(Json::arrayValue);
    for (const Message &message : messages) {
        Json::Value entry;
        entry[message.read ? "read" : "written"] = json_array(message.bytes);
        json["messages"].append(entry);
    }
    print_json(json);
}

void xfer(const XferArguments &arguments, const Options &options)
{
    const Board &board = load_board(options.board_file);
    const Target target = resolve(board, arguments.device);
    std::vector<Message> messages = parse_messages(arguments.words);
    if (!delicate(target).empty() && changes_device(target, messages))
        announce(options, "write to " + delicate(target) + " " + to_string(target));
    defer_interrupts();
    transfer(target, messages, "cannot transfer with",
             arguments.once ? Tries::one : Tries::several);
    print_result(options, target, messages);
}

} // namespace

void add_xfer(CLI::App &app, Tool &tool)
{
    const auto [command, arguments] =
        add_command(app, tool, "xfer", "Send raw messages in one combined transfer",
                    "w writes the bytes that follow it; wN also checks that there are N. rN\n"
                    "reads N bytes. Between messages goes a repeated START, one STOP ends all.\n"
                    "Each read message is printed on lines of its own.\n"
                    "Example: qeli2c xfer 4/0x70.5/0x50 w 0x00 0x10 r4",
                    xfer);
    add_device(command, arguments.device);
    add_arguments(command, "MESSAGE...", arguments.words, "w BYTE..., wN BYTE... or rN",
                  Number::at_least_one);
    add_flag(command, "--once", arguments.once, "Try once; the default is up to four tries");
}

} // namespace tool
