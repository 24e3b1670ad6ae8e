// The command line: what a command says about its arguments, and the parsing of them all.
#ifndef QELI2C_COMMAND_LINE_H
#define QELI2C_COMMAND_LINE_H

#include "tool.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

// A command, or one of the commands of a group, with the text that ends its --help. `chosen` runs
// when the command line names it.
CLI::App &add_command(CLI::App &app, const char *name, const char *description, const char *footer,
                      std::function<void()> chosen);

// A command that consists of commands: one of those has to follow.
CLI::App &add_group(CLI::App &app, const char *name, const char *description,
                    const char *footer = "");

template <typename Arguments>
struct Command {
    CLI::App &app;
    Arguments &arguments; // lives as long as the command line
};

// The same for a command that keeps its arguments in a record and is done by `run`.
template <typename Arguments>
Command<Arguments> add_command(CLI::App &app, Tool &tool, const char *name, const char *description,
                               const char *footer, void (*run)(const Arguments &, const Options &))
{
    auto arguments = std::make_shared<Arguments>();
    CLI::App &command = add_command(app, name, description, footer, [arguments, run, &tool] {
        tool.action = [arguments = *arguments, run](const Options &options) {
            run(arguments, options);
        };
    });
    tool.forget.push_back([arguments] { *arguments = {}; });
    return {command, *arguments};
}

// A required positional argument.
void add_argument(CLI::App &command, const char *name, std::string &value, const char *description);

// The usual first one: "DEVICE".
void add_device(CLI::App &command, std::string &value);

// "[FILE]", which stands for standard input or output when it is "-" or not given.
void add_file(CLI::App &command, std::string &value);

enum class Number { any, at_least_one };

// The positional arguments after it; `name` is their whole notation, such as "REGISTER [COUNT]".
void add_arguments(CLI::App &command, const char *name, std::vector<std::string> &values,
                   const char *description, Number number);

// An option with a value, which is called `type` in --help and is one of `choices` if there are
// any.
void add_option(CLI::App &command, const char *name, std::string &value, const char *type,
                const char *description, const std::vector<std::string> &choices = {});

void add_flag(CLI::App &command, const char *name, bool &value, const char *description);

// What the command line asks for, with `options` changed to how it is to be done. Without an action
// there is nothing to do: help was asked for and shown.
Action parse_command_line(const std::vector<std::string> &words, Options &options);

} // namespace tool

#endif
