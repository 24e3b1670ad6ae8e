// The cases on the emulated board:
//   board-guest LINE [PREFIX]  runs all whose names begin with PREFIX, each in a process of its
//                              own, and reports them by name on the serial line; files whose cases
//                              went another way than they say go to the host as they went
#include "link.h"
#include "play.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using board::Case;
using board::Lines;

// What happened comes through a pipe.
[[noreturn]] void play_in_child(const Case &one, int out)
{
    (void)alarm(one.seconds);
    const std::string text = board::play(one);
    const ssize_t written = write(out, text.data(), text.size());
    _exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
}

Lines read_all(int in)
{
    std::string text;
    char buffer[4096];
    for (ssize_t count; (count = read(in, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<size_t>(count));
    std::istringstream stream(text);
    Lines lines;
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

std::string how_it_ended(const Case &one, int status)
{
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
        return "not done after " + std::to_string(one.seconds) + " s";
    if (WIFSIGNALED(status))
        return std::string("killed by ") + strsignal(WTERMSIG(status));
    return WEXITSTATUS(status) == 0 ? "" : "could not report";
}

// The first line that differs.
std::string difference(const Lines &got, const Lines &wanted)
{
    size_t at = 0;
    while (at < got.size() && at < wanted.size() && got[at] == wanted[at])
        at++;
    if (at == got.size() && at == wanted.size())
        return "";
    const auto line = [at](const Lines &lines) {
        return at < lines.size() ? lines[at] : "nothing";
    };
    return "line " + std::to_string(at) + ": '" + line(got) + "' instead of '" + line(wanted) + "'";
}

// What it gives takes the case's lines' place.
bool run(Case &one)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) // a case may leave a program running
        return false;
    const pid_t child = fork();
    if (child == 0) {
        (void)close(ends[0]);
        play_in_child(one, ends[1]);
    }
    (void)close(ends[1]);
    Lines played = read_all(ends[0]);
    (void)close(ends[0]);
    int status = 0;
    (void)waitpid(child, &status, 0);
    std::string why = how_it_ended(one, status);
    if (why.empty()) {
        why = difference(played, one.lines);
        one.lines = played;
    }
    board::link::say(why.empty() ? "PASS " + one.name : "FAIL " + one.name + ": " + why);
    return why.empty();
}

void send_files(const std::vector<Case> &cases, const std::set<std::string> &files)
{
    std::string last;
    for (const Case &one : cases) {
        if (!files.contains(one.file))
            continue;
        if (one.file != last)
            for (const std::string &line : one.before)
                board::link::say("OUT " + one.file + " " + line);
        last = one.file;
        for (const std::string &line : one.lines)
            board::link::say("OUT " + one.file + " " + line);
    }
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        (void)std::fprintf(stderr, "usage: board-guest LINE [PREFIX]\n");
        return 2;
    }
    const std::string prefix = argc > 2 ? argv[2] : "";
    board::link::open_line(argv[1]);
    std::vector<Case> cases = board::read_cases();
    std::set<std::string> changed;
    size_t reported = 0;
    for (Case &one : cases) {
        if (!one.name.starts_with(prefix))
            continue;
        if (!run(one))
            changed.insert(one.file);
        reported++;
    }
    send_files(cases, changed);
    board::link::say("DONE " + std::to_string(reported));
    return 0;
}
