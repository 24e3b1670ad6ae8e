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

struct SetsOfDescriptors {
    fd_set read;
    fd_set write;
    fd_set except;
};

void keep(fd_set &kept, const fd_set *set)
{
    if (set != nullptr) {
        kept = *set;
    }
}

void restore(fd_set *set, const fd_set &kept)
{
    if (set != nullptr) {
        *set = kept;
    }
}

// `whole` less the time since `start`, not below zero. Subtracting cannot overflow, however long
// the wait is.
timeval remaining(const timeval &whole, const timespec &start)
{
    const timespec now = monotonic_now();
    timeval left = whole;
    left.tv_sec -= now.tv_sec - start.tv_sec;
    left.tv_usec -=
        static_cast<suseconds_t>((now.tv_nsec - start.tv_nsec) / kNanosecondsPerMicrosecond);
    if (left.tv_usec < 0) {
        left.tv_usec += kMicrosecondsPerSecond;
        left.tv_sec -= 1;
    }
    return left.tv_sec < 0 ? timeval{} : left;
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
    SetsOfDescriptors asked;
    keep(asked.read, readfds);
    keep(asked.write, writefds);
    keep(asked.except, exceptfds);
    const timeval whole = timeout != nullptr ? *timeout : timeval{};
    const timespec start = timeout != nullptr ? monotonic_now() : timespec{};
    for (;;) {
        const int ready = select(nfds, readfds, writefds, exceptfds, timeout);
        if (ready >= 0 || errno != EINTR) {
            return ready;
        }
        restore(readfds, asked.read);
        restore(writefds, asked.write);
        restore(exceptfds, asked.except);
        if (timeout != nullptr) {
            *timeout = remaining(whole, start);
        }
    }
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
