// Child processes.
#include "child.h"

#include "failure.h"
#include "interrupt.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <iterator>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tool
{

namespace
{

volatile std::sig_atomic_t g_child = 0;

void pass_on(int number)
{
    const int saved = errno;
    if (g_child > 0)
        kill(static_cast<pid_t>(g_child), number);
    errno = saved;
}

[[noreturn]] void become(const std::vector<std::string> &words, pid_t parent,
                         const sigset_t &unblocked)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent)
        _exit(EXIT_FAILED);
    for (const int number : {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGPIPE})
        std::signal(number, SIG_DFL);
    sigprocmask(SIG_SETMASK, &unblocked, nullptr);
    std::vector<char *> arguments;
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    std::fprintf(stderr, "qeli2c: cannot run '%s': %s\n", arguments[0], std::strerror(errno));
    _exit(errno == ENOENT ? 127 : 126);
}

constexpr int kSignals[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};
struct sigaction g_before[std::size(kSignals)]; // how they were handled before the child

// With the signals blocked, after the child was forked.
void watch_over(pid_t child)
{
    sigset_t pending;
    sigpending(&pending);
    for (const int number : {SIGINT, SIGQUIT}) // the terminal may have sent it before the fork
        if (sigismember(&pending, number) == 1)
            kill(child, number);
    if (const int noted = noted_signal())
        kill(child, noted);
    struct sigaction ignored {
    };
    ignored.sa_handler = SIG_IGN;
    struct sigaction passed_on {
    };
    passed_on.sa_handler = pass_on;
    for (size_t i = 0; i < std::size(kSignals); i++) {
        const bool from_terminal = kSignals[i] == SIGINT || kSignals[i] == SIGQUIT;
        sigaction(kSignals[i], from_terminal ? &ignored : &passed_on, &g_before[i]);
    }
    g_child = child;
}

int exit_status(int status)
{
    g_child = 0;
    for (size_t i = 0; i < std::size(kSignals); i++)
        sigaction(kSignals[i], &g_before[i], nullptr);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

pid_t start_child(const std::vector<std::string> &words)
{
    std::cout.flush();
    std::fflush(stdout);
    // None gets lost, or finds either process unprepared.
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    for (const int number : kSignals)
        sigaddset(&blocked, number);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    const pid_t self = getpid();
    const pid_t child = fork();
    const int error = errno;
    if (child == 0)
        become(words, self, before);
    if (child > 0)
        watch_over(child);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (child < 0)
        throw operation_failed(std::string("no process for the command: ") + std::strerror(error));
    return child;
}

int status_of_child(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return exit_status(status);
}

bool child_ended(pid_t child, int &status)
{
    int raw = 0;
    if (waitpid(child, &raw, WNOHANG) != child)
        return false;
    status = exit_status(raw);
    return true;
}

} // namespace tool
