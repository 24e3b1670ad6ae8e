// Recorders: who copies the trace as it comes and must miss nothing. Transfers wait for them when
// the ring is full, but never for one that has died, and only once for one that stands still.
#ifndef SIMBOARD_RECORDER_H
#define SIMBOARD_RECORDER_H

#include "simboard/bus_lock.h"
#include "simboard/state.h"

namespace simboard
{

constexpr uint32_t kNoRecorder = kRecorders;

// Registers the calling thread for the buses of the mask, from now on; kNoRecorder when there is no
// room. The thread stays until it has called release_recorder; without that it counts as dead.
uint32_t register_recorder(State &state, uint32_t buses);

// With the bus held: all slots before `taken` have been copied. One that transfers had stopped
// waiting for is waited for again.
void note_taken(State &state, const Bus &bus, uint32_t recorder, uint64_t taken);

void retire_recorder(State &state, uint32_t recorder); // not waited for any more; by any thread
void release_recorder(State &state, uint32_t recorder);

// With the bus held and nothing changed on it: returns when the bus's ring has room for so many
// slots that no recorder has yet to copy, or waiting has gone on for too long. The bus may have
// been let go and taken again.
void await_recorders(State &state, Bus &bus, BusHold &hold, uint64_t slots);

// With the bus held, when its trace is begun anew.
void restart_recorders(State &state, const Bus &bus);

} // namespace simboard

#endif
