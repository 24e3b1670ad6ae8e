// qeli2c-sim, the board runner: programs see the I2C buses of a simulated board.
#include "command_line.h"
#include "tools/qeli2c/failure.h"
#include "tools/standard_files.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iostream>

namespace
{

void add_commands(CLI::App &app, runner::Runner &runner)
{
    runner::add_run(app, runner);
    runner::add_start(app, runner);
    runner::add_stop(app, runner);
    runner::add_status(app, runner);
    runner::add_reset(app, runner);
    runner::add_peek(app, runner);
    runner::add_poke(app, runner);
    runner::add_load(app, runner);
    runner::add_save(app, runner);
    runner::add_check(app, runner);
    runner::add_verify(app, runner);
    runner::add_report(app, runner);
    runner::add_show(app, runner);
    runner::add_trace(app, runner);
    runner::add_inject(app, runner);
    runner::add_serve(app, runner);
}

int fail(const std::string &message)
{
    std::cout.flush();
    std::cerr << "qeli2c-sim: " << message << "\n";
    return runner::kFailed;
}

int act(const runner::Runner &runner)
{
    try {
        return runner.action();
    } catch (const runner::UsageError &error) {
        return runner::usage_failure(error.what());
    } catch (const tool::Failure &failure) {
        return failure.status == runner::kUsage ? runner::usage_failure(failure.message)
                                                : fail(failure.message);
    } catch (const std::exception &error) {
        return fail(error.what());
    }
}

// Results that could not be written are a failure; a reader that has seen enough is not told.
bool results_written()
{
    errno = 0;
    std::cout.flush();
    if (std::cout && std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return true;
    }
    if (errno != EPIPE) {
        std::cerr << "qeli2c-sim: cannot write the results: " << std::strerror(errno) << "\n";
    }
    return false;
}

} // namespace

int main(int argc, char **argv)
{
    fill_closed_standard_files();
    runner::Runner runner;
    try {
        if (const std::optional<int> done =
                runner::parse_command_line(argc, argv, runner, add_commands)) {
            return *done;
        }
    } catch (const std::exception &error) {
        return fail(error.what());
    }
    const int status = act(runner);
    return results_written() || status != runner::kDone ? status : runner::kFailed;
}
