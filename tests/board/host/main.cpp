// Starts the emulated board and passes on what its cases say:
//   board-host run IMAGE [PREFIX]
//                  boots, runs the cases whose names begin with PREFIX, prints a line for each,
//                  does from outside what they ask for
//   board-host shell IMAGE
//                  boots with the console on the terminal
// Runs in the current directory, which receives logs, the EEPROMs' files and the outputs of
// programs. Exit status: 0 when the board came to its end, whatever the cases said; 1 otherwise.
#include "machine.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

namespace
{

using board::Clock;
using board::Machine;

constexpr std::chrono::seconds kTimeLimit(900);
constexpr std::chrono::seconds kTimeWithoutAWord(150);
constexpr std::chrono::seconds kNudgeEvery(2);

// "machine COMMAND" or "property DEVICE PROPERTY VALUE".
std::string do_as_asked(Machine &machine, const std::string &request)
{
    std::istringstream words(request);
    std::string verb;
    std::string device;
    std::string property;
    std::string value;
    words >> verb;
    if (verb == "machine" && request.size() > verb.size() + 1)
        return board::qtest(machine, request.substr(verb.size() + 1));
    if (verb == "property" && words >> device >> property >> value) {
        const std::string why = board::set_property(machine, device, property, value);
        return why.empty() ? "OK" : "FAIL " + why;
    }
    return "FAIL what?";
}

struct Report {
    size_t cases = 0;
    bool complete = false;
    std::set<std::string> outputs; // begun in this run
};

// "NAME TEXT": a line of a program's output.
void keep_output(Report &report, const std::string &words)
{
    const size_t blank = words.find(' ');
    const std::string file = words.substr(0, blank) + ".out";
    const bool first = report.outputs.insert(file).second;
    std::ofstream stream(file, first ? std::ios::trunc : std::ios::app);
    stream << (blank == std::string::npos ? "" : words.substr(blank + 1)) << "\n";
}

void take(Machine &machine, Report &report, const std::string &line)
{
    const size_t blank = line.find(' ');
    const std::string word = line.substr(0, blank);
    const std::string rest = blank == std::string::npos ? "" : line.substr(blank + 1);
    if (word == "PASS" || word == "FAIL") {
        report.cases++;
        std::puts(line.c_str());
    } else if (word == "ASK") {
        (void)board::send_line(machine.results, do_as_asked(machine, rest));
    } else if (word == "OUT") {
        keep_output(report, rest);
    } else if (word == "DONE") {
        report.complete = rest == std::to_string(report.cases);
        if (!report.complete)
            std::printf("FAIL board/all-cases-heard-of: %zu instead of %s\n", report.cases,
                        rest.c_str());
    } else {
        std::puts(line.c_str());
    }
    (void)std::fflush(stdout);
}

// Now and then the machine falls silent until its serial line gets a byte, as if an interrupt of
// that line had been lost. An empty line does no harm.
std::optional<std::string> next_word(Machine &machine, Clock::time_point end)
{
    const Clock::time_point until = std::min(end, Clock::now() + kTimeWithoutAWord);
    while (Clock::now() < until) {
        auto line = board::next_line(machine.results, std::min(until, Clock::now() + kNudgeEvery));
        if (line)
            return line;
        if (!board::send_line(machine.results, ""))
            break;
    }
    return std::nullopt;
}

int run(const std::string &image, const std::string &prefix)
{
    Machine machine = board::start_machine(board::machine_arguments(image), prefix);
    const Clock::time_point end = Clock::now() + kTimeLimit;
    Report report;
    while (!report.complete) {
        const auto line = next_word(machine, end);
        if (!line)
            break;
        take(machine, report, *line);
    }
    const bool ended = board::end_machine(
        machine, report.complete ? Clock::now() + std::chrono::seconds(15) : Clock::now());
    if (!report.complete)
        std::puts("FAIL board/came-to-its-end: no more was heard of it, see console.log");
    else
        std::puts(ended ? "PASS board/came-to-its-end"
                        : "FAIL board/came-to-its-end: it had to be stopped");
    return report.complete ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    try {
        if ((argc == 3 || argc == 4) && std::strcmp(argv[1], "run") == 0)
            return run(argv[2], argc == 4 ? argv[3] : "");
        if (argc == 3 && std::strcmp(argv[1], "shell") == 0)
            board::become_machine(board::machine_arguments(argv[2]));
    } catch (const std::exception &error) {
        (void)std::fprintf(stderr, "board-host: %s\n", error.what());
        return 1;
    }
    (void)std::fprintf(stderr, "usage: board-host run IMAGE [PREFIX] | board-host shell IMAGE\n");
    return 2;
}
