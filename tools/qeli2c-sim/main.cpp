// qeli2c-sim, the board runner: programs see the I2C buses of a simulated board.
#include "commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace
{

constexpr int kFailed = 1;
constexpr int kUsage = 2;

struct Arguments {
    runner::BoardChoice choice;
    std::string name;
    std::vector<std::string> cut; // from "--" on
    bool json = false;
};

void add_choice(CLI::App &command, Arguments &arguments)
{
    command
        .add_option("--board", arguments.choice.file,
                    "Board file; else $QELI2C_BOARD, else the reference board")
        ->type_name("FILE");
    command
        .add_option("--speed", arguments.choice.speed,
                    "Wire time on all buses: instant, 100k or 400k; else as the board file says")
        ->check(CLI::IsMember({"instant", "100k", "400k"}))
        ->type_name("SPEED");
}

CLI::App *add_run(CLI::App &app, Arguments &arguments)
{
    CLI::App *const run =
        app.add_subcommand("run", "Run a command on a board of its own that is gone afterwards");
    add_choice(*run, arguments);
    run->prefix_command();
    run->footer("COMMAND and its arguments follow, after -- when they start with a dash. The exit\n"
                "status is the command's, or 128 and the number of the signal that killed it.");
    return run;
}

// What follows the first "--" is the command's own affair and kept from the argument parser.
std::vector<std::string> cut_at_dashes(int &argc, char **argv)
{
    char **const end = argv + argc;
    char **const dashes = std::find_if(
        argv, end, [](const char *argument) { return std::strcmp(argument, "--") == 0; });
    argc = static_cast<int>(dashes - argv);
    return {dashes, end};
}

std::vector<std::string> command_of(const CLI::App &run, const std::vector<std::string> &cut)
{
    std::vector<std::string> command = run.remaining();
    const bool starts_with_dashes = command.empty() && !cut.empty();
    command.insert(command.end(), cut.begin() + (starts_with_dashes ? 1 : 0), cut.end());
    return command;
}

int usage_failure(const std::string &message)
{
    std::cerr << "qeli2c-sim: " << message << " (see 'qeli2c-sim --help')\n";
    return kUsage;
}

int dispatch(const CLI::App &app, const Arguments &arguments)
{
    const std::string name = arguments.name;
    if (app.got_subcommand("run")) {
        const std::vector<std::string> command =
            command_of(*app.get_subcommand("run"), arguments.cut);
        return command.empty() ? usage_failure("no command to run")
                               : runner::run_command(arguments.choice, command);
    }
    if (!arguments.cut.empty()) {
        return usage_failure("only run takes a command after --");
    }
    if (app.got_subcommand("start")) {
        return runner::start_board(arguments.choice, name.empty() ? "default" : name);
    }
    if (app.got_subcommand("stop")) {
        return runner::stop_board(name.empty() ? "default" : name);
    }
    if (app.got_subcommand("list")) {
        return runner::list_all_boards();
    }
    return runner::report_board(name, arguments.json);
}

} // namespace

int main(int argc, char **argv)
{
    Arguments arguments;
    arguments.cut = cut_at_dashes(argc, argv);
    CLI::App app("Simulated boards: programs reach the I2C buses of a described board as "
                 "/dev/i2c-N, without root",
                 "qeli2c-sim");
    app.set_version_flag("--version", "qeli2c-sim " QELI2C_VERSION);
    app.require_subcommand(1);
    add_run(app, arguments);
    CLI::App *const start = app.add_subcommand(
        "start", "Make a board that stays, and print what a shell needs to use it");
    add_choice(*start, arguments);
    start->add_option("NAME", arguments.name, "Name of the board; else \"default\"");
    app.add_subcommand("stop", "Delete a board that start has made")
        ->add_option("NAME", arguments.name, "Name of the board; else \"default\"");
    app.add_subcommand("list", "List this user's boards");
    CLI::App *const report = app.add_subcommand(
        "report",
        "Print what the board has counted; exit status 1 when something went wrong on it");
    report->add_option("NAME", arguments.name,
                       "Name of the board; else that of $QELI2C_SIM, else \"default\"");
    report->add_flag("--json", arguments.json, "Print it as JSON");
    try {
        app.parse(argc, argv);
        return dispatch(app, arguments);
    } catch (const CLI::Success &success) { // --help, --version
        return app.exit(success);
    } catch (const CLI::Error &error) {
        return usage_failure(error.what());
    } catch (const std::exception &error) {
        std::cerr << "qeli2c-sim: " << error.what() << "\n";
        return kFailed;
    }
}
