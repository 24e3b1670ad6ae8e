// The command line, parsed by CLI11. It takes long to compile: only this file and the manual's
// include it.
#include "command_line.h"

#include "failure.h"
#include "help_formatter.h"
#include "manual.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <utility>

#ifndef QELI2C_VERSION
#define QELI2C_VERSION "unknown"
#endif

namespace tool
{

namespace
{

class ToolHelp : public HelpFormatter
{
public:
    std::string make_footer(const CLI::App *app) const override
    {
        std::string text = CLI::Formatter::make_footer(app);
        if (app->get_parent() != nullptr)
            text += "\nEvery command also takes the options that 'qeli2c --help' lists.\n";
        return text;
    }
};

const struct {
    const char *name;
    void (*add)(CLI::App &app, Tool &tool);
} kCommands[] = {
    {"scan", add_scan},   {"get", add_get},           {"set", add_set},
    {"dump", add_dump},   {"xfer", add_xfer},         {"smbus", add_smbus},
    {"gpio", add_gpio},   {"epld", add_epld},         {"eeprom", add_eeprom},
    {"power", add_power}, {"retimer", add_retimer},   {"switch", add_switch},
    {"bus", add_bus},     {"list", add_list},         {"info", add_info},
    {"batch", add_batch}, {"selftest", add_selftest},
};

void describe(CLI::App &app, Options &options)
{
    app.formatter(std::make_shared<ToolHelp>());
    app.require_subcommand(0, 1);
    app.fallthrough();
    app.set_version_flag("--version", "qeli2c " QELI2C_VERSION);
    add_option(app, "--board", options.board_file, "FILE", "Board file; else $QELI2C_BOARD");
    add_flag(app, "--json", options.json, "Print results as JSON");
    add_flag(app, "-y,--yes", options.yes, "Do not ask before delicate writes");
    add_flag(app, "-q,--quiet", options.quiet, "Print nothing but results and errors");
    add_flag(app, "-v,--verbose", options.verbose, "Show the library's trace lines");
    app.footer("A device is a path, upstream first, or its name in the board file:\n"
               "4/0x70.5/0x71.3/0x50 is bus 4, through channel 5 of the switch at 0x70 and\n"
               "channel 3 of the switch at 0x71, to 0x50. Numbers are decimal, 0x or 0b.\n"
               "Without --board and $QELI2C_BOARD, /etc/qeli2c/board.json is read if it\n"
               "exists. Exit status: 0 done, 1 failed, 2 wrong usage.");
}

// The description of some of the commands, or of all, and where it is parsed to.
struct CommandLine {
    Tool tool;
    CLI::App app{"Reads and writes devices on I2C buses, through the switches in front of them.",
                 "qeli2c"};

