// The form of --help: usage lines as manual pages write them.
#ifndef QELI2C_HELP_H
#define QELI2C_HELP_H

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>

namespace tool
{

// Positional arguments carry their whole notation in their names, such as "REGISTER [COUNT]".
class HelpFormatter : public CLI::Formatter
{
public:
    std::string make_option_usage(const CLI::Option *option) const override
    {
        const std::string name = make_option_name(option, true);
        return option->get_required() ? name : "[" + name + "]";
    }

    std::string make_option_opts(const CLI::Option *option) const override
    {
        return option->get_positional() ? "" : CLI::Formatter::make_option_opts(option);
    }

    std::string make_footer(const CLI::App *app) const override
    {
        std::string text = CLI::Formatter::make_footer(app);
        if (app->get_parent() != nullptr)
            text += "\nEvery command also takes the options that 'qeli2c --help' lists.\n";
        return text;
    }
};

} // namespace tool

#endif
