// Faults that strike transfers and calls, as a board's fault plan has them.
//
// Every step is asked wherever its kind can strike, in the order of the plan. What it is meant for
// it counts as matched; whether it strikes then depends on nothing but its own counts and its seed,
// so that the same transfers meet the same faults in every run. The first step that strikes a
// transfer has it, and the others let it by.
#ifndef SIMBOARD_FAULT_H
#define SIMBOARD_FAULT_H

#include "simboard/state.h"
#include "simboard/transfer.h"

namespace simboard
{

// Where a kind strikes: bits of FaultPlan::classes.
constexpr uint32_t kBeforeAddress = 1; // instead of a message
constexpr uint32_t kInMessage = 2;     // in a message whose address was acknowledged
constexpr uint32_t kAfterMessages = 4; // when all messages have gone over
constexpr uint32_t kInTransfers = kBeforeAddress | kInMessage | kAfterMessages;
constexpr uint32_t kInWaits = 8;
constexpr uint32_t kInCalls = 16;

constexpr uint32_t kCallOpen = 1; // FaultStep::call for open; else the number of an ioctl

uint32_t class_of(FaultKind kind);

inline bool has_faults(const State &state, const Bus &bus, uint32_t classes)
{
    return (state.faults[bus.number].classes.load(std::memory_order_relaxed) & classes) != 0;
}

// The step that strikes a message; null for none. With the bus held. `asked` starts at 0 and tells
// which steps this transfer has matched before.
const FaultStep *strike_message(State &state, Bus &bus, const Transfer &transfer, uint32_t index,
                                uint32_t where, uint64_t &asked);

// The errno with which a call on an open device of that slave address fails, 0 for none. Takes the
// bus itself.
int strike_call(State &state, Bus &bus, uint32_t call, uint16_t address);

// Whether an open device does not become ready this time. Takes the bus itself.
bool strike_wait(State &state, Bus &bus, uint16_t address);

// Takes a chip off the board, or puts it back. It loses what it holds when it is pulled. With the
// bus held.
void plug_chip(State &state, Bus &bus, Chip &chip, bool in);

} // namespace simboard

#endif