    explicit CommandLine(const std::vector<std::string> &names)
    {
        describe(app, tool.options);
        for (const auto &command : kCommands)
            if (names.empty() || std::find(names.begin(), names.end(), command.name) != names.end())
                command.add(app, tool);
    }
};

constexpr size_t kMostKept = 32; // more than there are commands

// Describing them all takes longer than most commands do, so only those are described whose names
// are among the words. Nothing is lost when that are too many; none makes it all of them. The lines
// of a batch use what those before have left.
CommandLine &command_line_for(const std::vector<std::string> &words)
{
    static std::map<std::vector<std::string>, CommandLine> kept;
    std::vector<std::string> names;
    for (const auto &command : kCommands)
        if (std::find(words.begin(), words.end(), command.name) != words.end())
            names.emplace_back(command.name);
    if (kept.size() >= kMostKept && kept.count(names) == 0)
        kept.clear();
    return kept.try_emplace(names, names).first->second;
}

constexpr Manual kManual = {
    "reads and writes devices on I2C buses",
    ".SH ENVIRONMENT\n"
    ".TP\n.B QELI2C_BOARD\nThe board file, where \\-\\-board is not given.\n"
    ".TP\n.B QELPLATFORM_LOG\nWhere the library's log lines go: see qelplatform(7).\n"
    ".TP\n.B NO_COLOR\nWhen set and not empty, nothing is coloured.\n"
    ".SH FILES\n"
    ".TP\n.B /etc/qeli2c/board.json\nThe board file where nothing else names one.\n"
    ".SH SEE ALSO\n"
    "qeli2c\\-sim(1), qeli2c(3), qeli2c\\-board(5)\n"};

// How the build makes the manual page and the completion.
bool write_manual(const CLI::App &app, const std::vector<std::string> &words)
{
    if (words == std::vector<std::string>{"--man"})
        std::cout << manual_page(app, kManual);
    else if (words == std::vector<std::string>{"--completion", "bash"})
        std::cout << bash_completion(app);
    else
        return false;
    return true;
}

Failure usage_failure(const CLI::App &app, std::string message)
{
    std::string command = "qeli2c";
    for (const CLI::App *at = &app; !at->get_subcommands().empty();) {
        at = at->get_subcommands().front();
        command += " " + at->get_name();
    }
    std::replace(message.begin(), message.end(), '\n', ' ');
    return usage_error(message + " (see '" + command + " --help')");
}

Failure unexpected(const CLI::App &app)
{
    const std::string word = app.remaining(true).front();
    const CLI::App *at = &app;
    while (!at->get_subcommands().empty())
        at = at->get_subcommands().front();
    const bool command = !at->get_subcommands({}).empty() && !word.starts_with("-");
    return usage_failure(app, (command ? "no command '" : "unexpected argument '") + word + "'");
}

} // namespace

CLI::App &add_command(CLI::App &app, const char *name, const char *description, const char *footer,
                      std::function<void()> chosen)
{
    CLI::App *command = app.add_subcommand(name, description);
    command->footer(footer);
    command->callback(std::move(chosen));
    return *command;
}

CLI::App &add_group(CLI::App &app, const char *name, const char *description, const char *footer)
{
    CLI::App *group = app.add_subcommand(name, description);
    group->footer(footer);
    group->require_subcommand(0, 1); // that there is one is checked by the missing action
    group->fallthrough();
    return *group;
}

void add_argument(CLI::App &command, const char *name, std::string &value, const char *description)
{
    command.add_option(name, value, description)->required();
}

void add_device(CLI::App &command, std::string &value)
{
    add_argument(command, "DEVICE", value, "Path (4/0x70.5/0x50) or name");
}

void add_file(CLI::App &command, std::string &value)
{
    command.add_option("FILE", value, "File; standard input or output if none or -");
}

void add_arguments(CLI::App &command, const char *name, std::vector<std::string> &values,
                   const char *description, Number number)
{
    command.add_option(name, values, description)->required(number == Number::at_least_one);
}

void add_option(CLI::App &command, const char *name, std::string &value, const char *type,
                const char *description, const std::vector<std::string> &choices)
{
    CLI::Option *option = command.add_option(name, value, description)->type_name(type);
    if (!choices.empty())
        option->check(CLI::IsMember(choices).description(""));
}

void add_flag(CLI::App &command, const char *name, bool &value, const char *description)
{
    command.add_flag(name, value, description);
}

Action parse_command_line(const std::vector<std::string> &words, Options &options)
{
    auto &[tool, app] = command_line_for(words);
    tool.options = options;
    tool.action = nullptr;
    for (const auto &forget : tool.forget)
        forget();
    app.clear();
    if (write_manual(app, words))
        return nullptr;
    try {
        app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
    } catch (const CLI::Success &success) {
        app.exit(success);
        return nullptr;
    } catch (const CLI::ExtrasError &) {
        throw unexpected(app);
    } catch (const CLI::ParseError &error) {
        throw usage_failure(app, error.what());
    }
    if (!tool.action)
        throw usage_failure(app, app.get_subcommands().empty()
                                     ? "no command: scan, get, set, dump and others"
                                     : "which of its commands?");
    options = tool.options;
    return tool.action;
}

} // namespace tool
