// System calls that go on after a signal handler has run, and that leak no descriptor into a child.
#include "platform/exported.h"

#include <cerrno>
#include <cstdarg>
#include <ctime>
#include <fcntl.h>

namespace
{

constexpr long kNanosecondsPerSecond = 1'000'000'000;
constexpr long kNanosecondsPerMicrosecond = 1'000;
constexpr long kMicrosecondsPerSecond = 1'000'000;

timespec monotonic_now()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

int64_t microseconds_of(const timeval &time)
{
    int64_t microseconds = 0;
    if (__builtin_mul_overflow(int64_t{time.tv_sec}, kMicrosecondsPerSecond, &microseconds) ||
        __builtin_add_overflow(microseconds, time.tv_usec, &microseconds)) {
        return INT64_MAX;
    }
    return microseconds;
}

// `whole` less the time since `start`, not below zero.
timeval remaining(int64_t whole, const timespec &start)
{
    const timespec now = monotonic_now();
    const int64_t elapsed = int64_t{now.tv_sec - start.tv_sec} * kMicrosecondsPerSecond +
                            (now.tv_nsec - start.tv_nsec) / kNanosecondsPerMicrosecond;
    const int64_t left = whole > elapsed ? whole - elapsed : 0;
    return {static_cast<time_t>(left / kMicrosecondsPerSecond),
            static_cast<suseconds_t>(left % kMicrosecondsPerSecond)};
}

// After an interruption. An interrupted select leaves the sets as they were, and Linux notes in
// `timeout` what is left of it. Where that is not noted, under emulators, the time counts from the
// first interruption. Kept out of the way of a select that is not interrupted.
[[gnu::noinline]] int go_on_selecting(int nfds, fd_set *readfds, fd_set *writefds,
                                      fd_set *exceptfds, timeval *timeout)
{
    const int64_t whole = timeout != nullptr ? microseconds_of(*timeout) : 0;
    const timespec start = monotonic_now();
    int ready = -1;
    do {
        ready = select(nfds, readfds, writefds, exceptfds, timeout);
        if (ready < 0 && timeout != nullptr)
            *timeout = remaining(whole, start);
    } while (ready < 0 && errno == EINTR);
    return ready;
}

} // namespace

int sigwrap_open(const char *path, int flags, ...)
{
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) {
        va_list args;
        va_start(args, flags);
        mode = va_arg(args, mode_t);
        va_end(args);
    }
    int fd = -1;
    do {
        fd = open(path, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

int sigwrap_select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds,
                   struct timeval *timeout)
{
    if (nfds > FD_SETSIZE) {
        errno = EINVAL; // an fd_set ends there, whatever the kernel would accept
        return -1;
    }
    const int ready = select(nfds, readfds, writefds, exceptfds, timeout);
    if (ready >= 0 || errno != EINTR)
        return ready;
    return go_on_selecting(nfds, readfds, writefds, exceptfds, timeout);
}

void select_sleep(uint32_t seconds, uint32_t microseconds)
{
    timespec end = monotonic_now();
    end.tv_sec += seconds;
    end.tv_sec += microseconds / kMicrosecondsPerSecond;
    end.tv_nsec +=
        static_cast<long>(microseconds % kMicrosecondsPerSecond) * kNanosecondsPerMicrosecond;
    if (end.tv_nsec >= kNanosecondsPerSecond) {
        end.tv_nsec -= kNanosecondsPerSecond;
        end.tv_sec += 1;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
}
