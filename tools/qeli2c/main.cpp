// qeli2c, the command-line tool: global options, the choice of a command, exit status.
#include "failure.h"
#include "help.h"
#include "interrupt.h"
#include "tool.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <string_view>
#include <unistd.h>

#ifndef QELI2C_VERSION
#define QELI2C_VERSION "unknown"
#endif

namespace
{

constexpr char TRACE_VARIABLE[] = "QELPLATFORM_LOG";
constexpr char TRACE_SETTING[] = "135=stderr";

void add_global_options(CLI::App &app, tool::Options &options)
{
    app.set_version_flag("--version", "qeli2c " QELI2C_VERSION);
    app.add_option("--board", options.board_file, "Board file; else $QELI2C_BOARD")
        ->type_name("FILE");
    app.add_flag("--json", options.json, "Print results as JSON");
    app.add_flag("-y,--yes", options.yes, "Do not ask before delicate writes");
    app.add_flag("-q,--quiet", options.quiet, "Print nothing but results and errors");
    app.add_flag("-v,--verbose", options.verbose, "Show the library's trace lines");
}

// Where the library's lines go is read from the environment when the program is loaded: load it
// again.
void restart_with_trace(char **argv)
{
    const char *current = std::getenv(TRACE_VARIABLE);
    if (current && std::string_view(current).ends_with(TRACE_SETTING))
        return;
    std::string setting = current && *current ? std::string(current) + "," : "";
    setting += TRACE_SETTING;
    setenv(TRACE_VARIABLE, setting.c_str(), 1);
    execv("/proc/self/exe", argv);
    std::cerr << "qeli2c: no trace: " << std::strerror(errno) << "\n";
}

int usage_failure(const CLI::App &app, const CLI::Error &error)
{
    std::string command = "qeli2c";
    for (const CLI::App *chosen : app.get_subcommands())
        command += " " + chosen->get_name();
    std::string message = error.what();
    for (char &character : message)
        if (character == '\n')
            character = ' ';
    std::cerr << "qeli2c: " << message << " (see '" << command << " --help')\n";
    return tool::EXIT_USAGE;
}

int run(const std::function<void()> &action)
{
    int status = tool::EXIT_DONE;
    try {
        action();
    } catch (const tool::Failure &failure) {
        std::cerr << "qeli2c: " << failure.message << "\n";
        status = failure.status;
    }
    std::cout.flush();
    if (!std::cout) {
        if (errno != EPIPE)
            std::cerr << "qeli2c: cannot write the results: " << std::strerror(errno) << "\n";
        status = tool::EXIT_FAILED;
    }
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    tool::Tool tool;
    CLI::App app("Reads and writes devices on I2C buses, through the switches in front of them.",
                 "qeli2c");
    app.formatter(std::make_shared<tool::HelpFormatter>());
    app.require_subcommand(0, 1);
    app.fallthrough();
    add_global_options(app, tool.options);
    tool::add_scan(app, tool);
    tool::add_get(app, tool);
    tool::add_set(app, tool);
    tool::add_xfer(app, tool);
    tool::add_list(app, tool);
    app.footer("A device is a path, upstream first, or its name in the board file:\n"
               "4/0x70.5/0x71.3/0x50 is bus 4, through channel 5 of the switch at 0x70 and\n"
               "channel 3 of the switch at 0x71, to 0x50. Numbers are decimal, 0x or 0b.\n"
               "Without --board and $QELI2C_BOARD, /etc/qeli2c/board.json is read if it\n"
               "exists. Exit status: 0 done, 1 failed, 2 wrong usage.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &success) {
        return app.exit(success);
    } catch (const CLI::ParseError &error) {
        return usage_failure(app, error);
    }
    if (!tool.action) {
        std::cerr << "qeli2c: no command: scan, get, set, xfer or list (see 'qeli2c --help')\n";
        return tool::EXIT_USAGE;
    }
    if (tool.options.verbose)
        restart_with_trace(argv);
    int status = tool::EXIT_FAILED;
    try {
        status = run(tool.action);
    } catch (const std::exception &error) {
        std::cerr << "qeli2c: " << error.what() << "\n";
    }
    tool::end_if_interrupted();
    return status;
}
