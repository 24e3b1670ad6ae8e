// What --help tells, as a manual page and as completion of the shell: all from the description of
// the command line. For every program here.
#ifndef QELI2C_MANUAL_H
#define QELI2C_MANUAL_H

#include <string>

namespace CLI
{
class App;
}

namespace tool
{

// What a manual page tells beyond the command line; `end` is roff.
struct Manual {
    const char *purpose; // completes "NAME - "
    const char *end;
};

std::string manual_page(const CLI::App &app, const Manual &manual);
std::string bash_completion(const CLI::App &app);

} // namespace tool

#endif
