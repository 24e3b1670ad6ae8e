// Nanoseconds on the clocks that all processes share.
#ifndef SIMBOARD_CLOCK_H
#define SIMBOARD_CLOCK_H

#include <errno.h>
#include <pthread.h>
#include <stdint.h>
#include <time.h>

namespace simboard
{

inline uint64_t clock_ns(clockid_t clock)
{
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

inline uint64_t now_ns()
{
    return clock_ns(CLOCK_MONOTONIC);
}

// A sleep to that time of now_ns(), through whatever comes in between.
inline void sleep_until(uint64_t wake_ns)
{
    const timespec until = {static_cast<time_t>(wake_ns / 1'000'000'000),
                            static_cast<long>(wake_ns % 1'000'000'000)};
    int cancel;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
    pthread_setcancelstate(cancel, nullptr);
}

} // namespace simboard

#endif
