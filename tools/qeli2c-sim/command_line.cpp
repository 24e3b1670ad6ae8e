// The command line, parsed by CLI11: it takes long to compile, and only this file includes it.
#include "command_line.h"
#include "tools/qeli2c/help_formatter.h"
#include "tools/qeli2c/manual.h"
#include "tools/qeli2c/number.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <memory>
#include <utility>

namespace runner
{

namespace
{

// Whose --help a usage failure points to.
std::string chosen_program = "qeli2c-sim";

class RunnerHelp : public tool::HelpFormatter
{
public:
    std::string make_usage(const CLI::App *app, std::string name) const override
    {
        std::string usage = tool::HelpFormatter::make_usage(app, std::move(name));
        if (app->get_prefix_command()) {
            usage.insert(usage.find_last_not_of('\n') + 1, " [--] COMMAND...");
        }
        return usage;
    }
};

constexpr tool::Manual kManual = {
    "simulated boards with I2C buses",
    ".SH ENVIRONMENT\n"
    ".TP\n.B QELI2C_BOARD\nThe board file, where \\-\\-board is not given.\n"
    ".TP\n.B QELI2C_SIM\nThe board that is meant, where no name is given.\n"
    "Set inside run, and by what start prints, with LD_PRELOAD and QELI2C_BOARD.\n"
    ".TP\n.B QELI2C_SIM_DIR\nWhere boards are kept; else in XDG_RUNTIME_DIR, /dev/shm or /tmp.\n"
    ".TP\n.B TMPDIR\nWhere traces wait that come faster than they are written; else /var/tmp.\n"
    ".TP\n.B NO_COLOR\nWhen set and not empty, nothing is coloured.\n"
    ".SH SEE ALSO\n"
    "qeli2c(1), qeli2c\\-board(5), qeli2c\\-faults(5)\n"};

std::string to_decimal(std::string &text)
{
    const std::optional<uint32_t> number = tool::parse_number(text);
    if (!number) {
        return "'" + text + "' is not a number (write decimal, 0x or 0b)";
    }
    text = std::to_string(*number);
    return "";
}

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
    command.add_option(name, value, description)
        ->type_name(type)
        ->transform(CLI::Validator(to_decimal, ""));
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
    std::cerr << "qeli2c-sim: " << line << " (see '" << chosen_program << " --help')\n";
    return kUsage;
}

std::optional<int> parse_command_line(int argc, char **argv, Runner &runner,
                                      void (*add_commands)(CLI::App &, Runner &))
{
    runner.after_dashes = cut_at_dashes(argc, argv);
    CLI::App app("Simulated boards: I2C buses at /dev/i2c-N for programs, without root",
                 "qeli2c-sim");
    app.formatter(std::make_shared<RunnerHelp>());
    app.set_version_flag("--version", "qeli2c-sim " QELI2C_VERSION);
    app.require_subcommand(0, 1); // a mistyped one is told by its name
    app.footer("A board of its own for one command: qeli2c-sim run -- i2cdetect -l\n"
               "A board that stays: eval \"$(qeli2c-sim start NAME)\"\n"
               "Exit status: 0 done, 1 failed, 2 wrong usage.");
    add_commands(app, runner);
    if (argc == 2 && std::strcmp(argv[1], "--man") == 0) { // how the build makes the manual page
        std::cout << tool::manual_page(app, kManual);
        return kDone;
    }
    const auto note_command = [&app] {
        for (const CLI::App *command : app.get_subcommands()) {
            chosen_program += " " + command->get_name();
        }
    };
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &success) { // --help, --version
        return app.exit(success);
    } catch (const CLI::Error &error) {
        note_command();
        return usage_failure(error.what());
    }
    note_command();
    if (!runner.action) {
        return usage_failure("no command given");
    }
    if (!runner.after_dashes.empty() && !app.got_subcommand("run")) {
        return usage_failure("only run takes a command after --");
    }
    runner.remaining = app.get_subcommands().front()->remaining();
    return std::nullopt;
}

} // namespace runner
