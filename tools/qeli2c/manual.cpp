// The manual page and the completion, written from the description of the command line.
#include "manual.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cctype>
#include <sstream>
#include <vector>

namespace tool
{

namespace
{

// Text for roff: backslashes and hyphens as they are, no line that looks like a request.
std::string roff(const std::string &text)
{
    std::string safe;
    for (const char c : text) {
        const bool at_start = safe.empty() || safe.back() == '\n';
        if (at_start && (c == '.' || c == '\''))
            safe += "\\&";
        safe += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
    }
    return safe;
}

std::string upper_case(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

std::string full_name(const CLI::App &app)
{
    return app.get_parent() ? full_name(*app.get_parent()) + " " + app.get_name() : app.get_name();
}

std::vector<const CLI::App *> commands_of(const CLI::App &app)
{
    return app.get_subcommands(std::function<bool(const CLI::App *)>{});
}

std::vector<const CLI::Option *> options_of(const CLI::App &app)
{
    std::vector<const CLI::Option *> options;
    for (const CLI::Option *option : app.get_options())
        if (!option->get_group().empty())
            options.push_back(option);
    return options;
}

std::string option_name(const CLI::Option &option)
{
    if (option.get_positional())
        return option.get_name(true);
    std::string name;
    for (const std::string &part : option.get_snames())
        name += (name.empty() ? "-" : ", -") + part;
    for (const std::string &part : option.get_lnames())
        name += (name.empty() ? "--" : ", --") + part;
    const std::string type = option.get_type_size() > 0 ? option.get_type_name() : "";
    return type.empty() ? name : name + " " + type;
}

void write_options(std::ostream &page, const CLI::App &app)
{
    for (const CLI::Option *option : options_of(app))
        if (option->get_name(false, true) != "-h,--help")
            page << ".TP\n.B " << roff(option_name(*option)) << "\n"
                 << roff(option->get_description()) << "\n";
}

void write_lines(std::ostream &page, const std::string &text)
{
    if (!text.empty())
        page << ".PP\n.nf\n" << roff(text) << "\n.fi\n";
}

void write_command(std::ostream &page, const CLI::App &command)
{
    std::string usage = full_name(command);
    for (const CLI::Option *option : options_of(command)) {
        if (!option->get_positional())
            continue;
        const std::string name = option->get_name(true);
        usage += option->get_required() ? " " + name : " [" + name + "]";
    }
    if (command.get_prefix_command())
        usage += " [--] COMMAND...";
    page << ".SS \"" << roff(usage) << "\"\n" << roff(command.get_description()) << ".\n";
    write_options(page, command);
    write_lines(page, command.get_footer());
    for (const CLI::App *inner : commands_of(command))
        write_command(page, *inner);
}

std::string words(const CLI::App &app)
{
    std::string text;
    for (const CLI::App *command : commands_of(app))
        text += command->get_name() + " ";
    for (const CLI::Option *option : options_of(app))
        for (const std::string &name : option->get_lnames())
            text += "--" + name + " ";
    return text;
}

void write_case(std::ostream &script, const CLI::App &app)
{
    const std::string name = full_name(app);
    const size_t blank = name.find(' ');
    script << "    \"" << (blank == std::string::npos ? "" : name.substr(blank + 1))
           << "\") words='" << words(app) << "'";
    for (const CLI::Option *option : options_of(app)) {
        if (!option->get_positional())
            continue;
        const std::string what = option->get_name(true);
        if (what == "DEVICE" || what == "DEVICE..." || what == "MONITOR..." ||
            what == "SWITCH..." || what == "PATH")
            script << " devices=1";
        else if (what == "FILE")
            script << " files=1";
    }
    script << " ;;\n";
    for (const CLI::App *command : commands_of(app))
        write_case(script, *command);
}

} // namespace

std::string manual_page(const CLI::App &app, const Manual &manual)
{
    const std::string name = app.get_name();
    const bool has_commands = !commands_of(app).empty();
    std::ostringstream page;
    page << ".TH " << upper_case(roff(name)) << " 1 \"\" \"" << app.version() << "\"\n"
         << ".SH NAME\n"
         << roff(name) << " \\- " << roff(manual.purpose) << "\n"
         << ".SH SYNOPSIS\n.B " << roff(name) << "\n"
         << (has_commands ? "[OPTIONS] COMMAND [ARGUMENTS]\n" : "[OPTIONS]\n")
         << ".SH DESCRIPTION\n"
         << roff(app.get_description()) << "\n";
    write_lines(page, app.get_footer());
    page << ".SH OPTIONS\n" << (app.get_fallthrough() ? "Every command takes them.\n" : "");
    write_options(page, app);
    if (has_commands)
        page << ".SH COMMANDS\n";
    for (const CLI::App *command : commands_of(app))
        write_command(page, *command);
    page << manual.end;
    return page.str();
}

std::string bash_completion(const CLI::App &app)
{
    std::ostringstream script;
    script << "# Completion of qeli2c for bash.\n"
              "_qeli2c()\n{\n"
              "    local cur=${COMP_WORDS[COMP_CWORD]} path= word i words= devices= files=\n"
              "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
              "        word=${COMP_WORDS[i]}\n"
              "        case \"$path\" in\n"
              "        '') case \" ";
    for (const CLI::App *command : commands_of(app))
        script << command->get_name() << " ";
    script << "\" in *\" $word \"*) path=$word ;; esac ;;\n";
    for (const CLI::App *command : commands_of(app)) {
        if (commands_of(*command).empty())
            continue;
        script << "        " << command->get_name() << ") case \" ";
        for (const CLI::App *inner : commands_of(*command))
            script << inner->get_name() << " ";
        script << "\" in *\" $word \"*) path=\"$path $word\" ;; esac ;;\n";
    }
    script << "        esac\n    done\n    case \"$path\" in\n";
    write_case(script, app);
    script << "    esac\n"
              "    [[ $cur == -* || -z $devices ]] ||\n"
              "        words+=\" $(qeli2c list 2>/dev/null | cut -d' ' -f1)\"\n"
              "    COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n"
              "    [[ -z $files ]] || COMPREPLY+=($(compgen -f -- \"$cur\"))\n"
              "}\n"
              "complete -F _qeli2c qeli2c\n";
    return script.str();
}

} // namespace tool
