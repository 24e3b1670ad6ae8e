// What a locked transfer costs beside the bare system calls, what a hold saves, what a trace line
// that goes nowhere costs.
#include "benchmarks.h"
#include "bus/report.h"
#include "rounds.h"
#include "ways.h"

#include <latch>
#include <thread>

namespace bench
{

namespace
{

constexpr char kLogTag[] = "benchmark";
constexpr unsigned kCallsOfATransfer = 20;
constexpr unsigned kHeldTransfers = 16;

void transfer(benchmark::State &state, Access access, unsigned switches)
{
    const Device device = device_behind(access, switches);
    const auto way = [&device](const char *name, Way access_by) {
        return subject(name, kCallsOfATransfer, [&device, access_by] { return access_by(device); });
    };
    compare(state, kCallsOfATransfer,
            {way("library", by_library), way("by_hand", by_hand), way("libi2c", by_libi2c)});
}

// What a process of several threads pays: the C library, and the library, spare one that has only
// one their locked instructions.
void transfer_beside_thread(benchmark::State &state, Access access, unsigned switches)
{
    std::latch measured(1);
    const std::jthread second([&measured] { measured.wait(); });
    transfer(state, access, switches);
    measured.count_down();
}

bool read_unlocked(const ei2c_client &client)
{
    uint8_t value = 0;
    return ei2c_smbus_read_byte_data_without_lock(&client, 0x10, &value) >= 0;
}

bool in_a_hold(const ei2c_client &client)
{
    int32_t fd = -1;
    int32_t semaphore = -1;
    bool good = ei2c_smbus_lock_adapter(&client, &fd, &semaphore) >= 0;
    for (unsigned i = 0; i < kHeldTransfers; i++)
        good = read_unlocked(client) && good;
    return ei2c_smbus_unlock_adapter(&client, fd, semaphore) >= 0 && good;
}

// The hold opens the path once; what is transferred in it names no switches.
bool on_a_held_path(const ei2c_client &client)
{
    ei2c_client at_once = client;
    at_once.swi_addr = 0;
    at_once.swi_chnl = 0;
    int32_t fd = -1;
    int32_t semaphore = -1;
    bool good = ei2c_smbus_select_switch(&client, &fd, &semaphore) >= 0;
    for (unsigned i = 0; i < kHeldTransfers; i++)
        good = read_unlocked(at_once) && good;
    return ei2c_smbus_deselect_switch(&client, fd, semaphore) >= 0 && good;
}

void hold(benchmark::State &state, unsigned switches)
{
    const Device device = device_behind(Access::smbus, switches);
    const ei2c_client &client = device.client;
    const auto locked_each = [&device] {
        bool good = true;
        for (unsigned i = 0; i < kHeldTransfers; i++)
            good = by_library(device) && good;
        return good;
    };
    std::vector<Subject> subjects = {
        {"hold", [&client] { return in_a_hold(client); }},
        {"locked_each", locked_each},
    };
    if (switches != 0)
        subjects.insert(subjects.begin(),
                        {"held_path", [&client] { return on_a_held_path(client); }});
    compare(state, kHeldTransfers, subjects);
}

void trace_line(benchmark::State &state)
{
    constexpr unsigned kLines = 1000;
    volatile int value = 3;
    compare(state, kLines,
            {subject("line", kLines,
                     [&value] {
                         QEL_RUNTIME("bus=%d, addr=%x num=%d start\n", value, 0x50, 2);
                         return true;
                     }),
             subject("nothing", kLines, [&value] { return value != 0; })});
}

int64_t rounds_of(double all, double scale)
{
    return static_cast<int64_t>(all * scale) + 2;
}

void add_transfers(const std::string &prefix, void (*measure)(benchmark::State &, Access, unsigned),
                   double scale)
{
    for (const Access access : {Access::rdwr, Access::smbus}) {
        for (const unsigned switches : {0U, 1U, 2U}) {
            const std::string kind = access == Access::rdwr ? "rdwr" : "smbus";
            const std::string name = prefix + kind + "/switches:" + std::to_string(switches);
            benchmark::RegisterBenchmark(name.c_str(), measure, access, switches)
                ->UseManualTime()
                ->Iterations(rounds_of(6000, scale));
        }
    }
}

} // namespace

void add_transfer_benchmarks(double scale)
{
    add_transfers("", transfer, scale);
    for (const unsigned switches : {0U, 2U})
        benchmark::RegisterBenchmark(("hold/switches:" + std::to_string(switches)).c_str(), hold,
                                     switches)
            ->UseManualTime()
            ->Iterations(rounds_of(4000, scale));
    benchmark::RegisterBenchmark("trace_line", trace_line)
        ->UseManualTime()
        ->Iterations(rounds_of(4000, scale));
}

void add_benchmarks_beside_thread(double scale)
{
    add_transfers("second_thread/", transfer_beside_thread, scale);
}

} // namespace bench
