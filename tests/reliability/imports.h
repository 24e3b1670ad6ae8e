// What libqeli2c.so asks other objects for. Hooks in the slots of its imports see its calls and no
// others: those of the platform, the board and the test are never counted and never fail.
//
// `trap` does something in front of one call that reaches the kernel; `record` writes down all
// fallible calls and makes some of them fail.
#ifndef TESTS_RELIABILITY_IMPORTS_H
#define TESTS_RELIABILITY_IMPORTS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace imports
{

// clang-format off
enum class Kind : uint8_t {
    memory, fork_handler, mutex, text, device_file, sem_create, sem_lock, sem_unlock, memory_file,
    map, file_lock, file_unlock, slave, slave_force, rdwr, pec, smbus, wait, register_read,
    response, infallible
};
// clang-format on
const char *name_of(Kind kind);

// Puts the hooks in place, once: all of them, which hold back messages and pauses, or only those of
// calls that reach the kernel, in front of which `trap` works.
enum class Hooks : uint8_t { all, traps };
void install(Hooks hooks);
// Names that the library asks other objects for and that nothing here knows.
std::vector<std::string> unknown();

// From now on this thread does `action` in front of its call number `at`, counted from 1.
void trap(long at, void (*action)());
// How many calls of a kind have been made by this process.
int made(Kind kind);

struct Step {
    Kind kind;
    bool failed;
    uint8_t address;  // of a request
    uintptr_t detail; // memory: size; semaphores: key; mutex: which
    int error;        // errno when it failed, 0 where a failure has none
};

// Which call fails: none, the one of that number, that one and all later ones of its kind, or that
// one and all later ones.
enum class Mode : uint8_t { once, kind, later };
struct Plan {
    int target = -1;
    Mode mode = Mode::once;
    bool timeout = false; // the wait of that number ends by its time
};

// How many the process has of each.
struct Holdings {
    int buffers; // memory not given back, but for records
    int records;
    int mutexes;
    int device_files;
    int other_files;
    int mappings;
};

// What a child process tells of one run; in memory shared with its parent.
struct Trace {
    uint32_t calls;
    Step call[1024];
    Holdings held;
    char wrong[128]; // what the hooks found wrong, empty when nothing
};

// From here to `stop` the library's calls are recorded in `run`, and fail as planned.
void record(Trace &run, const Plan &plan);
void stop();

} // namespace imports

#endif
