// Where log lines can go, and the one place that writes them there.
#ifndef PLATFORM_LOG_SINK_H
#define PLATFORM_LOG_SINK_H

#include <cstddef>
#include <cstdint>

enum class Sink : uint8_t { standard_error, syslog, none };

// Writes one line, which ends with a newline. Takes no lock, may change errno.
void write_log_line(Sink sink, uint32_t level, const char *line, size_t length);

#endif
