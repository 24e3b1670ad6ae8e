// Process-shared semaphores by key, one holder at a time, on System V semaphores (semop(2)).
//
// One semaphore per key; its value is 0 when free and 1 when held. Taking it is one semop of two
// operations, wait for 0 and add 1, and releasing it subtracts 1, both with SEM_UNDO:
// - Linux makes the semaphore of a new set 0, that is free: there is no moment at which it is not
// yet initialised.
// - The kernel undoes the +1 of a holder that dies, however it dies, and of nobody else: a child
// starts without.
// - The kernel serves those who wait in the order of their arrival and hands the semaphore over at
// the release, so the
//   releasing process cannot take it again before them.
//
// A set can be removed under running processes (systemd-logind does it at logout, RemoveIPC=). Then
// its id is dead, everyone who still has it makes or finds the new set under the key, and a hold on
// the old set is void.
#include "platform/exported.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <pthread.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/single_threaded.h>

namespace
{

constexpr uint32_t kWaitForever = 65535;
constexpr uint32_t kCapacity = 64;
constexpr uint32_t kErrorLevel = 132;
constexpr int kNoSet = -1;
constexpr int64_t kNanosecondsPerMillisecond = 1'000'000;
constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;

// An interrupted waiter goes to the end of the kernel's queue. One that is interrupted faster than
// the queue moves would never be served, so after a few interruptions it waits with signals
// blocked, for one slice at a time.
constexpr unsigned kInterruptionsSuffered = 4;
constexpr int64_t kUndisturbedSlice = 500 * kNanosecondsPerMillisecond;

// What this process knows of one key; the id given to callers is the index. A handle once given a
// key keeps it.
struct Handle {
    std::atomic<uint32_t> key{0};      // 0: unused
    std::atomic<int> set{kNoSet};      // System V id of the set
    std::atomic<int> held_set{kNoSet}; // the set on which this process holds the semaphore
};

struct SetOfThread {
    int set = kNoSet;
};

struct TimeLimit {
    bool forever;
    int64_t end; // CLOCK_MONOTONIC, nanoseconds
};

constinit std::array<Handle, kCapacity> handles;

// The set on which this thread took each semaphore last. After a removal two threads of a process
// can each believe that they hold: one the old set, one the new. Only the second may release the
// new one.
constinit thread_local std::array<SetOfThread, kCapacity> taken;

// Whether children of this process are told that they hold nothing.
constinit bool fork_is_watched = false;

void forget_holds_of_parent()
{
    for (Handle &handle : handles) {
        handle.held_set.store(kNoSet, std::memory_order_relaxed);
    }
}

__attribute__((constructor)) void watch_fork()
{
    fork_is_watched = pthread_atfork(nullptr, nullptr, forget_holds_of_parent) == 0;
}

int failed(int reason)
{
    errno = reason;
    return -1;
}

int open_set(uint32_t key)
{
    return semget(static_cast<key_t>(key), 1, IPC_CREAT | 0600);
}

// Finds or claims the handle of a key. Keys are never given up, so all threads walk the same row
// and meet at one handle.
Handle *handle_of_key(uint32_t key)
{
    for (Handle &handle : handles) {
        uint32_t found = 0;
        if (handle.key.compare_exchange_strong(found, key) || found == key) {
            return &handle;
        }
    }
    return nullptr;
}

Handle *handle_of_id(int32_t id)
{
    if (id < 0 || static_cast<uint32_t>(id) >= kCapacity) {
        return nullptr;
    }
    Handle *handle = &handles[static_cast<uint32_t>(id)];
    return handle->set.load(std::memory_order_acquire) != kNoSet ? handle : nullptr;
}

int64_t now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return int64_t{time.tv_sec} * kNanosecondsPerSecond + time.tv_nsec;
}

TimeLimit limit_of(uint32_t milliseconds)
{
    if (milliseconds == kWaitForever) {
        return {true, 0};
    }
    return {false, now() + milliseconds * kNanosecondsPerMillisecond};
}

int64_t time_left(TimeLimit limit)
{
    return limit.forever ? INT64_MAX : std::max<int64_t>(limit.end - now(), 0);
}

int take_within(int set, sembuf *operations, int64_t nanoseconds)
{
    timespec timeout = {};
    timeout.tv_sec = static_cast<time_t>(nanoseconds / kNanosecondsPerSecond);
    timeout.tv_nsec = static_cast<long>(nanoseconds % kNanosecondsPerSecond);
    return semtimedop(set, operations, 2, &timeout);
}

int take_undisturbed(int set, sembuf *operations, int64_t nanoseconds)
{
    sigset_t all;
    sigset_t callers;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &callers);
    const int result = take_within(set, operations, std::min(nanoseconds, kUndisturbedSlice));
    const int reason = errno;
    pthread_sigmask(SIG_SETMASK, &callers, nullptr);
    errno = reason;
    return result;
}

