// The state of every bus that this process holds, for the check of the lock order.
#include "bus/lock_order.h"

#ifdef QELI2C_CHECK_LOCK_ORDER

#include <cstdlib>
#include <sys/syscall.h>
#include <unistd.h>

#include "bus/report.h"

namespace
{

constexpr char kLogTag[] = "lock_order";
constexpr uint32_t kLockableBuses = 16;

// Guarded by the bus's semaphore, but for a caller that gives back what it does not hold.
struct BusState {
    int32_t lock = static_cast<int32_t>(Lock::none);
    int32_t semid = -1;
    int32_t thread = 0;
};
BusState states[kLockableBuses];

int32_t current_thread()
{
    return static_cast<int32_t>(syscall(SYS_gettid));
}

Lock lock_of(const BusState &state)
{
    return static_cast<Lock>(__atomic_load_n(&state.lock, __ATOMIC_ACQUIRE));
}

void set_lock(BusState &state, Lock lock)
{
    __atomic_store_n(&state.lock, static_cast<int32_t>(lock), __ATOMIC_RELEASE);
}

[[noreturn]] void fail(uint32_t line, const char *function, const char *text)
{
    qel_report_null(kLogTag, line, function, text);
    abort();
}

} // namespace

void note_semaphore(uint32_t bus, int32_t semid)
{
    if (bus >= kLockableBuses)
        return;
    BusState &state = states[bus];
    if (lock_of(state) != Lock::none)
        fail(__LINE__, __func__, "assertion failed: the bus has no other holder");
    __atomic_store_n(&state.semid, semid, __ATOMIC_RELAXED);
    __atomic_store_n(&state.thread, current_thread(), __ATOMIC_RELAXED);
    set_lock(state, Lock::semaphore);
}

void note_lock(uint32_t bus, Lock lock)
{
    if (bus >= kLockableBuses)
        return;
    const Lock last = lock_of(states[bus]);
    // A path is also opened by those who know that no one else uses the bus, and by those who hold
    // it by their own calls, of which only the semaphore's is noted.
    const bool in_order =
        lock == Lock::path ? last != Lock::owner : last >= Lock::semaphore && last < lock;
    if (!in_order)
        fail(__LINE__, __func__, "assertion failed: locks are taken in their order");
    if (last != Lock::none)
        set_lock(states[bus], lock);
}

void note_unlock(uint32_t bus, Lock left)
{
    if (bus < kLockableBuses && lock_of(states[bus]) != Lock::none)
        set_lock(states[bus], left);
}

void note_semaphore_release(int32_t semid)
{
    for (BusState &state : states) {
        if (__atomic_load_n(&state.semid, __ATOMIC_RELAXED) == semid)
            set_lock(state, Lock::none);
    }
}

void note_eeprom_wait()
{
    const int32_t thread = current_thread();
    for (const BusState &state : states) {
        if (lock_of(state) != Lock::none &&
            __atomic_load_n(&state.thread, __ATOMIC_RELAXED) == thread)
            fail(__LINE__, __func__,
                 "assertion failed: the EEPROM semaphore is taken before a bus");
    }
}

void forget_locks()
{
    for (BusState &state : states)
        set_lock(state, Lock::none);
}

#endif
