// The commands of qeli2c-sim, one entry each. To add one: its own file with its `add_` function,
// declared here, called in main.cpp and listed in qeli2c-sim.cmake.
#ifndef QELI2C_SIM_COMMANDS_H
#define QELI2C_SIM_COMMANDS_H

#include <functional>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace runner
{

struct Runner {
    std::vector<std::string> remaining;    // what a command with stop_at_first_argument left
    std::vector<std::string> after_dashes; // "--" and what followed it; only `run` takes any
    std::function<int()> action;           // what was asked for; its result is the exit status
};

// Each adds its command to the command line and, when that command is chosen, sets runner.action.
// An action fails by throwing Failure or std::runtime_error with one line for the person who typed
// it.
void add_run(CLI::App &app, Runner &runner);
void add_start(CLI::App &app, Runner &runner);
void add_stop(CLI::App &app, Runner &runner);
void add_status(CLI::App &app, Runner &runner);
void add_reset(CLI::App &app, Runner &runner);
void add_peek(CLI::App &app, Runner &runner);
void add_poke(CLI::App &app, Runner &runner);
void add_load(CLI::App &app, Runner &runner);
void add_save(CLI::App &app, Runner &runner);
void add_check(CLI::App &app, Runner &runner);
void add_verify(CLI::App &app, Runner &runner);
void add_report(CLI::App &app, Runner &runner);
void add_show(CLI::App &app, Runner &runner);
void add_trace(CLI::App &app, Runner &runner);
void add_inject(CLI::App &app, Runner &runner);
void add_serve(CLI::App &app, Runner &runner);

} // namespace runner

#endif
