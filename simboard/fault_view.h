// The fault plan of a board: set, looked at, and taken away while programs run.
#ifndef SIMBOARD_FAULT_VIEW_H
#define SIMBOARD_FAULT_VIEW_H

#include <string>
#include <vector>

#include "simboard/fault_plan.h"
#include "simboard/view.h"

namespace simboard
{

// Adds steps behind those that are there, numbered on from them. A std::runtime_error, and nothing
// added, when a bus has no room for them.
void add_faults(const BoardView &view, const std::vector<PlannedFault> &faults);

// Takes all steps away; what was unplugged is back.
void clear_faults(const BoardView &view);

// As if the steps had just been added: their counts are 0.
void rearm_faults(const BoardView &view);

struct FaultRecord {
    FaultStep step = {};
    uint32_t bus = 0;
    std::string target; // a device, "bus 4" or "bus 4 at 0x50"
    std::string text;   // the rest in words
};

// In the order of their numbers.
std::vector<FaultRecord> read_faults(const BoardView &view);

// The steps that never struck, one line each with `prefix`; empty when every one did.
std::string describe_unfired(const std::vector<FaultRecord> &faults, const std::string &prefix);

} // namespace simboard

#endif
