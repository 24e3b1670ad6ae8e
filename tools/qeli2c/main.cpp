// qeli2c, the command-line tool: runs what the command line asks for, gives the exit status.
#include "command_line.h"
#include "failure.h"
#include "interrupt.h"
#include "output.h"
#include "tools/standard_files.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace
{

constexpr char kTraceVariable[] = "QELPLATFORM_LOG";
constexpr char kTraceSetting[] = "135=stderr";

// Where the library's lines go is read from the environment when the program is loaded: load it
// again.
void restart_with_trace(char **argv)
{
    const char *current = std::getenv(kTraceVariable);
    if (current && std::string_view(current).ends_with(kTraceSetting))
        return;
    std::string setting = current && *current ? std::string(current) + "," : "";
    setting += kTraceSetting;
    setenv(kTraceVariable, setting.c_str(), 1);
    execv("/proc/self/exe", argv);
    tool::tell(std::string("no trace: ") + std::strerror(errno));
}

int run(const std::vector<std::string> &words, char **argv)
{
    int status = tool::EXIT_DONE;
    try {
        tool::Options options;
        const tool::Action action = tool::parse_command_line(words, options);
        if (options.verbose && action)
            restart_with_trace(argv);
        if (action)
            action(options);
        tool::flush_results();
    } catch (const tool::Failure &failure) {
        if (!failure.message.empty())
            tool::tell(failure.message);
        status = failure.status;
    }
    std::cout.flush();
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    fill_closed_standard_files();
    int status = tool::EXIT_FAILED;
    try {
        status = run({argv + 1, argv + argc}, argv);
    } catch (const std::exception &error) {
        tool::tell(error.what());
    }
    tool::end_if_interrupted();
    return status;
}
