// Children and signals for tests that need more than one process.
#include "tests/platform/process.h"

#include <csignal>
#include <sys/prctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

pid_t start_child(const std::function<bool()> &body)
{
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child != 0) {
        return child;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    _exit(getppid() == parent && body() ? 0 : 1);
}

bool ends_well(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status == 0;
}

void kill_child(pid_t child)
{
    kill(child, SIGKILL);
    ends_well(child);
}

void wait_until(const std::function<bool()> &condition)
{
    while (!condition()) {
        usleep(500);
    }
}

namespace
{

std::atomic<int> &handled = shared<std::atomic<int>>();

void set_timer(suseconds_t microseconds)
{
    const itimerval timer = {{0, microseconds}, {0, microseconds}};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

} // namespace

SignalStorm::SignalStorm()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { ++handled; };
    sigaction(SIGALRM, &action, nullptr);
    set_timer(2000);
}

SignalStorm::~SignalStorm()
{
    set_timer(0);
    signal(SIGALRM, SIG_IGN);
}

void wait_for_storm()
{
#ifdef __SANITIZE_THREAD__
    usleep(100'000); // handlers are put off until the call that is interrupted has ended
#else
    const int before = handled;
    for (int steps = 0; steps < 4000 && handled < before + 3; ++steps) {
        usleep(500);
    }
#endif
}
