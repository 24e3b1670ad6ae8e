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
constexpr uint16_t kFindingFault = 16; // a step of the fault plan struck

// All with the bus held.

// Whether every switch in front of the chip has its channel open.
bool is_reachable(const State &state, const Chip &chip);

// Before a transfer: is somebody else's path open? Paths of dead tasks are counted once and belong
// to nobody then.
uint16_t judge_start(State &state, Bus &bus, const Task &task, Counters &counters);

// After a STOP that changed the switch's channels from `before`: notes who opened them and counts
// two at once.
uint16_t judge_switch(State &state, Bus &bus, Chip &chip, uint8_t before, const Task &task);

// What keeps others off a bus: its semaphore, or a lock on its device file. A record lock is the
// process's, a lock of the open file may rightly be released by another process.
enum class Lock : uint8_t { semaphore, record, open_file };

// The process is about to release a lock; takes the bus itself.
void judge_unlock(State &state, Bus &bus, Lock lock);

// The process has taken a lock that it asked for at `asked_ns`; takes the bus itself. errno is
// kept.
void judge_lock(State &state, Bus &bus, Lock lock, uint64_t asked_ns);

} // namespace simboard

#endif
