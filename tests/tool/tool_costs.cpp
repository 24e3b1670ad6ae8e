// What a command costs: from the start of the process to its first transfer, and in a batch.
// Absolute times are shown, not judged: they are the machine's. That a command in a batch costs a
// tenth of a process at most is.
#include "command.h"

#include "simboard/testing.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <vector>

using Clock = std::chrono::steady_clock;

namespace
{

double milliseconds_since(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

} // namespace

int main()
{
    constexpr int kStarts = 101;
    constexpr int kLines = 2000;
    simboard::testing::Board board(simboard::testing::reference_board());
    std::vector<double> first_transfers;
    std::vector<double> whole;
    for (int i = 0; i < kStarts; i++) {
        board.reset();
        const Clock::time_point start = Clock::now();
        if (run("exec qeli2c get main-registers 0x10").status != 0)
            return 1;
        whole.push_back(milliseconds_since(start));
        const auto begun = static_cast<int64_t>(board.trace(4).at(0).start_ns);
        first_transfers.push_back(static_cast<double>(begun - start.time_since_epoch().count()) /
                                  1e6);
    }
    const Clock::time_point start = Clock::now();
    if (run("yes get main-registers 0x10 | head -n " + std::to_string(kLines) +
            " | qeli2c batch >/dev/null")
            .status != 0)
        return 1;
    const double line = (milliseconds_since(start) - median(whole)) / kLines;
    std::printf("start of a process to its first transfer: %.2f ms (median of %d)\n",
                median(first_transfers), kStarts);
    std::printf("a process: %.2f ms; a line of a batch: %.3f ms, %.0f times less\n", median(whole),
                line, median(whole) / line);
    return median(whole) >= 10 * line ? 0 : 1;
}
