// The command line, parsed by CLI11. The one file that includes it: it takes long to compile.
#include "command_line.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <cstring>
#include <iostream>
#include <utility>

namespace runner
{

namespace
{

// What follows the first "--" is a command's own affair and kept from the parser.
std::vector<std::string> cut_at_dashes(int &argc, char **argv)
{
    char **const end = argv + argc;
    char **const dashes = std::find_if(
        argv, end, [](const char *argument) { return std::strcmp(argument, "--") == 0; });
    argc = static_cast<int>(dashes - argv);
    return {dashes, end};
}

} // namespace

CLI::App &add_command(CLI::App &app, Runner &runner, const char *name, const char *description,
                      const char *footer, std::function<int()> action)
{
    CLI::App *const command = app.add_subcommand(name, description);
    command->footer(footer);
    command->callback([&runner, action = std::move(action)] { runner.action = action; });
    return *command;
}

void add_argument(CLI::App &command, const char *name, std::string &value, const char *description)
{
    command.add_option(name, value, description)->required()->type_name("");
}

void add_optional_argument(CLI::App &command, const char *name, std::string &value,
                           const char *description)
{
    command.add_option(name, value, description)->type_name("");
}

void add_arguments(CLI::App &command, const char *name, std::vector<std::string> &values,
                   const char *description, size_t at_least)
{
    CLI::Option *const option = command.add_option(name, values, description)->type_name("");
    if (at_least > 0) {
        option->required()->expected(static_cast<int>(at_least),
                                     CLI::detail::expected_max_vector_size);
    }
}

void add_option(CLI::App &command, const char *name, std::string &value, const char *type,
                const char *description, const std::vector<std::string> &choices)
{
    CLI::Option *const option = command.add_option(name, value, description)->type_name(type);
    if (!choices.empty()) {
        option->check(CLI::IsMember(choices).description(""));
    }
}

void add_options(CLI::App &command, const char *name, std::vector<std::string> &values,
                 const char *type, const char *description)
{
    command.add_option(name, values, description)->type_name(type)->allow_extra_args(false);
}

void add_number(CLI::App &command, const char *name, std::optional<uint64_t> &value,
                const char *type, const char *description)
{
    command.add_option(name, value, description)->type_name(type);
}

void add_flag(CLI::App &command, const char *name, bool &value, const char *description)
{
    command.add_flag(name, value, description);
}

void stop_at_first_argument(CLI::App &command)
{
    command.prefix_command();
}

int usage_failure(const std::string &message)
{
    std::string line = message;
    std::replace(line.begin(), line.end(), '\n', ' ');
    std::cerr << "qeli2c-sim: " << line << " (see 'qeli2c-sim --help')\n";
    return kUsage;
}

std::optional<int> parse_command_line(int argc, char **argv, Runner &runner,
                                      void (*add_commands)(CLI::App &, Runner &))
{
    runner.after_dashes = cut_at_dashes(argc, argv);
    CLI::App app("Simulated boards: programs reach the I2C buses of a described board as "
                 "/dev/i2c-N, without root",
                 "qeli2c-sim");
    app.set_version_flag("--version", "qeli2c-sim " QELI2C_VERSION);
    app.require_subcommand(1);
    add_commands(app, runner);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &success) { // --help, --version
        return app.exit(success);
    } catch (const CLI::Error &error) {
        return usage_failure(error.what());
    }
    if (!runner.after_dashes.empty() && !app.got_subcommand("run")) {
        return usage_failure("only run takes a command after --");
    }
    runner.remaining = app.get_subcommands().front()->remaining();
    return std::nullopt;
}

} // namespace runner
