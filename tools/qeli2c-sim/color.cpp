// Colours on terminals.
#include "color.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace runner
{

void add_color_option(CLI::App &command, std::string &when)
{
    when = "auto";
    add_option(command, "--color", when, "WHEN", "auto (on terminals), always or never",
               {"auto", "always", "never"});
}

bool wants_color(const std::string &when)
{
    if (when != "auto") {
        return when == "always";
    }
    const char *const no_color = std::getenv("NO_COLOR");
    const char *const terminal = std::getenv("TERM");
    const bool can = terminal != nullptr && std::strcmp(terminal, "dumb") != 0;
    return isatty(STDOUT_FILENO) == 1 && can && (no_color == nullptr || *no_color == '\0');
}

} // namespace runner
