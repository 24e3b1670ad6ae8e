// The forms in which all modules write log lines and report failed argument checks.
//
// A module names itself once, as `kLogTag`, before it uses any of these; the tag and the line of
// the call begin each of its lines. The platform's logging calls keep errno; its other calls, the
// text of an errno included, need not.
#ifndef QELI2C_BUS_REPORT_H
#define QELI2C_BUS_REPORT_H

#include <cerrno>
#include <cstdint>

#include "platform/qelplatform.h"

// Only what went wrong calls these; the compiler then keeps the calls out of the way of what goes
// well.
// NOLINTBEGIN(readability-redundant-declaration): for the attribute
extern "C" {
[[gnu::cold]] void IDBG_LINUXAPP_DbgOut(uint32_t level, const char *format, ...);
[[gnu::cold]] void sspFailedStat(const char *file, uint32_t line);
[[gnu::cold]] const char *qel_strerror_s(int errnum);
}
// NOLINTEND(readability-redundant-declaration)

// An error line at 130 or 132, and a run-time line at 135; a line without values is a text.
#define QEL_ERROR(level, format, ...)                                                              \
    IDBG_LINUXAPP_DbgOut(level, "[%s:%d]" format, kLogTag, __LINE__, __VA_ARGS__)
#define QEL_ERROR_TEXT(level, text) IDBG_LINUXAPP_DbgOut(level, "[%s:%d]" text, kLogTag, __LINE__)

#define QEL_RUNTIME(format, ...)                                                                   \
    IDBG_LINUXAPP_Runtime_DbgOut(135, "[%s:%d]" format, kLogTag, __LINE__, __VA_ARGS__)
#define QEL_RUNTIME_TEXT(text) IDBG_LINUXAPP_Runtime_DbgOut(135, "[%s:%d]" text, kLogTag, __LINE__)

// The same for a format whose last two values are errno and its text.
#define QEL_ERROR_ERRNO(level, format, ...)                                                        \
    do {                                                                                           \
        const int error_ = errno;                                                                  \
        QEL_ERROR(level, format, __VA_ARGS__, error_, qel_strerror_s(error_));                     \
        errno = error_;                                                                            \
    } while (0)
#define QEL_RUNTIME_ERRNO(format, ...)                                                             \
    do {                                                                                           \
        const int error_ = errno;                                                                  \
        QEL_RUNTIME(format, __VA_ARGS__, error_, qel_strerror_s(error_));                          \
        errno = error_;                                                                            \
    } while (0)

// A line at 180 that names the reporting function or step: as an error, or plainly.
#define QEL_AUDIT(function, format, ...)                                                           \
    IDBG_LINUXAPP_AuditOut(180, "[err:%s:%d]" format, function, __LINE__, __VA_ARGS__)
#define QEL_AUDIT_TEXT(function, text)                                                             \
    IDBG_LINUXAPP_AuditOut(180, "[err:%s:%d]" text, function, __LINE__)
#define QEL_AUDIT_PLAIN(function, format, ...)                                                     \
    IDBG_LINUXAPP_AuditOut(180, "[%s:%d]" format, function, __LINE__, __VA_ARGS__)
#define QEL_AUDIT_PLAIN_TEXT(function, text)                                                       \
    IDBG_LINUXAPP_AuditOut(180, "[%s:%d]" text, function, __LINE__)

// Text on standard output.
#define QEL_PRINT(...)                                                                             \
    do {                                                                                           \
        const int error_ = errno;                                                                  \
        (void)qel_printf_s(__VA_ARGS__);                                                           \
        errno = error_;                                                                            \
    } while (0)

// Reports a null argument and returns `result`; in the name of the function it stands in, or of
// another one.
#define QEL_REQUIRE(argument, result) QEL_REQUIRE_AS(__func__, argument, result)
#define QEL_REQUIRE_AS(function, argument, result)                                                 \
    do {                                                                                           \
        if ((argument) == nullptr) {                                                               \
            qel_report_null(kLogTag, __LINE__, function, "assertion failed: " #argument " != 0");  \
            return result;                                                                         \
        }                                                                                          \
    } while (0)

inline void qel_report_null(const char *tag, uint32_t line, const char *function, const char *text)
{
    sspFailedStat(tag, line);
    _ssp_error(255, tag, line, function, text);
}

#endif
