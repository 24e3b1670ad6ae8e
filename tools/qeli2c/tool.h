// What the commands of qeli2c share: global options, the board, failures, and one entry per
// command.
#ifndef QELI2C_TOOL_H
#define QELI2C_TOOL_H

#include "board_file.h"

#include <functional>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace tool
{

struct Options {
    std::string board_file; // --board, empty when not given
    bool json = false;
    bool yes = false;
    bool quiet = false;
    bool verbose = false;
    bool in_batch = false; // the command is a line of it
};

using Action = std::function<void(const Options &options)>;

struct Tool {
    Options options;
    Action action;                             // what the command line asked for
    std::vector<std::function<void()>> forget; // a command's arguments each, before another parsing
};

// Each adds its command and options to the command line and, when that command is chosen, sets
// tool.action.
void add_scan(CLI::App &app, Tool &tool);
void add_get(CLI::App &app, Tool &tool);
void add_set(CLI::App &app, Tool &tool);
void add_dump(CLI::App &app, Tool &tool);
void add_xfer(CLI::App &app, Tool &tool);
void add_smbus(CLI::App &app, Tool &tool);
void add_eeprom(CLI::App &app, Tool &tool);
void add_power(CLI::App &app, Tool &tool);
void add_gpio(CLI::App &app, Tool &tool);
void add_epld(CLI::App &app, Tool &tool);
void add_retimer(CLI::App &app, Tool &tool);
void add_switch(CLI::App &app, Tool &tool);
void add_bus(CLI::App &app, Tool &tool);
void add_batch(CLI::App &app, Tool &tool);
void add_list(CLI::App &app, Tool &tool);
void add_info(CLI::App &app, Tool &tool);
void add_selftest(CLI::App &app, Tool &tool);

} // namespace tool

#endif
