// Processes that all want one bus: how many transfers they get done together, and how evenly,
// beside a loop over a semaphore written by hand.
#include "benchmarks.h"
#include "rounds.h"
#include "ways.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>
#include <numeric>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench
{

namespace
{

constexpr unsigned kMostProcesses = 8;
constexpr long kSliceNs = 50'000'000;

enum Turn : int { turn_library, turn_by_hand, turn_end };

struct Shared {
    std::atomic<int> turn{turn_library};
    std::atomic<uint64_t> transfers[2][kMostProcesses]{};
};

void work(Shared &shared, unsigned process)
{
    const Device device = device_behind(Access::rdwr, 0);
    for (int turn; (turn = shared.turn.load(std::memory_order_relaxed)) != turn_end;) {
        if (!(turn == turn_library ? by_library(device) : by_hand(device)))
            _exit(1);
        shared.transfers[turn][process].fetch_add(1, std::memory_order_relaxed);
    }
    _exit(0);
}

void wait_a_slice()
{
    const timespec slice = {0, kSliceNs};
    (void)clock_nanosleep(CLOCK_MONOTONIC, 0, &slice, nullptr);
}

double total(const std::atomic<uint64_t> *counts, unsigned processes)
{
    return static_cast<double>(std::accumulate(counts, counts + processes, uint64_t{0}));
}

double least_to_most(const std::atomic<uint64_t> *counts, unsigned processes)
{
    const auto [least, most] = std::minmax_element(counts, counts + processes);
    return static_cast<double>(*least) / static_cast<double>(std::max<uint64_t>(*most, 1));
}

void contention(benchmark::State &state, unsigned processes)
{
    (void)by_library(device_behind(Access::rdwr, 0)); // what the children share is there
    void *memory =
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto &shared = *new (memory) Shared;
    std::vector<pid_t> children;
    for (unsigned i = 0; i < processes; i++) {
        const pid_t child = fork();
        if (child == 0) {
            (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
            work(shared, i);
        }
        children.push_back(child);
    }
    std::vector<double> ratios;
    for ([[maybe_unused]] auto _ : state) {
        double done[2];
        for (const int turn : {turn_library, turn_by_hand}) {
            shared.turn = turn;
            const double before = total(shared.transfers[turn], processes);
            wait_a_slice();
            done[turn] = total(shared.transfers[turn], processes) - before;
        }
        ratios.push_back(done[turn_library] / std::max(done[turn_by_hand], 1.0));
        state.SetIterationTime(2 * kSliceNs / 1e9);
    }
    shared.turn = turn_end;
    for (const pid_t child : children) {
        int status = 0;
        if (waitpid(child, &status, 0) != child || status != 0)
            state.SkipWithError("a process failed");
    }
    std::nth_element(ratios.begin(),
                     ratios.begin() + static_cast<std::ptrdiff_t>(ratios.size() / 2), ratios.end());
    const double seconds = static_cast<double>(ratios.size()) * kSliceNs / 1e9;
    state.counters["library_per_s"] = total(shared.transfers[0], processes) / seconds;
    state.counters["by_hand_per_s"] = total(shared.transfers[1], processes) / seconds;
    state.counters["throughput_ratio"] = ratios[ratios.size() / 2];
    state.counters["library_fairness"] = least_to_most(shared.transfers[0], processes);
    state.counters["by_hand_fairness"] = least_to_most(shared.transfers[1], processes);
    (void)munmap(memory, sizeof(Shared));
}

} // namespace

void add_contention_benchmarks(double scale)
{
    for (const unsigned processes : {1U, 2U, 4U, 8U})
        benchmark::RegisterBenchmark(("contention/processes:" + std::to_string(processes)).c_str(),
                                     contention, processes)
            ->UseManualTime()
            ->Iterations(static_cast<int64_t>(40 * scale) + 1);
}

} // namespace bench
