// Signal handling of the command-line programs.
#include "interrupt.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <initializer_list>
#include <unistd.h>

namespace tool
{

namespace
{

volatile std::sig_atomic_t g_signal = 0;
bool g_person_watching = false;

template <size_t Size>
void say(const char (&text)[Size])
{
    (void)!write(STDERR_FILENO, text, Size - 1);
}

void note_signal(int number)
{
    const int saved = errno;
    if (g_signal) {
        say("\nended at once; a switch may be left open\n");
        _exit(128 + number);
    }
    g_signal = number;
    if (g_person_watching)
        say("\nending after the running transfer; once more ends at once\n");
    errno = saved;
}

} // namespace

void defer_interrupts()
{
    g_person_watching = isatty(STDERR_FILENO);
    struct sigaction action {
    };
    action.sa_handler = note_signal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction before {
        };
        sigaction(number, nullptr, &before);
        if (before.sa_handler != SIG_IGN) // as nohup and the shell's background jobs want it
            sigaction(number, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
}

bool interrupted()
{
    return g_signal != 0;
}

int noted_signal()
{
    return g_signal;
}

bool pause_unless_interrupted(std::chrono::nanoseconds time)
{
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    timespec left{};
    left.tv_sec = static_cast<time_t>(seconds.count());
    left.tv_nsec = static_cast<long>((time - seconds).count());
    while (!g_signal && nanosleep(&left, &left) < 0 && errno == EINTR) {
    }
    return !g_signal;
}

void end_if_interrupted()
{
    if (!g_signal)
        return;
    std::signal(g_signal, SIG_DFL);
    std::raise(g_signal);
}

} // namespace tool
