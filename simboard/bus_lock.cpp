// The bus mutex and its undo journal.
#include "simboard/bus_lock.h"

#include <errno.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

namespace simboard
{

namespace
{

// A message moves from line to line in order, and a few chips may do so side by side.
constexpr uint32_t kRecentLines = 8;

bool recently_kept(const Journal &journal, uint32_t count, uint64_t offset)
{
    const uint32_t oldest = count > kRecentLines ? count - kRecentLines : 0;
    for (uint32_t i = count; i > oldest; i--) {
        if (journal.lines[i - 1].offset == offset) {
            return true;
        }
    }
    return false;
}

// Newest first, so that a line kept twice ends with its oldest bytes. A task killed in here leaves
// the count as it was, and the next one does it all again.
void roll_back(State &state, Bus &bus)
{
    Journal &journal = state.journals[bus.number];
    for (uint32_t i = journal.count.load(std::memory_order_acquire); i > 0; i--) {
        const JournalLine &line = journal.lines[i - 1];
        memcpy(reinterpret_cast<uint8_t *>(&state) + line.offset, line.bytes, kLineSize);
    }
    journal.count.store(0, std::memory_order_release);
}

// After a look at the mutex: what a dead holder had changed is put back.
void take_over(State &state, Bus &bus, int status)
{
    if (status == EOWNERDEAD) {
        roll_back(state, bus);
        bus.recoveries.fetch_add(1, std::memory_order_relaxed);
        pthread_mutex_consistent(&bus.mutex);
    }
}

// A handler that made a transfer of its own, or jumped out, would find or leave the bus held by its
// own thread.
void block_signals(BusHold &hold)
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &hold.signals);
}

} // namespace

int init_shared(pthread_mutex_t &mutex)
{
    pthread_mutexattr_t attributes;
    int error = pthread_mutexattr_init(&attributes);
    if (error != 0) {
        return error;
    }
    error = pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    if (error == 0) {
        error = pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    }
    if (error == 0) {
        error = pthread_mutex_init(&mutex, &attributes);
    }
    pthread_mutexattr_destroy(&attributes);
    return error;
}

void lock_shared(pthread_mutex_t &mutex)
{
    if (pthread_mutex_lock(&mutex) == EOWNERDEAD) {
        pthread_mutex_consistent(&mutex);
    }
}

void lock_bus(State &state, Bus &bus, BusHold &hold)
{
    block_signals(hold);
    take_over(state, bus, pthread_mutex_lock(&bus.mutex));
}

int lock_within(pthread_mutex_t &mutex, uint32_t timeout_ms)
{
#ifdef __SANITIZE_THREAD__ // it does not know pthread_mutex_clocklock
    for (uint32_t waited = 0;; waited++) {
        const int status = pthread_mutex_trylock(&mutex);
        if (status != EBUSY || waited >= timeout_ms) {
            return status;
        }
        usleep(1000);
    }
#else
    timespec until;
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += timeout_ms / 1000;
    until.tv_nsec += static_cast<long>(timeout_ms % 1000) * 1'000'000;
    if (until.tv_nsec >= 1'000'000'000) {
        until.tv_sec++;
        until.tv_nsec -= 1'000'000'000;
    }
    return pthread_mutex_clocklock(&mutex, CLOCK_MONOTONIC, &until);
#endif
}

bool lock_bus_within(State &state, Bus &bus, BusHold &hold, uint32_t timeout_ms)
{
    block_signals(hold);
    const int status = lock_within(bus.mutex, timeout_ms);
    if (status != 0 && status != EOWNERDEAD) {
        pthread_sigmask(SIG_SETMASK, &hold.signals, nullptr);
        return false;
    }
    take_over(state, bus, status);
    return true;
}

void commit_bus(State &state, Bus &bus)
{
    state.journals[bus.number].count.store(0, std::memory_order_release);
}

void unlock_bus(State &state, Bus &bus, const BusHold &hold)
{
    const int saved = errno;
    commit_bus(state, bus);
    pthread_mutex_unlock(&bus.mutex);
    pthread_sigmask(SIG_SETMASK, &hold.signals, nullptr);
    errno = saved;
}

void preserve(State &state, Bus &bus, const void *at, size_t length)
{
    Journal &journal = state.journals[bus.number];
    const uint8_t *const base = reinterpret_cast<const uint8_t *>(&state);
    const uint64_t start = static_cast<uint64_t>(static_cast<const uint8_t *>(at) - base);
    uint32_t count = journal.count.load(std::memory_order_relaxed);
    for (uint64_t offset = start - start % kLineSize; offset < start + length;
         offset += kLineSize) {
        if (recently_kept(journal, count, offset) || count == kJournalLines) {
            continue;
        }
        journal.lines[count].offset = offset;
        memcpy(journal.lines[count].bytes, base + offset, kLineSize);
        count++;
        journal.count.store(count, std::memory_order_release);
    }
    // The compiler must not move the caller's change before the count.
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

} // namespace simboard
