// What the library adds to a program: to its start, and to its memory.
#include "benchmarks.h"
#include "rounds.h"
#include "ways.h"

#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <link.h>
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

// What the dynamic linker has to fill in when it loads the library: elf(5), DT_REL and DT_RELA.
double relocations()
{
    void *library = dlopen(QELI2C_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    link_map *map = nullptr;
    if (library == nullptr || dlinfo(library, RTLD_DI_LINKMAP, &map) != 0)
        return 0;
    size_t bytes = 0;
    size_t each = sizeof(ElfW(Rel));
    for (const auto *entry = map->l_ld; entry->d_tag != DT_NULL; entry++) {
        if (entry->d_tag == DT_RELSZ || entry->d_tag == DT_RELASZ || entry->d_tag == DT_PLTRELSZ)
            bytes += entry->d_un.d_val;
        if (entry->d_tag == DT_RELA)
            each = sizeof(ElfW(Rela));
    }
    (void)dlclose(library);
    const size_t count = bytes / each;
    return static_cast<double>(count);
}

void start(benchmark::State &state)
{
    compare(state, 1,
            {{"with", [] { return run_true("LD_PRELOAD=" QELI2C_LIBRARY); }},
             {"without", [] { return run_true("LD_PRELOAD="); }}});
    (void)by_library(device_behind(Access::rdwr, 2));
    state.counters["relocations"] = relocations();
    state.counters["resident_kib"] = mapped_kib("libqeli2c.so", "Rss:");
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
