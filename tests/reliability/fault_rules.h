// What the library promises for each thing that can fail in each kind of call.
#ifndef QELI2C_TESTS_FAULT_RULES_H
#define QELI2C_TESTS_FAULT_RULES_H

#include <string>
#include <vector>

#include "imports.h"
#include "qeli2c.h"

namespace faults
{

using namespace imports;

// What a fallible call is for.
// clang-format off
enum class Site : uint8_t {
    adapter_record, near_record, upstream_record, client_record, bus_state, buffer, fork_handler,
    registry,
    device_file, // and the text of its name
    semaphore, take_semaphore,
    memory_file, // and the mapping of the owner table
    take_file_lock, open_path, request, close_near, close_upstream, release_file_lock,
    release_semaphore, eeprom_semaphore, take_eeprom, release_eeprom, register_read, response,
};
// clang-format on

// How a call ends; each call has a result for each.
enum Outcome : uint8_t {
    ok,
    failed, // the transfer, or what comes before it
    no_file,
    no_buffer,
    no_semaphore,
    no_file_lock,
    not_released,
    no_path,
    no_eeprom,
    short_count,
    pathless, // held, of a device that is taken for one without a switch
    outcomes,
};

// Calls that react alike.
enum class Family : uint8_t {
    locked,
    once,      // locked, without a second try
    unlocked,  // tries and path, without the bus's locks
    straight,  // neither tries nor path nor locks
    hold,      // takes the bus
    hold_path, // takes the bus and opens the path
    let_go,    // releases a hold
    let_go_path,
    bridge,
    bridge_end,
    open_path,
    close_path,
    lookup, // the record is the result
    response,
};

struct Results {
    int32_t of[outcomes];
};
// All failures alike, but for the device file that cannot be opened.
constexpr Results results(int32_t good, int32_t bad = -1, int32_t file = QELI2C_NO_DEVICE_FILE,
                          int32_t buffer = -1, int32_t eeprom = 0)
{
    return {{good, bad, file, buffer, bad, bad, bad, bad, eeprom, bad, good}};
}

enum Flags : uint32_t {
    kHolds = 1,          // the bus is held afterwards
    kHoldsFile = 2,      // the file lock alone
    kHoldsSemaphore = 4, // the semaphore alone
    kHoldsEeprom = 8,
    kKeepsPath = 16,  // the path is open afterwards
    kRaw = 32,        // reads straight into the caller's buffer, which a failure may leave changed
    kLastCounts = 64, // of several accesses, only a failure of the last one fails the call
    kPages = 128,     // a failure after the first access gives the bytes of that one
    kRepeats = 256,   // the whole call is repeated when it fails
    kProbes = 512,    // goes on to other devices: errno is not that of the failure
    kNoResult = 1024,
    kLastSilent = 2048, // a failure of the last access is not told
};

struct Row {
    const char *name;
    int32_t (*call)();
    Family family;
    const ei2c_client *device;
    uint32_t written = 0; // bytes of the window that it may write
    Results results = faults::results(0);
    uint32_t flags = 0;
    void (*before)() = nullptr;
    void (*after)() = nullptr; // releases what the call holds
};
extern const std::vector<Row> kRows;
extern uint8_t *window; // where the calls write
extern uintptr_t registry_mutex;

// One fallible call of a call that goes well.
struct Point {
    Site site;
    Site next; // what the call behind it is for
    bool mutex;
    uint32_t access; // 0 for the first access to the bus
    uint32_t behind; // accesses after it
};
std::vector<Point> points_of(const Row &row, const Trace &clean);

// What the failing call keeps from being done: for what is guarded or prepared, that.
Site site_met(const Point &point, Mode mode);
Outcome expected(const Row &row, const Point &point, Mode mode);

// The errno that the result stands for; -1 when none is promised.
int promised_error(const Row &row, const Trace &run);

// Whether a switch may be left open.
bool may_stay_open(const Row &row, const Point &point, const Plan &plan, const Trace &run,
                   bool upstream);

} // namespace faults

#endif
