// What a command says about its arguments, and the parsing of them all.
#ifndef QELI2C_SIM_COMMAND_LINE_H
#define QELI2C_SIM_COMMAND_LINE_H

#include "commands.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace runner
{

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;

// Thrown by an action: the arguments make no sense together.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A command; `footer` ends its --help.
CLI::App &add_command(CLI::App &app, Runner &runner, const char *name, const char *description,
                      const char *footer, std::function<int()> action);

// Positional arguments, in their order.
void add_argument(CLI::App &command, const char *name, std::string &value, const char *description);
void add_optional_argument(CLI::App &command, const char *name, std::string &value,
                           const char *description);
void add_arguments(CLI::App &command, const char *name, std::vector<std::string> &values,
                   const char *description, size_t at_least);

// An option with a value, called `type` in --help, and one of `choices` if there are any.
void add_option(CLI::App &command, const char *name, std::string &value, const char *type,
                const char *description, const std::vector<std::string> &choices = {});
// May be given several times.
void add_options(CLI::App &command, const char *name, std::vector<std::string> &values,
                 const char *type, const char *description);
void add_number(CLI::App &command, const char *name, std::optional<uint64_t> &value,
                const char *type, const char *description);
void add_flag(CLI::App &command, const char *name, bool &value, const char *description);

// From the first argument that is no option on, everything goes to runner.remaining.
void stop_at_first_argument(CLI::App &command);

// Sets runner.action, or returns the exit status when there is nothing to do.
std::optional<int> parse_command_line(int argc, char **argv, Runner &runner,
                                      void (*add_commands)(CLI::App &, Runner &));

// One line on standard error; kUsage.
int usage_failure(const std::string &message);

} // namespace runner

#endif
