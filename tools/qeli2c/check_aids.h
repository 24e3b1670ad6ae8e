// What the checks of the platform services are made of. What waits without limit does so in a
// process of its own: whether it got what it waits for is seen from outside.
#ifndef QELI2C_CHECK_AIDS_H
#define QELI2C_CHECK_AIDS_H

#include "failure.h"
#include "platform_checks.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tool
{

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kShortly{300}; // long enough for what must not come
constexpr milliseconds kAtLast{5000}; // for what must come, on a busy machine too
constexpr milliseconds kSlack{2000};

inline Finding kept()
{
    return {Verdict::ok, ""};
}

inline Finding broken(const std::string &reason)
{
    return {Verdict::failed, reason};
}

inline Finding broken_by_errno(const std::string &call)
{
    return broken(call + " failed: " + std::strerror(errno));
}

inline Finding skipped(const std::string &reason)
{
    return {Verdict::skipped, reason};
}

// A process that does one thing, says whether it was done, and stays until it is ended.
class Other
{
public:
    template <typename Act>
    explicit Other(Act act)
    {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0 || (process_ = fork()) < 0)
            throw operation_failed(std::string("no process for a check: ") + std::strerror(errno));
        answers_ = ends[0];
        if (process_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const char answer = act() ? 'y' : 'n';
            if (write(ends[1], &answer, 1) == 1)
                for (;;)
                    pause();
            _exit(EXIT_FAILED);
        }
        close(ends[1]);
    }
    ~Other()
    {
        end();
        close(answers_);
    }
    Other(const Other &) = delete;
    Other &operator=(const Other &) = delete;

    bool says_yes_within(milliseconds time) const
    {
        pollfd answer{answers_, POLLIN, 0};
        char word = 0;
        return poll(&answer, 1, static_cast<int>(time.count())) > 0 &&
               read(answers_, &word, 1) == 1 && word == 'y';
    }
    void end()
    {
        if (process_ <= 0)
            return;
        kill(process_, SIGKILL);
        while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
        }
        process_ = -1;
    }

private:
    pid_t process_ = -1;
    int answers_ = -1;
};

// A signal every ten milliseconds, whose handler interrupts system calls.
class Signals
{
public:
    Signals()
    {
        struct sigaction action {
        };
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        set(10'000);
    }
    ~Signals() { set(0); }
    Signals(const Signals &) = delete;
    Signals &operator=(const Signals &) = delete;

private:
    static void set(suseconds_t interval)
    {
        const itimerval timer{{0, interval}, {0, interval}};
        setitimer(ITIMER_REAL, &timer, nullptr);
    }
};

template <typename Act>
milliseconds time_of(Act act)
{
    const auto start = steady_clock::now();
    act();
    return std::chrono::duration_cast<milliseconds>(steady_clock::now() - start);
}

// Empty when it took as long as it should.
inline std::string wrong_time(milliseconds took, milliseconds wanted)
{
    if (took >= wanted && took <= wanted + kSlack)
        return "";
    return "it took " + std::to_string(took.count()) + " ms instead of " +
           std::to_string(wanted.count());
}

} // namespace tool

#endif
