// Things that a process creates once, at first use, and keeps.
#ifndef QELI2C_BUS_FIRST_USE_H
#define QELI2C_BUS_FIRST_USE_H

#include <cstdint>
#include <pthread.h>

// Never held together with the registry's mutex; may be taken while a bus is held.
extern pthread_mutex_t first_use_mutex;

// Gives `cached`, an id or a descriptor, creating it first when it is negative. Threads that arrive
// together wait for one creation; the negative result of a failed one is kept, and tried again by
// the next caller.
template <typename Create>
int32_t create_once(int32_t &cached, Create create)
{
    int32_t value = __atomic_load_n(&cached, __ATOMIC_ACQUIRE);
    if (value >= 0)
        return value;
    (void)pthread_mutex_lock(&first_use_mutex);
    value = cached;
    if (value < 0) {
        value = create();
        __atomic_store_n(&cached, value, __ATOMIC_RELEASE);
    }
    (void)pthread_mutex_unlock(&first_use_mutex);
    return value;
}

#endif
