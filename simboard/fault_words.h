// What faults, and the calls that may fail, are called in plans and reports.
#ifndef SIMBOARD_FAULT_WORDS_H
#define SIMBOARD_FAULT_WORDS_H

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "simboard/state.h"

namespace simboard
{

// What a fault can be aimed at.
enum class FaultTarget { any, device_only, switch_only };

struct FaultWords {
    FaultKind kind;
    const char *name;
    const char *meaning;
    FaultTarget target;
    std::set<std::string> keys; // that go with it
};

const std::vector<FaultWords> &all_fault_words();
// Null when there is no fault of that name.
const FaultWords *find_fault_words(const std::string &name);
const char *name_of(FaultKind kind);

// The keys of all of them.
std::set<std::string> all_fault_keys();

// FaultStep::call, 0 for a name that is none.
uint32_t find_call(const std::string &name);
// 0 for a name that is none.
int find_errno(const std::string &name);

// Where the fault strikes: a device's name, or "bus 4", or "bus 4 at 0x50".
std::string describe_target(const State &state, uint32_t bus, const FaultStep &step);

// The step in words, its target left out: "data-nack, byte 3, writes, after 2, 5 times".
std::string describe_step(const FaultStep &step);

} // namespace simboard

#endif
