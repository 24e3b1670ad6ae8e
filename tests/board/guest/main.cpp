// The board's side of the cases: board-guest LINE. On the serial line come, from the host program,
//
//     case SECONDS      one begins, in a process of its own and with a time limit
//     LINE              a line of it without its "$ ": a command of the shell, or with a colon
//                       what this program does itself. "\v" stands for a new line.
//     end               and ends
//
// Back go, for each line, what it printed as a case has it, and "."; for each case "pid N", and
// "over" with the signal that ended it, if one did. Likewise "pid N" for other processes that used
// the bus.
#include "calls.h"
#include "cost.h"
#include "link.h"
#include "tool/requests.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using board::hear;
using board::say;

void say_lines(const std::string &prefix, const std::string &text)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        say(prefix + line);
}

void run_command(const std::string &line)
{
    FILE *pipe = popen(("exec 2>&1; " + line).c_str(), "r");
    if (pipe == nullptr)
        throw std::runtime_error("cannot run: " + line);
    std::string output;
    char buffer[512];
    for (size_t count; (count = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        output.append(buffer, count);
    const int status = pclose(pipe);
    say_lines("  ", output);
    if (status != 0)
        say("? " + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1));
}

//     :3/0x70 08 r1           a transfer without the library, see tool/requests.h
//     :env NAME=VALUE         for the commands that follow
//     :cost 3/50              see cost.h
//     :another 400 CALL       :killed CALL          :waits CALL          CALL: see calls.h
std::string do_line(const std::string &line)
{
    std::istringstream words(line);
    std::string verb;
    std::string first;
    words >> verb >> first;
    const std::string rest = line.substr(std::min(line.size(), verb.size() + 1));
    if (isdigit(verb.at(1)) != 0)
        return transfer_line(line);
    if (verb == ":env") {
        const size_t equals = first.find('=');
        (void)setenv(first.substr(0, equals).c_str(), first.substr(equals + 1).c_str(), 1);
        return "";
    }
    if (verb == ":cost")
        return board::note_cost(first);
    if (verb == ":another")
        return board::call_of_another(std::stol(first), rest.substr(first.size() + 1));
    if (verb == ":killed")
        return board::call_before_death(rest);
    if (verb == ":waits")
        return board::call_that_waits(rest);
    return board::call_line(line.substr(1));
}

[[noreturn]] void play_case(unsigned seconds)
{
    (void)alarm(seconds);
    say("pid " + std::to_string(getpid()));
    for (;;) {
        std::string line = hear();
        if (line == "end")
            _exit(0);
        std::replace(line.begin(), line.end(), '\v', '\n');
        try {
            if (line.starts_with(':'))
                say_lines("  ", do_line(line));
            else
                run_command(line);
        } catch (const std::exception &error) {
            say_lines("! ", error.what());
        }
        say(".");
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        (void)std::fprintf(stderr, "usage: board-guest LINE\n");
        return 2;
    }
    board::open_link(argv[1]);
    say("ready");
    for (std::string line; (line = hear()) != "done";) {
        if (!line.starts_with("case ")) // for one that has ended
            continue;
        const pid_t child = fork();
        if (child == 0)
            play_case(static_cast<unsigned>(std::stoul(line.substr(5))));
        int status = 0;
        (void)waitpid(child, &status, 0);
        say(WIFSIGNALED(status) ? std::string("over ") + strsignal(WTERMSIG(status)) : "over");
    }
    return 0;
}
