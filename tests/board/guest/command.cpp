// Running another program of the board.
#include "command.h"

#include <cstdio>
#include <stdexcept>
#include <sys/wait.h>

namespace board
{

Outcome run_command(const std::string &line)
{
    FILE *pipe = popen(("exec 2>&1; " + line).c_str(), "r");
    if (pipe == nullptr)
        throw std::runtime_error("cannot run: " + line);
    Outcome outcome = {};
    char buffer[512];
    for (size_t count; (count = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        outcome.output.append(buffer, count);
    const int status = pclose(pipe);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

} // namespace board
