// Debug output, assertion and audit reports: each becomes one line in the sink of its level.
#include "platform/exported.h"
#include "platform/log_settings.h"
#include "platform/log_sink.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// Failed checks of this process since it started; no call reads it, a debugger or a core file does.
extern std::atomic<uint32_t> qelplatform_failed_checks;
constinit std::atomic<uint32_t> qelplatform_failed_checks{0};

namespace
{

struct Origin {
    const char *file;
    uint32_t line;
    const char *function;
};

const char *name_or_mark(const char *name)
{
    return name != nullptr ? name : "?";
}

// Like vsnprintf: writes at most `size` bytes with the NUL and returns the length of the whole
// line, negative when it cannot be formatted.
QELPLATFORM_PRINTF(4, 0)
int64_t compose(char *buffer, size_t size, const Origin *origin, const char *format, va_list args)
{
    int64_t length = 0;
    if (origin != nullptr) {
        length = snprintf(buffer, size, "[%s:%u]%s: ", name_or_mark(origin->file), origin->line,
                          name_or_mark(origin->function));
        if (length < 0) {
            return -1;
        }
    }
    const size_t used = static_cast<uint64_t>(length) < size ? static_cast<size_t>(length) : size;
    const int text = vsnprintf(buffer + used, size - used, format, args);
    return text < 0 ? -1 : length + text;
}

// `line` has room for one byte more than `length`.
void write_terminated(Sink sink, uint32_t level, char *line, size_t length)
{
    if (length == 0 || line[length - 1] != '\n') {
        line[length++] = '\n';
    }
    write_log_line(sink, level, line, length);
}

QELPLATFORM_PRINTF(4, 0)
void put_line(uint32_t level, Sink sink, const Origin *origin, const char *format, va_list args)
{
    const int callers_errno = errno;
    if (format == nullptr) {
        format = "(no text)";
    }
    char small[1024];
    constexpr size_t kRoom = sizeof small - 1;
    va_list again;
    va_copy(again, args);
    const int64_t length = compose(small, kRoom, origin, format, args);
    const auto wanted = static_cast<size_t>(length);
    char *large = nullptr;
    if (length < 0) {
        snprintf(small, kRoom, "(cannot be formatted) %s", format);
        write_terminated(sink, level, small, strlen(small));
    } else if (wanted < kRoom) {
        write_terminated(sink, level, small, wanted);
    } else if ((large = static_cast<char *>(malloc(wanted + 2))) != nullptr) {
        errno = callers_errno; // for %m
        compose(large, wanted + 1, origin, format, again);
        write_terminated(sink, level, large, wanted);
        free(large);
    } else {
        memcpy(small + kRoom - 5, " ...", sizeof " ...");
        write_terminated(sink, level, small, kRoom - 1);
    }
    va_end(again);
    errno = callers_errno;
}

QELPLATFORM_PRINTF(4, 5)
void put_origin_line(uint32_t level, Sink sink, const Origin *origin, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    put_line(level, sink, origin, format, args);
    va_end(args);
}

} // namespace

void IDBG_LINUXAPP_DbgOut(uint32_t level, const char *format, ...)
{
    const Sink sink = sink_of(level);
    if (sink == Sink::none) {
        return;
    }
    va_list args;
    va_start(args, format);
    put_line(level, sink, nullptr, format, args);
    va_end(args);
}

void IDBG_LINUXAPP_Runtime_DbgOut(uint32_t level, const char *format, ...)
{
    const Sink sink = sink_of(level);
    if (sink == Sink::none) {
        return;
    }
    va_list args;
    va_start(args, format);
    put_line(level, sink, nullptr, format, args);
    va_end(args);
}

void IDBG_LINUXAPP_AuditOut(uint32_t level, const char *format, ...)
{
    const Sink sink = sink_of(level);
    if (sink == Sink::none) {
        return;
    }
    va_list args;
    va_start(args, format);
    put_line(level, sink, nullptr, format, args);
    va_end(args);
}

// The text of the failed check follows in _ssp_error.
void sspFailedStat(const char *, uint32_t)
{
    qelplatform_failed_checks.fetch_add(1, std::memory_order_relaxed);
}

void _ssp_error(uint32_t level, const char *file, uint32_t line, const char *function,
                const char *text)
{
    const Sink sink = sink_of(level);
    if (sink == Sink::none) {
        return;
    }
    const Origin origin = {file, line, function};
    put_origin_line(level, sink, &origin, "%s", name_or_mark(text));
}

void _ssp_info(uint32_t level, const char *file, uint32_t line, const char *function,
               const char *format, ...)
{
    const Sink sink = sink_of(level);
    if (sink == Sink::none) {
        return;
    }
    const Origin origin = {file, line, function};
    va_list args;
    va_start(args, format);
    put_line(level, sink, &origin, format, args);
    va_end(args);
}
