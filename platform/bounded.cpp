// Bounds-checked memory and string functions. Misuse gives a negative result with errno EINVAL (a
// pointer that cannot be right, overlapping areas) or ERANGE (does not fit).
#include "platform/exported.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace
{

int refused(int reason)
{
    errno = reason;
    return -1;
}

bool overlap(const void *a, const void *b, size_t count)
{
    const auto first = reinterpret_cast<uintptr_t>(a);
    const auto second = reinterpret_cast<uintptr_t>(b);
    return (first < second ? second - first : first - second) < count;
}

} // namespace

int qel_memset_s(void *dest, size_t dest_size, int value, size_t count)
{
    if (count == 0) {
        return 0;
    }
    if (dest == nullptr) {
        return refused(EINVAL);
    }
    if (count > dest_size) {
        return refused(ERANGE);
    }
    memset(dest, value, count);
    return 0;
}

int qel_memcpy_s(void *dest, size_t dest_size, const void *source, size_t count)
{
    if (count == 0) {
        return 0;
    }
    if (dest == nullptr || source == nullptr) {
        return refused(EINVAL);
    }
    if (count > dest_size) {
        return refused(ERANGE);
    }
    if (overlap(dest, source, count)) {
        return refused(EINVAL);
    }
    memcpy(dest, source, count);
    return 0;
}

int qel_snprintf_s(char *dest, size_t dest_size, const char *format, ...)
{
    if (dest == nullptr || dest_size == 0 || format == nullptr) {
        return refused(EINVAL);
    }
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(dest, dest_size, format, args);
    va_end(args);
    if (length < 0) {
        dest[0] = '\0';
        return -1;
    }
    return static_cast<size_t>(length) < dest_size ? length : refused(ERANGE);
}

int qel_printf_s(const char *format, ...)
{
    if (format == nullptr) {
        return refused(EINVAL);
    }
    va_list args;
    va_start(args, format);
    const int length = vprintf(format, args);
    va_end(args);
    return length;
}

const char *qel_strerror_s(int errnum)
{
    if (const char *text = strerrordesc_np(errnum)) {
        return text;
    }
    static thread_local char unknown[32];
    const int callers_errno = errno;
    snprintf(unknown, sizeof unknown, "Unknown error %d", errnum);
    errno = callers_errno;
    return unknown;
}
