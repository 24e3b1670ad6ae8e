// Which level of the log goes where: the environment variable QELPLATFORM_LOG, read when the
// library is loaded.
#ifndef PLATFORM_LOG_SETTINGS_H
#define PLATFORM_LOG_SETTINGS_H

#include "platform/log_sink.h"

#include <array>

constexpr uint32_t kTraceLevel = 135;
constexpr uint32_t kHighestLevel = 255;

extern std::array<Sink, kHighestLevel + 1> log_sinks;

// Higher levels than there are count as the highest: an unknown severity must not vanish.
inline Sink sink_of(uint32_t level)
{
    return log_sinks[level < kHighestLevel ? level : kHighestLevel];
}

#endif
