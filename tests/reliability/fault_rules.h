// What the library promises for each thing that can fail in each call.
#ifndef QELI2C_TESTS_FAULT_RULES_H
#define QELI2C_TESTS_FAULT_RULES_H

#include <string>
#include <vector>

#include "imports.h"

namespace faults
{

using namespace imports;

constexpr uint8_t kUpstreamSwitch = 0x70;
constexpr uint8_t kNearSwitch = 0x71;

enum Flags : uint32_t {
    kTries = 1,           // does again a transfer that fails
    kRepeats = 2,         // the whole call is repeated when it fails
    kHolds = 4,           // the bus is held afterwards
    kHoldsFile = 8,       // the file lock alone
    kHoldsSemaphore = 16, // the semaphore alone
    kHoldsEeprom = 32,
    kKeepsPath = 64,   // the path is open afterwards
    kCloses = 128,     // a path that was opened before
    kRaw = 256,        // reads straight into the caller's buffer, which a failure may leave changed
    kLastCounts = 512, // of several accesses, only a failure of the last one fails the call
    kDepends = 1024,   // succeeds or fails by more than what failed last
    kOtherErrno = 2048,  // errno need not be of the failure
    kReleasesAll = 4096, // gives back on failure what it did not get, too
    kProbes = kTries | kRaw | kDepends | kOtherErrno, // goes on to other devices
};

constexpr char kTransfer[] = "-1 -12345678"; // what failed transfers give

// Words as in tests/calls/call.h; `$0` and on are the result and outputs of the calls before.
struct Row {
    const char *call;
    const char *result; // or "any" that is not negative
    uint32_t flags = kTries;
    const char *failures = kTransfer;
    const char *before = ""; // calls that take what it needs
    const char *after = "";  // releases what the call holds
};
extern const std::vector<Row> kRows;
std::string name_of(const Row &row);
bool succeeded(const Row &row, const std::string &result);

extern uintptr_t registry_mutex;

// How a run must end.
struct Verdict {
    bool may_succeed;
    bool may_fail;
    int error; // errno of the failure; 0 when none is promised
};
Verdict judge(const Row &row, const Plan &plan, const Trace &run, const Trace &clean);

// Whether a switch may be left open.
bool may_stay_open(const Row &row, const Plan &plan, const Trace &run, uint8_t address);

} // namespace faults

#endif
