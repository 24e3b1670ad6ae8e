// The platform's services and the kernel in process: a run's bytes say how they answer.
#ifndef QELI2C_FUZZ_DOUBLED_PLATFORM_H
#define QELI2C_FUZZ_DOUBLED_PLATFORM_H

#include "tests/fuzz/input.h"

namespace fuzz
{

constexpr uint32_t kEepromBit = 1U << 16;

struct Platform {
    Input *replies = nullptr;  // null: nothing is doubled
    bool memory_lasts = false; // no allocation fails
    bool formats = false;      // log lines are formatted, as a slow log would
    bool bus_needed = false;   // transfers need the bus's semaphore and file lock
    bool own_releases = false; // the library has to hold what it releases
    uint32_t semaphores = 0;   // held: a bit for each bus, and kEepromBit
    uint32_t file_locks = 0;   // held: a bit for each bus
    int blocks = 0;            // allocated and not freed
};
extern thread_local Platform platform; // the fuzzer's own thread gets the real ones

// The id and the descriptor of a bus.
int32_t semaphore_of(uint32_t bus);
int32_t descriptor_of(uint32_t bus);

// A process that forgets: the owner table is not mapped, nothing is held or allocated.
void forget_platform();

// What the library keeps from call to call: how many blocks of the registry, and an end of it all.
int registry_blocks();
void forget_calls();

} // namespace fuzz

#endif
