// What a case says about what it saw.
#include "check.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace board
{

std::string in_hex(const Bytes &bytes)
{
    std::string text;
    for (const uint8_t byte : bytes) {
        char digits[4];
        (void)std::snprintf(digits, sizeof digits, "%02x", byte);
        text += (text.empty() ? "" : " ") + std::string(digits);
    }
    return text.empty() ? "nothing" : text;
}

void fail(Check &check, const std::string &why)
{
    if (check.failure.empty())
        check.failure = why;
}

bool is_true(Check &check, const std::string &what, bool value)
{
    if (!value)
        fail(check, "not so: " + what);
    return value;
}

bool equal(Check &check, const std::string &what, const std::string &got, const std::string &wanted)
{
    if (got != wanted)
        fail(check, what + ": " + got + " instead of " + wanted);
    return got == wanted;
}

bool equal(Check &check, const std::string &what, int64_t got, int64_t wanted)
{
    return equal(check, what, std::to_string(got), std::to_string(wanted));
}

bool equal(Check &check, const std::string &what, const Bytes &got, const Bytes &wanted)
{
    return equal(check, what, in_hex(got), in_hex(wanted));
}

bool refused(Check &check, const std::string &what, int64_t result, int64_t wanted_result,
             int wanted_errno)
{
    const int error = errno;
    return equal(check, "result of " + what, result, wanted_result) &&
           equal(check, "errno of " + what, std::string(strerrorname_np(error)),
                 std::string(strerrorname_np(wanted_errno)));
}

} // namespace board
