// The judge: notices what must never happen on a shared bus.
#ifndef SIMBOARD_JUDGE_H
#define SIMBOARD_JUDGE_H

#include "simboard/process.h"
#include "simboard/state.h"

namespace simboard
{

// Bits of a transfer's findings.
constexpr uint16_t kFindingConflict = 1;
constexpr uint16_t kFindingForeign = 2;
constexpr uint16_t kFindingTwoChannels = 4;
constexpr uint16_t kFindingOrphan = 8;

// All with the bus held.

// Whether every switch in front of the chip has its channel open.
bool is_reachable(const State &state, const Chip &chip);

// Before a transfer: is somebody else's path open? Paths of dead tasks are counted once and belong
// to nobody then.
uint16_t judge_start(State &state, Bus &bus, const Task &task, Counters &counters);

// After a STOP that changed the switch's channels from `before`: notes who opened them and counts
// two at once.
uint16_t judge_switch(State &state, Bus &bus, Chip &chip, uint8_t before, const Task &task);

// The process is about to release its lock on the device file; it takes the bus itself. `posix`
// tells a per-process record lock from a lock of the open file, which another process may rightly
// release.
void judge_unlock(State &state, Bus &bus, bool posix);

// The process has taken a record lock on the device file.
void judge_lock(State &state, Bus &bus);

} // namespace simboard

#endif
