// Nanoseconds on the clocks that all processes share.
#ifndef SIMBOARD_CLOCK_H
#define SIMBOARD_CLOCK_H

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

} // namespace simboard

#endif
