// The fallible calls that the library makes, numbered, recorded and made to fail one by one.
//
// The hooks stand in the slots through which libqeli2c.so reaches other objects, so that the
// platform, the board and the test itself are never counted and never fail.
#ifndef QELI2C_TESTS_FAULT_HOOKS_H
#define QELI2C_TESTS_FAULT_HOOKS_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace faults
{

enum class Kind : uint8_t {
    memory,
    fork_handler,
    mutex,
    text,
    device_file,
    sem_create,
    sem_lock,
    sem_unlock,
    memory_file,
    map,
    file_lock,
    file_unlock,
    slave,
    slave_force,
    rdwr,
    pec,
    smbus,
    wait,
    register_read,
    response,
};
const char *name_of(Kind kind);

// Requests to a device file, and the wait before them.
bool is_request(Kind kind);

struct Call {
    Kind kind;
    bool failed;
    uint8_t address; // of a request
    uint8_t byte;    // rdwr: the first one of the first message
    uint32_t detail; // memory: size; semaphores: key; mutex: 1 for the registry's
    int error;       // errno when it failed, 0 where a failure has none
};

// Which call fails: none, the one of that number, that one and all later ones of its kind, or that
// one and all later ones.
enum class Mode : uint8_t { once, kind, later };
struct Plan {
    int target = -1;
    Mode mode = Mode::once;
    bool timeout = false; // the wait of that number ends by its time
};

struct Line {
    uint32_t level; // 0: standard output
    const char *text;
};

constexpr size_t kMostCalls = 1024;
constexpr size_t kMostLines = 2048;
constexpr size_t kWindow = 320;

// What a child process tells of one run; in memory shared with its parent. Texts lie in the
// library, at the same address in both.
struct Trace {
    int32_t result;
    int error;
    uint8_t window[kWindow]; // what the call wrote
    uint32_t calls;
    Call call[kMostCalls];
    uint32_t lines;
    Line line[kMostLines];
    int bus_semaphore;    // times held
    int eeprom_semaphore; // times held
    int file_lock;        // times held
    int mutexes;          // held
    int buffers;          // memory not given back, but for records
    int records;
    int device_files;
    int other_files;
    int mappings;
    char wrong[128]; // what the hooks found wrong, empty when nothing
};

// Puts the hooks in place, once.
void install_hooks();
// Names that the library asks other objects for and that no hook or list knows.
std::vector<std::string> unknown_imports();

// From here to `stop` the library's calls are recorded in `run`, and fail as planned.
void record(Trace &run, const Plan &plan);
void stop();

// Tells the two mutexes apart: `registry` is the one that ui2c_to_client takes.
extern const void *registry_mutex;
const void *last_mutex();

} // namespace faults

#endif
