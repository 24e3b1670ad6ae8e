// Reads QELPLATFORM_LOG, a comma list of LEVEL=SINK: LEVEL is 0 to 255 (decimal or 0x) or "all",
// SINK is "stderr", "syslog" or "none". Later entries win.
#include "platform/log_settings.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr char kVariable[] = "QELPLATFORM_LOG";

constexpr std::array<Sink, kHighestLevel + 1> kDefaultSinks()
{
    std::array<Sink, kHighestLevel + 1> sinks{};
    sinks[kTraceLevel] = Sink::none;
    return sinks;
}

struct Range {
    uint32_t first;
    uint32_t last;
};

bool equals(const char *text, size_t length, const char *word)
{
    return strlen(word) == length && strncmp(text, word, length) == 0;
}

bool parse_levels(const char *text, size_t length, Range &levels)
{
    if (equals(text, length, "all")) {
        levels = {0, kHighestLevel};
        return true;
    }
    if (*text < '0' || *text > '9') {
        return false; // strtoul would take blanks and signs
    }
    const int base = strncmp(text, "0x", 2) == 0 ? 16 : 10;
    char *end = nullptr;
    const unsigned long level = strtoul(text, &end, base);
    if (end != text + length || level > kHighestLevel) {
        return false;
    }
    levels = {static_cast<uint32_t>(level), static_cast<uint32_t>(level)};
    return true;
}

bool parse_sink(const char *text, size_t length, Sink &sink)
{
    if (equals(text, length, "stderr")) {
        sink = Sink::standard_error;
    } else if (equals(text, length, "syslog")) {
        sink = Sink::syslog;
    } else if (equals(text, length, "none")) {
        sink = Sink::none;
    } else {
        return false;
    }
    return true;
}

bool apply_entry(const char *entry, size_t length)
{
    const auto *separator = static_cast<const char *>(memchr(entry, '=', length));
    Range levels = {};
    Sink sink = Sink::none;
    if (separator == nullptr ||
        !parse_levels(entry, static_cast<size_t>(separator - entry), levels) ||
        !parse_sink(separator + 1, static_cast<size_t>(entry + length - separator - 1), sink)) {
        return false;
    }
    std::fill(log_sinks.begin() + levels.first, log_sinks.begin() + levels.last + 1, sink);
    return true;
}

void report_bad_entry(const char *entry, size_t length)
{
    char line[256];
    const int used = snprintf(line, sizeof line,
                              "%s: \"%.*s\" ignored: expected LEVEL=SINK, LEVEL 0 to 255 or all, "
                              "SINK stderr, syslog or none\n",
                              kVariable, static_cast<int>(std::min<size_t>(length, 80)), entry);
    write_log_line(Sink::standard_error, kHighestLevel, line, static_cast<size_t>(used));
}

__attribute__((constructor)) void read_settings()
{
    const char *entry = secure_getenv(kVariable);
    while (entry != nullptr && *entry != '\0') {
        const size_t length = strcspn(entry, ",");
        if (!apply_entry(entry, length)) {
            report_bad_entry(entry, length);
        }
        entry += length;
        entry += *entry == ',' ? 1 : 0;
    }
}

} // namespace

constinit std::array<Sink, kHighestLevel + 1> log_sinks = kDefaultSinks();
