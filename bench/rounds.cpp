// Interleaved timing.
#include "rounds.h"

#include <algorithm>
#include <chrono>

namespace bench
{

namespace
{

using Clock = std::chrono::steady_clock;
using Series = std::vector<double>;

double median(Series values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

template <typename Operation>
double median_of_pairs(const Series &first, const Series &second, Operation operation)
{
    Series results(first.size());
    std::transform(first.begin(), first.end(), second.begin(), results.begin(), operation);
    return median(results);
}

} // namespace

void compare(benchmark::State &state, unsigned calls, const std::vector<Subject> &subjects)
{
    std::vector<Series> series(subjects.size());
    size_t round = 0;
    for ([[maybe_unused]] auto _ : state) {
        for (size_t turn = 0; turn < subjects.size(); turn++) {
            const size_t which = (round + turn) % subjects.size(); // none is always the first
            const auto start = Clock::now();
            const bool good = subjects[which].run();
            const std::chrono::duration<double, std::nano> time = Clock::now() - start;
            if (!good) {
                state.SkipWithError((subjects[which].name + " failed").c_str());
                return;
            }
            series[which].push_back(time.count() / calls);
            if (which == 0)
                state.SetIterationTime(time.count() / 1e9);
        }
        round++;
    }
    for (size_t i = 0; i < subjects.size(); i++) {
        const std::string &name = subjects[i].name;
        state.counters[name + "_ns"] = median(series[i]);
        if (i == 0)
            continue;
        state.counters["ratio_" + name] = median_of_pairs(series[0], series[i], std::divides<>());
        state.counters["above_" + name + "_ns"] =
            median_of_pairs(series[0], series[i], std::minus<>());
    }
}

} // namespace bench
