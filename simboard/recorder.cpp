// Waiting for those who record the trace.
#include "simboard/recorder.h"

#include <errno.h>

#include "simboard/clock.h"

namespace simboard
{

namespace
{

// Long enough for a recorder that gets no processor on a busy machine; longer than that it has been
// stopped.
constexpr uint64_t kPatienceNs = 1'000'000'000;
constexpr uint64_t kNapNs = 100'000;
constexpr uint64_t kNotRecorded = UINT64_MAX / 2; // as `taken` of a bus

// Recorders that have yet to copy some of the slots that would be overwritten.
uint32_t find_late(const State &state, const Bus &bus, uint64_t slots)
{
    const uint32_t awaited = state.awaited.load(std::memory_order_relaxed);
    uint32_t late = 0;
    for (uint32_t i = 0; awaited >> i != 0; i++) {
        if ((awaited >> i & 1) != 0 &&
            bus.state.trace_slots + slots > state.recorders[i].taken[bus.number] + kTraceSlots) {
            late |= 1U << i;
        }
    }
    return late;
}

uint64_t sum_taken(const State &state, const Bus &bus, uint32_t recorders)
{
    uint64_t sum = 0;
    for (uint32_t i = 0; recorders >> i != 0; i++) {
        sum += (recorders >> i & 1) != 0 ? state.recorders[i].taken[bus.number] : 0;
    }
    return sum;
}

bool seize(pthread_mutex_t &alive)
{
    const int status = pthread_mutex_trylock(&alive);
    if (status == EOWNERDEAD) {
        pthread_mutex_consistent(&alive);
    }
    return status == 0 || status == EOWNERDEAD;
}

void dismiss_dead(State &state, uint32_t recorders)
{
    for (uint32_t i = 0; recorders >> i != 0; i++) {
        if ((recorders >> i & 1) != 0 && seize(state.recorders[i].alive)) {
            retire_recorder(state, i); // while the place is ours, so that nobody new has it
            pthread_mutex_unlock(&state.recorders[i].alive);
        }
    }
}

} // namespace

uint32_t register_recorder(State &state, uint32_t buses)
{
    for (uint32_t i = 0; i < kRecorders; i++) {
        Recorder &recorder = state.recorders[i];
        if (!seize(recorder.alive)) {
            continue;
        }
        retire_recorder(state, i); // whoever died here
        for (Bus &bus : state.buses) {
            BusHold hold;
            lock_bus(state, bus, hold);
            const bool recorded = (buses >> bus.number & 1) != 0;
            recorder.taken[bus.number] = recorded ? bus.state.trace_slots : kNotRecorded;
            unlock_bus(state, bus, hold);
        }
        state.awaited.fetch_or(1U << i);
        return i;
    }
    return kNoRecorder;
}

void note_taken(State &state, const Bus &bus, uint32_t recorder, uint64_t taken)
{
    if (recorder != kNoRecorder) {
        state.recorders[recorder].taken[bus.number] = taken;
        state.awaited.fetch_or(1U << recorder);
    }
}

void retire_recorder(State &state, uint32_t recorder)
{
    if (recorder != kNoRecorder) {
        state.awaited.fetch_and(~(1U << recorder));
    }
}

void release_recorder(State &state, uint32_t recorder)
{
    if (recorder != kNoRecorder) {
        retire_recorder(state, recorder);
        pthread_mutex_unlock(&state.recorders[recorder].alive);
    }
}

void await_recorders(State &state, Bus &bus, BusHold &hold, uint64_t slots)
{
    uint64_t give_up_ns = 0;
    uint32_t late_before = 0;
    uint64_t taken_before = 0;
    for (;;) {
        const uint32_t late = find_late(state, bus, slots);
        if (late == 0) {
            return;
        }
        const uint64_t now = now_ns();
        const uint64_t taken = sum_taken(state, bus, late);
        // A recorder that goes on, or that was not late until now, has all the patience before it.
        if (late != late_before || taken != taken_before) {
            give_up_ns = now + kPatienceNs;
            late_before = late;
            taken_before = taken;
        }
        if (now >= give_up_ns) {
            state.awaited.fetch_and(~late);
            return;
        }
        dismiss_dead(state, late); // before signals come through
        unlock_bus(state, bus, hold);
        sleep_until(now + kNapNs);
        lock_bus(state, bus, hold);
    }
}

void restart_recorders(State &state, const Bus &bus)
{
    for (Recorder &recorder : state.recorders) {
        if (recorder.taken[bus.number] != kNotRecorded) {
            recorder.taken[bus.number] = 0;
        }
    }
}

} // namespace simboard
