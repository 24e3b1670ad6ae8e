// What the forms of the trace have in common.
#include "trace_style.h"

#include "simboard/clock.h"

#include <cstdio>
#include <cstring>
#include <ctime>

namespace runner
{

TraceStyle trace_style(const simboard::State &state)
{
    TraceStyle style;
    style.created_ns = state.header.created_ns;
    style.realtime_offset =
        static_cast<int64_t>(simboard::clock_ns(CLOCK_REALTIME) - simboard::now_ns());
    return style;
}

std::string clock_time(const TraceStyle &style, uint64_t monotonic_ns, bool with_date)
{
    constexpr int64_t kSecond = 1'000'000'000;
    const int64_t now = static_cast<int64_t>(monotonic_ns) + style.realtime_offset;
    const time_t seconds = static_cast<time_t>(now / kSecond);
    tm parts;
    char date[32];
    char text[64];
    if (with_date) {
        gmtime_r(&seconds, &parts);
        std::strftime(date, sizeof(date), "%Y-%m-%dT%H:%M:%S", &parts);
        std::snprintf(text, sizeof(text), "%s.%09dZ", date, static_cast<int>(now % kSecond));
    } else {
        localtime_r(&seconds, &parts);
        std::strftime(date, sizeof(date), "%H:%M:%S", &parts);
        std::snprintf(text, sizeof(text), "%s.%06d", date, static_cast<int>(now % kSecond / 1000));
    }
    return text;
}

std::vector<const char *> finding_names(uint16_t findings)
{
    const struct {
        uint16_t bit;
        const char *name;
    } names[] = {
        {simboard::kFindingConflict, "conflict"},
        {simboard::kFindingForeign, "foreign"},
        {simboard::kFindingTwoChannels, "two-channels"},
        {simboard::kFindingOrphan, "orphan"},
        {simboard::kFindingFault, "fault"},
    };
    std::vector<const char *> found;
    for (const auto &name : names) {
        if ((findings & name.bit) != 0) {
            found.push_back(name.name);
        }
    }
    return found;
}

std::string result_of(const simboard::TransferRecord &record)
{
    if (record.result < 0) {
        return error_name(record.result);
    }
    const std::string all = std::to_string(record.messages.size());
    const std::string done = std::to_string(record.result);
    return done == all ? "ok" : done + " of " + all;
}

std::string error_name(int32_t result)
{
    const char *const name = strerrorname_np(-result);
    return name != nullptr ? name : "errno " + std::to_string(-result);
}

bool is_addressed(const simboard::MessageRecord &message)
{
    return (message.flags & I2C_M_NOSTART) == 0;
}

} // namespace runner
