// When to colour what is printed.
#ifndef QELI2C_SIM_COLOR_H
#define QELI2C_SIM_COLOR_H

#include "command_line.h"

#include <string>

namespace runner
{

// --color auto, always or never.
void add_color_option(CLI::App &command, std::string &when);

// "auto" means on a terminal, unless NO_COLOR is set (no-color.org).
bool wants_color(const std::string &when);

} // namespace runner

#endif
