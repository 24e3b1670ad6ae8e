// The library's two mutexes within a process. They are never held together; both are free in a
// child after fork.
#ifndef QELI2C_BUS_PROCESS_LOCKS_H
#define QELI2C_BUS_PROCESS_LOCKS_H

#include <cstdint>

#include "bus/cancellation.h"

// Guards the registry. No other lock of the library is held or taken with it.
bool lock_registry();
void unlock_registry();

// Guards the creation of what a process creates once and keeps. May be taken while a bus is held.
// False, with errno set, when it cannot be had: then nothing may be created.
bool lock_first_use();
void unlock_first_use();

// Not inlined: what happens once is kept out of the way of what happens in every call.
template <typename Create>
[[gnu::noinline]] int32_t create_under_lock(int32_t &cached, Create create)
{
    const CancellationPutOff put_off;
    if (!lock_first_use())
        return -1;
    int32_t value = cached;
    if (value < 0) {
        value = create();
        __atomic_store_n(&cached, value, __ATOMIC_RELEASE);
    }
    unlock_first_use();
    return value;
}

// Gives `cached`, an id or a descriptor, creating it first when it is negative. Threads that arrive
// together wait for one creation; the negative result of a failed one is kept, and tried again by
// the next caller.
template <typename Create>
int32_t create_once(int32_t &cached, Create create)
{
    const int32_t value = __atomic_load_n(&cached, __ATOMIC_ACQUIRE);
    return value >= 0 ? value : create_under_lock(cached, create);
}

#endif
