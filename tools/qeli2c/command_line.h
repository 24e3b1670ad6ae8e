// The command line: what a command says about its arguments, and the parsing of them all.
#ifndef QELI2C_COMMAND_LINE_H
#define QELI2C_COMMAND_LINE_H

#include "tool.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

// A command with the text that ends its --help. `chosen` runs when the command line names it.
CLI::App &add_command(CLI::App &app, const char *name, const char *description, const char *footer,
                      std::function<void()> chosen);

// A required positional argument.
void add_argument(CLI::App &command, const char *name, std::string &value, const char *description);

enum class Number { any, at_least_one };

// The positional arguments after it; `name` is their whole notation, such as "REGISTER [COUNT]".
void add_arguments(CLI::App &command, const char *name, std::vector<std::string> &values,
                   const char *description, Number number);

// An option with a value, which is called `type` in --help and is one of `choices` if there are
// any.
void add_option(CLI::App &command, const char *name, std::string &value, const char *type,
                const char *description, const std::vector<std::string> &choices = {});

void add_flag(CLI::App &command, const char *name, bool &value, const char *description);

// Fills the options and the action of `tool`, or returns the exit status when there is nothing to
// do.
std::optional<int> parse_command_line(int argc, char **argv, Tool &tool);

} // namespace tool

#endif
