// The report's part about locks.
#include "report_locks.h"

#include <cstdio>

namespace runner
{

std::string duration_text(uint64_t nanoseconds)
{
    if (nanoseconds == 0) {
        return "-";
    }
    const char *const units[] = {"us", "ms", "s"};
    if (nanoseconds < 1000) {
        return std::to_string(nanoseconds) + " ns";
    }
    double value = static_cast<double>(nanoseconds) / 1000;
    size_t unit = 0;
    while (value >= 999.5 && unit < 2) {
        value /= 1000;
        unit++;
    }
    char text[32];
    const int decimals = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
    std::snprintf(text, sizeof(text), "%.*f %s", decimals, value, units[unit]);
    return text;
}

std::string process_label(const simboard::ProcessCounters &process)
{
    return process.pid == 0 ? "(earlier processes)"
                            : std::to_string(process.pid) + " " + process.name;
}

void print_locks(const std::vector<simboard::ProcessCounters> &processes)
{
    bool first = true;
    for (const simboard::ProcessCounters &process : processes) {
        for (uint32_t bus = 0; bus < simboard::kBuses; bus++) {
            const simboard::Counters &counters = process.by_bus[bus];
            if (counters.longest_hold_ns == 0 && counters.longest_wait_ns == 0) {
                continue;
            }
            if (first) {
                std::printf("\n%-23s %3s %14s %14s\n", "lock", "bus", "longest hold",
                            "longest wait");
                first = false;
            }
            std::printf("%-23.23s %3u %14s %14s\n", process_label(process).c_str(), bus,
                        duration_text(counters.longest_hold_ns).c_str(),
                        duration_text(counters.longest_wait_ns).c_str());
        }
    }
}

} // namespace runner
