// The cases on the emulated board:
//   board-guest LINE [PREFIX]  runs all whose names begin with PREFIX, each in a process of its
//   own,
//                              and reports them by name on the serial line
//   board-guest status BUS     asks the library for the bus's status, as a program of its own
#include "cases.h"
#include "link.h"
#include "qeli2c.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using board::Case;
using board::Check;

// What a case has to say comes through a pipe: an empty text is a pass.
[[noreturn]] void run_in_child(const Case &one, int out)
{
    (void)alarm(one.seconds);
    Check check;
    try {
        one.run(check);
    } catch (const std::exception &error) {
        board::fail(check, error.what());
    }
    const ssize_t written = write(out, check.failure.data(), check.failure.size());
    _exit(written == static_cast<ssize_t>(check.failure.size()) ? 0 : 1);
}

std::string read_all(int in)
{
    std::string text;
    char buffer[256];
    for (ssize_t count; (count = read(in, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<size_t>(count));
    return text;
}

std::string how_it_ended(const Case &one, int status)
{
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
        return "not done after " + std::to_string(one.seconds) + " s";
    if (WIFSIGNALED(status))
        return std::string("killed by ") + strsignal(WTERMSIG(status));
    return WEXITSTATUS(status) == 0 ? "" : "could not report";
}

bool run(const Case &one)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) // a case may leave a program running
        return false;
    const pid_t child = fork();
    if (child == 0) {
        (void)close(ends[0]);
        run_in_child(one, ends[1]);
    }
    (void)close(ends[1]);
    std::string why = read_all(ends[0]);
    (void)close(ends[0]);
    int status = 0;
    (void)waitpid(child, &status, 0);
    if (const std::string end = how_it_ended(one, status); !end.empty())
        why = end + (why.empty() ? "" : ": " + why);
    for (char &character : why)
        if (character == '\n')
            character = ' ';
    board::link::say(why.empty() ? "PASS " + one.name : "FAIL " + one.name + ": " + why);
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        (void)std::fprintf(stderr, "usage: board-guest LINE [PREFIX] | board-guest status BUS\n");
        return 2;
    }
    if (argc == 3 && std::strcmp(argv[1], "status") == 0) {
        uint8_t bit = 0;
        return i2c_bus_status_check(static_cast<uint32_t>(std::atoi(argv[2])), &bit) == 0 ? 0 : 1;
    }
    board::Cases cases;
    board::add_layout_cases(cases);
    board::add_transfer_cases(cases);
    board::add_hold_cases(cases);
    board::add_driver_cases(cases);
    board::add_eeprom_cases(cases);
    board::add_order_cases(cases);
    board::add_packet_check_cases(cases);
    board::add_witness_cases(cases);
    board::add_refusal_cases(cases);
    board::add_controller_cases(cases);
    board::add_owner_cases(cases);
    board::add_cost_cases(cases);
    board::add_crowd_cases(cases);
    board::add_tool_cases(cases);
    board::add_unit_test_cases(cases);
    board::add_served_cases(cases);

    const std::string prefix = argc > 2 ? argv[2] : "";
    board::link::open_line(argv[1]);
    size_t reported = 0;
    for (const Case &one : cases)
        if (one.name.starts_with(prefix))
            reported += run(one);
    board::link::say("DONE " + std::to_string(reported));
    return 0;
}
