// Ways to do one thing, timed in turns: every round runs each of them for a moment, so that what
// else the machine does touches all. What counts are medians over the rounds, and of a ratio the
// median of the rounds' ratios.
#ifndef QELI2C_BENCH_ROUNDS_H
#define QELI2C_BENCH_ROUNDS_H

#include <benchmark/benchmark.h>
#include <functional>
#include <string>
#include <vector>

namespace bench
{

struct Subject {
    std::string name;
    std::function<bool()> run; // `calls` of what is measured; false when one failed
};

// The counters: for each subject NAME_ns, per call; for each but the first ratio_NAME, the first's
// time divided by its own, and above_NAME_ns, the difference.
void compare(benchmark::State &state, unsigned calls, const std::vector<Subject> &subjects);

template <typename Call>
Subject subject(const std::string &name, unsigned calls, Call call)
{
    return {name, [calls, call]() mutable {
                bool good = true;
                for (unsigned i = 0; i < calls; i++)
                    good = call() && good;
                return good;
            }};
}

} // namespace bench

#endif
