// A bus held for the length of a scope.
#ifndef SIMBOARD_BUS_GUARD_H
#define SIMBOARD_BUS_GUARD_H

#include "simboard/bus_lock.h"

namespace simboard
{

class BusGuard
{
public:
    BusGuard(State &state, Bus &bus) : state_(state), bus_(bus) { lock_bus(state, bus, hold_); }
    BusHold &hold() { return hold_; }
    ~BusGuard() { unlock_bus(state_, bus_, hold_); }
    BusGuard(const BusGuard &) = delete;
    BusGuard &operator=(const BusGuard &) = delete;

private:
    State &state_;
    Bus &bus_;
    BusHold hold_;
};

} // namespace simboard

#endif
