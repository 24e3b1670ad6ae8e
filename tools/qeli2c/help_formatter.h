// How --help is laid out, by every program here. Only for the files that parse command lines: CLI11
// takes long to compile.
#ifndef QELI2C_HELP_FORMATTER_H
#define QELI2C_HELP_FORMATTER_H

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>

namespace tool
{

// Positional arguments carry their whole notation in their names: usage lines as manual pages write
// them.
class HelpFormatter : public CLI::Formatter
{
public:
    HelpFormatter()
    {
        column_width(23);
        label("SUBCOMMAND", "COMMAND");
        label("Subcommands", "Commands");
        label("Positionals", "Arguments");
    }

    std::string make_option_usage(const CLI::Option *option) const override
    {
        const std::string name = make_option_name(option, true);
        return option->get_required() ? name : "[" + name + "]";
    }

    std::string make_option_opts(const CLI::Option *option) const override
    {
        return option->get_positional() ? "" : CLI::Formatter::make_option_opts(option);
    }
};

} // namespace tool

#endif
