// What a command costs: from the start of the process to its first transfer, and in a batch.
// Absolute times are shown, not judged: they are the machine's. That a command in a batch costs a
// tenth of a process at most is.
#include "command.h"

#include "simboard/testing.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
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

// Without a shell, whose own start would count.
bool run_get()
{
    const char *const words[] = {"qeli2c", "get", "main-registers", "0x10", nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    int status = -1;
    if (posix_spawnp(&child, words[0], &actions, nullptr, const_cast<char **>(words), environ) == 0)
        waitpid(child, &status, 0);
    posix_spawn_file_actions_destroy(&actions);
    return status == 0;
}

} // namespace

int main()
{
    constexpr int kStarts = 101;
    constexpr int kLines = 2000;
    simboard::testing::Board board(simboard::testing::reference_board());
    prepare_environment(); // this process itself has been loaded already
    std::vector<double> first_transfers;
    std::vector<double> whole;
    for (int i = 0; i < kStarts; i++) {
        board.reset();
        const Clock::time_point start = Clock::now();
        if (!run_get())
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
