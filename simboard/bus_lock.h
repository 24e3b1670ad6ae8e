// Holding a bus: one task at a time, and all or nothing even when the holder is killed.
#ifndef SIMBOARD_BUS_LOCK_H
#define SIMBOARD_BUS_LOCK_H

#include <signal.h>

#include "simboard/state.h"

namespace simboard
{

// What lock_bus leaves for unlock_bus.
struct BusHold {
    sigset_t signals;
};

// Waits for the bus and takes it; signals stay blocked while it is held. What a holder that died
// had changed since it took the bus is put back first.
void lock_bus(State &state, Bus &bus, BusHold &hold);

// Takes a robust mutex as pthread_mutex_lock does, or gives ETIMEDOUT or EBUSY after that time.
int lock_within(pthread_mutex_t &mutex, uint32_t timeout_ms);

// As lock_bus, but false when the bus could not be had within that time.
bool lock_bus_within(State &state, Bus &bus, BusHold &hold, uint32_t timeout_ms);

// Makes what was changed final and lets go of the bus. errno is kept.
void unlock_bus(State &state, Bus &bus, const BusHold &hold);

// Makes what was changed final, still holding the bus.
void commit_bus(State &state, Bus &bus);

// Keeps the old bytes of the lines at `at` so that they can be put back. Call it before every first
// change of a line while the bus is held.
void preserve(State &state, Bus &bus, const void *at, size_t length);

// A robust mutex of the board other than a bus's: takes it whether or not its last holder died.
void lock_shared(pthread_mutex_t &mutex);

// Prepares a mutex in the shared file. Returns 0 or an errno.
int init_shared(pthread_mutex_t &mutex);

} // namespace simboard

#endif
