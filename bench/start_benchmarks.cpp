// What the library adds to a program: to its start, and to its memory.
#include "benchmarks.h"
#include "rounds.h"
#include "ways.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <spawn.h>
#include <sys/wait.h>

namespace bench
{

namespace
{

bool run_true(const char *environment)
{
    const char *const words[] = {"true", nullptr};
    const char *const variables[] = {environment, nullptr};
    pid_t child = 0;
    int status = -1;
    return posix_spawn(&child, "/bin/true", nullptr, nullptr, const_cast<char **>(words),
                       const_cast<char **>(variables)) == 0 &&
           waitpid(child, &status, 0) == child && status == 0;
}

// Of the library's own mappings in this process: `field` of /proc/self/smaps, in KiB.
double mapped_kib(const char *object, const char *field)
{
    std::ifstream maps("/proc/self/smaps");
    double sum = 0;
    bool inside = false;
    for (std::string line; std::getline(maps, line);) {
        if (line.find('-') < line.find(' '))
            inside = line.find(object) != std::string::npos;
        else if (inside && line.rfind(field, 0) == 0)
            sum += std::stod(line.substr(strlen(field)));
    }
    return sum;
}

void start(benchmark::State &state)
{
    compare(state, 1,
            {{"with", [] { return run_true("LD_PRELOAD=" QELI2C_LIBRARY); }},
             {"without", [] { return run_true("LD_PRELOAD="); }}});
    (void)by_library(device_behind(Access::rdwr, 2));
    state.counters["resident_kib"] = mapped_kib("libqeli2c.so", "Rss:");
    state.counters["private_kib"] =
        mapped_kib("libqeli2c.so", "Private_Dirty:") + mapped_kib("libqeli2c.so", "Private_Clean:");
    state.counters["dirty_kib"] = mapped_kib("libqeli2c.so", "Private_Dirty:");
}

} // namespace

void add_start_benchmarks(double scale)
{
    benchmark::RegisterBenchmark("start", start)
        ->UseManualTime()
        ->Iterations(static_cast<int64_t>(300 * scale) + 2);
}

} // namespace bench
