// The parts of the load program: the plan, the results in shared memory, the workers and the
// report.
#ifndef BENCH_STRESS_H
#define BENCH_STRESS_H

#include "histogram.h"
#include "tools/qeli2c/board_file.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <vector>

namespace bench
{

struct Plan {
    uint32_t processes = 1;
    uint32_t threads = 1;   // of each process
    uint64_t transfers = 0; // in all; 0: by time
    double seconds = 0;
    uint32_t kills = 0; // processes killed at random, spread over the seconds, and replaced at once
    uint32_t seed = 1;  // of who is killed and when
    bool mixed = false; // registers in all ways there are, not by one kind of transfer alone
    bool faulty = false;               // accesses may fail
    std::vector<tool::Target> devices; // dealt out to the workers in turn
};

// What a worker found out. Only that worker writes.
struct Worker {
    std::atomic<uint64_t> transfers{0}; // that succeeded
    std::atomic<uint64_t> errors{0};
    std::atomic<uint64_t> wrong_bytes{0};
    std::atomic<int32_t> first_result{0}; // of the first transfer that failed
    std::atomic<int32_t> first_errno{0};
    std::atomic<uint32_t> first_wrong{0}; // register << 16 | expected << 8 | read
    std::atomic<uint64_t> sequence{0};    // of the pattern being written; outlives its writer
    Histogram waits{};                    // how long the calls took
};

// One mapping that the parent and all its children share.
struct Shared {
    std::atomic<uint64_t> drawn{0}; // transfers handed out
    std::atomic<uint32_t> ready{0}; // workers waiting for the start
    std::atomic<bool> go{false};
    std::atomic<bool> stop{false};
    std::atomic<int64_t> deadline{0}; // nanoseconds of the monotonic clock; 0: none
    Worker *workers = nullptr;        // processes x threads, process by process
};

struct Outcome {
    double seconds = 0;
    std::vector<uint32_t> dead; // processes that did not end by themselves
    uint32_t kills = 0;
    bool interrupted = false;
};

int64_t monotonic_nanoseconds();

// The registers a worker has to itself: a window of its device's 256.
struct Window {
    uint8_t first = 0;
    uint8_t size = 0;
};
inline constexpr uint32_t kRegisters = 256;
inline constexpr uint32_t kSmallestWindow = 4;

// Nothing when there are too many workers for the devices.
std::optional<Window> window_of(const Plan &plan, uint32_t worker);

// Writes patterns into its window and reads them back until there is nothing more to draw. Takes up
// where a worker that was killed has left off: that one's last pattern is there whole or not at
// all.
void work(const Plan &plan, Shared &shared, uint32_t worker);

// Prints the report; returns whether the run was clean. `most_deviation` is in percent of the mean
// share, negative for no limit.
bool report(const Plan &plan, const Shared &shared, const Outcome &outcome, double most_deviation,
            bool json);

} // namespace bench

#endif
