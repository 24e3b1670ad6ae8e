// Finding a device's record when 1, 100 or 10,000 devices are known: the time to reach the last two
// of so many in the list, in turns, and to find the same device again.
#include "benchmarks.h"
#include "rounds.h"

#include "qeli2c.h"

namespace bench
{

namespace
{

constexpr uint32_t kFirstBus = 100; // a list has as many buses and addresses as one likes
constexpr uint32_t kDevicesOfABus = 1000;
constexpr unsigned kCounts[] = {1, 100, 10000};
constexpr unsigned kCalls = 10;

bool look_up(uint32_t device)
{
    return ui2c_to_client(kFirstBus + device / kDevicesOfABus,
                          static_cast<uint16_t>(device % kDevicesOfABus), 0, 0) != nullptr;
}

void lookup(benchmark::State &state)
{
    std::vector<Subject> subjects;
    for (uint32_t device = 0; device < kCounts[2]; device++)
        (void)look_up(device);
    for (const unsigned count : kCounts)
        subjects.push_back(
            subject("of_" + std::to_string(count), kCalls, [count, turn = 0U]() mutable {
                return look_up(count - 1 - (count > 1 ? turn++ % 2 : 0));
            }));
    compare(state, kCalls, subjects);
}

void lookup_again(benchmark::State &state)
{
    (void)look_up(kCounts[2] - 1);
    compare(state, kCalls, {subject("of_10000", kCalls, [] { return look_up(kCounts[2] - 1); })});
}

} // namespace

void add_lookup_benchmarks(double scale)
{
    const auto rounds = static_cast<int64_t>(1000 * scale) + 2;
    benchmark::RegisterBenchmark("lookup", lookup)->UseManualTime()->Iterations(rounds);
    benchmark::RegisterBenchmark("lookup_again", lookup_again)->UseManualTime()->Iterations(rounds);
}

} // namespace bench
