// The command line, parsed by CLI11. The one file that includes it: it takes long to compile.
#include "command_line.h"

#include "failure.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <utility>

#ifndef QELI2C_VERSION
#define QELI2C_VERSION "unknown"
#endif

namespace tool
{

namespace
{

// Positional arguments carry their whole notation in their names: usage lines as manual pages write
// them.
class HelpFormatter : public CLI::Formatter
{
public:
    std::string make_option_usage(const CLI::Option *option) const override
    {
        const std::string name = make_option_name(option, true);
        return option->get_required() ? name : "[" + name + "]";
    }

    std::string make_option_opts(const CLI::Option *option) const override
    {
        return option->get_positional() ? "" : CLI::Formatter::make_option_opts(option);
    }

    std::string make_footer(const CLI::App *app) const override
    {
        std::string text = CLI::Formatter::make_footer(app);
        if (app->get_parent() != nullptr)
            text += "\nEvery command also takes the options that 'qeli2c --help' lists.\n";
        return text;
    }
};

void describe(CLI::App &app, Tool &tool)
{
    Options &options = tool.options;
    app.formatter(std::make_shared<HelpFormatter>());
    app.require_subcommand(0, 1);
    app.fallthrough();
    app.set_version_flag("--version", "qeli2c " QELI2C_VERSION);
    add_option(app, "--board", options.board_file, "FILE", "Board file; else $QELI2C_BOARD");
    add_flag(app, "--json", options.json, "Print results as JSON");
    add_flag(app, "-y,--yes", options.yes, "Do not ask before delicate writes");
    add_flag(app, "-q,--quiet", options.quiet, "Print nothing but results and errors");
    add_flag(app, "-v,--verbose", options.verbose, "Show the library's trace lines");
    add_scan(app, tool);
    add_get(app, tool);
    add_set(app, tool);
    add_xfer(app, tool);
    add_list(app, tool);
    app.footer("A device is a path, upstream first, or its name in the board file:\n"
               "4/0x70.5/0x71.3/0x50 is bus 4, through channel 5 of the switch at 0x70 and\n"
               "channel 3 of the switch at 0x71, to 0x50. Numbers are decimal, 0x or 0b.\n"
               "Without --board and $QELI2C_BOARD, /etc/qeli2c/board.json is read if it\n"
               "exists. Exit status: 0 done, 1 failed, 2 wrong usage.");
}

int usage_failure(const CLI::App &app, std::string message)
{
    std::string command = "qeli2c";
    for (const CLI::App *chosen : app.get_subcommands())
        command += " " + chosen->get_name();
    std::replace(message.begin(), message.end(), '\n', ' ');
    std::cerr << "qeli2c: " << message << " (see '" << command << " --help')\n";
    return EXIT_USAGE;
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

void add_argument(CLI::App &command, const char *name, std::string &value, const char *description)
{
    command.add_option(name, value, description)->required();
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

std::optional<int> parse_command_line(int argc, char **argv, Tool &tool)
{
    CLI::App app("Reads and writes devices on I2C buses, through the switches in front of them.",
                 "qeli2c");
    describe(app, tool);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &success) {
        return app.exit(success);
    } catch (const CLI::ParseError &error) {
        return usage_failure(app, error.what());
    }
    if (!tool.action)
        return usage_failure(app, "no command: scan, get, set, xfer or list");
    return std::nullopt;
}

} // namespace tool
