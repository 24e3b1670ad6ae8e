// What --help tells, as a manual page and as completion of the shell: all from the description of
// the command line.
#ifndef QELI2C_MANUAL_H
#define QELI2C_MANUAL_H

#include <string>

namespace CLI
{
class App;
}

namespace tool
{

std::string manual_page(const CLI::App &app);
std::string bash_completion(const CLI::App &app);

} // namespace tool

#endif
