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
timespec g_signal_time; // of the handler alone, which nothing interrupts
bool g_person_watching = false;

// What ends a group of processes may reach one of them twice, from who ended the group and from its
// parent. A person takes longer.
constexpr long kSameSignalMs = 300;

long milliseconds_since_signal()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long>(now.tv_sec - g_signal_time.tv_sec) * 1000 +
           (now.tv_nsec - g_signal_time.tv_nsec) / 1'000'000;
}

template <size_t Size>
void say(const char (&text)[Size])
{
    (void)!write(STDERR_FILENO, text, Size - 1);
}

void note_signal(int number)
{
    const int saved = errno;
    if (!g_signal) {
        g_signal = number;
        clock_gettime(CLOCK_MONOTONIC, &g_signal_time);
        if (g_person_watching)
            say("\nending after the running transfer; once more ends at once\n");
    } else if (milliseconds_since_signal() > kSameSignalMs) {
        say("\nended at once; a switch may be left open\n");
        _exit(128 + number);
    }
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
    sigfillset(&action.sa_mask);
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
