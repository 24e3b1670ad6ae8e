// Counts of accesses through the library, once everything is there: what they must not do is
// counted here, what they execute by a program around this one.
//
//     counted_calls library|by_hand rdwr|smbus SWITCHES CALLS
//
// Everything happens between the begin and the end of `counted`, for callgrind's --toggle-collect.
#include "device_double.h"
#include "ways.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace
{

uint64_t allocations = 0;
uint64_t sleeps = 0;

} // namespace

extern "C" {

// The C library's own names for what is defined anew here.
// NOLINTBEGIN(bugprone-reserved-identifier)
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
// NOLINTEND(bugprone-reserved-identifier)

void *malloc(size_t size)
{
    allocations++;
    return __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    allocations++;
    return __libc_calloc(count, size);
}

void *realloc(void *block, size_t size)
{
    allocations++;
    return __libc_realloc(block, size);
}

int clock_nanosleep(clockid_t, int, const timespec *, timespec *)
{
    sleeps++;
    return 0;
}

int nanosleep(const timespec *, timespec *)
{
    sleeps++;
    return 0;
}

unsigned sleep(unsigned)
{
    sleeps++;
    return 0;
}

int usleep(useconds_t)
{
    sleeps++;
    return 0;
}

__attribute__((noinline)) bool counted(bench::Way way, const bench::Device &device, long calls)
{
    bool good = true;
    for (long i = 0; i < calls; i++)
        good = way(device) && good;
    return good;
}
}

int main(int argc, char **argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "usage: counted_calls library|by_hand rdwr|smbus SWITCHES CALLS\n");
        return 2;
    }
    const bench::Way way = strcmp(argv[1], "library") == 0 ? bench::by_library : bench::by_hand;
    const auto access = strcmp(argv[2], "rdwr") == 0 ? bench::Access::rdwr : bench::Access::smbus;
    const bench::Device device =
        bench::device_behind(access, static_cast<unsigned>(std::atoi(argv[3])));
    if (!bench::prepare_ways() || !way(device)) {
        std::perror("counted_calls");
        return 1;
    }
    allocations = 0;
    sleeps = 0;
    bench::opens = 0;
    const bool good = counted(way, device, std::atol(argv[4]));
    const bool nothing_else = allocations == 0 && bench::opens == 0 && sleeps == 0;
    std::printf("%s\n", !good          ? "an access failed"
                        : nothing_else ? "no allocation, no open, no sleep"
                                       : "an access allocated, opened or slept");
    return good && nothing_else ? 0 : 1;
}