// One attempt. EAGAIN: a time limit, perhaps only that of a slice, is over.
int take(int set, TimeLimit limit, unsigned interruptions)
{
    sembuf operations[2] = {{0, 0, 0}, {0, 1, SEM_UNDO}};
    if (interruptions > kInterruptionsSuffered) {
        return take_undisturbed(set, operations, time_left(limit));
    }
    return limit.forever ? semop(set, operations, 2)
                         : take_within(set, operations, time_left(limit));
}

// Puts the set that now has the key in place of a removed one; another thread may have done so
// already.
int replace_removed_set(Handle &handle, int removed)
{
    if (handle.set.load(std::memory_order_acquire) != removed) {
        return 0;
    }
    const uint32_t key = handle.key.load(std::memory_order_relaxed);
    const int set = open_set(key);
    const int reason = errno;
    if (set < 0 || set == removed) {
        IDBG_LINUXAPP_DbgOut(
            kErrorLevel,
            "[qelplatform:%d]semaphore 0x%x was removed and cannot be created again, "
            "errno = %d, %s\n",
            __LINE__, key, reason, qel_strerror_s(reason));
        return failed(set < 0 ? reason : EIDRM);
    }
    if (handle.set.compare_exchange_strong(removed, set)) {
        IDBG_LINUXAPP_DbgOut(
            kErrorLevel, "[qelplatform:%d]semaphore 0x%x was removed while in use, created again\n",
            __LINE__, key);
    }
    return 0;
}

// After a failed attempt, by its errno. Kept out of the way of attempts that succeed.
[[gnu::noinline]] bool may_try_again(Handle &handle, int set, TimeLimit limit,
                                     unsigned &interruptions)
{
    switch (errno) {
    case EINTR:
        ++interruptions;
        return true;
    case EAGAIN:
        if (time_left(limit) == 0) {
            errno = ETIMEDOUT;
            return false;
        }
        return true;
    case EIDRM:
    case EINVAL:
        return replace_removed_set(handle, set) == 0;
    default:
        return false;
    }
}

// Takes the note of a hold on `set` back; false when there is none. Of threads that release at once
// one succeeds. The exchange costs a tenth of the release, and a process of one thread needs none.
bool forget_hold(Handle &handle, int &set)
{
    if (__libc_single_threaded == 0) {
        return handle.held_set.compare_exchange_strong(set, kNoSet);
    }
    const int held = handle.held_set.load(std::memory_order_relaxed);
    const bool known = held == set;
    set = held;
    if (known) {
        handle.held_set.store(kNoSet, std::memory_order_relaxed);
    }
    return known;
}

} // namespace

int32_t OAL_SemCreate(uint32_t key)
{
    if (key == IPC_PRIVATE) {
        return failed(EINVAL);
    }
    if (!fork_is_watched) {
        return failed(ENOMEM);
    }
    Handle *handle = handle_of_key(key);
    if (handle == nullptr) {
        return failed(ENOSPC);
    }
    if (handle->set.load(std::memory_order_acquire) == kNoSet) {
        const int set = open_set(key);
        if (set < 0) {
            return -1;
        }
        int none = kNoSet;
        handle->set.compare_exchange_strong(none, set);
    }
    return static_cast<int32_t>(handle - handles.data());
}

int32_t OAL_SemLockBySemId(int32_t id, uint32_t wait)
{
    Handle *handle = handle_of_id(id);
    if (handle == nullptr) {
        return failed(EINVAL);
    }
    const TimeLimit limit = limit_of(wait);
    unsigned interruptions = 0;
    int set = handle->set.load(std::memory_order_acquire);
    while (take(set, limit, interruptions) != 0) {
        if (!may_try_again(*handle, set, limit, interruptions)) {
            return -1;
        }
        set = handle->set.load(std::memory_order_acquire);
    }
    // Whoever has the semaphore is alone here, so no exchange is needed; what the last holder in
    // this process did comes before what this one does.
    (void)handle->held_set.load(std::memory_order_acquire);
    handle->held_set.store(set, std::memory_order_release);
    taken[static_cast<uint32_t>(id)].set = set;
    return 0;
}

// The result never depends on a wait.
int32_t OAL_SemUnLockBySemId(int32_t id, uint32_t)
{
    Handle *handle = handle_of_id(id);
    if (handle == nullptr) {
        return failed(EINVAL);
    }
    int &mine = taken[static_cast<uint32_t>(id)].set;
    // A thread that took nothing releases what another thread of its process took.
    int set = mine != kNoSet ? mine : handle->held_set.load(std::memory_order_acquire);
    mine = kNoSet;
    if (set == kNoSet) {
        return failed(EPERM);
    }
    // Given up before the semaphore is free: afterwards the note belongs to the next holder.
    int held = set;
    if (!forget_hold(*handle, held)) {
        return failed(held == kNoSet ? EPERM : EIDRM);
    }
    sembuf release = {0, -1, SEM_UNDO | IPC_NOWAIT};
    if (semop(set, &release, 1) == 0) {
        return 0;
    }
    if (errno == EINVAL) {
        errno = EIDRM; // semop's other name for a set that no longer exists
    } else if (errno == EAGAIN) {
        errno = EPERM; // somebody set the value by hand: the hold was lost
    }
    return -1;
}
