// The judge: foreign transfers, paths left open, channels that should not be open together.
#include "simboard/judge.h"

#include "simboard/bus_lock.h"
#include "simboard/clock.h"

namespace simboard
{

namespace
{

bool same(const Task &a, const Task &b)
{
    return a.pid == b.pid && a.tid == b.tid;
}

unsigned count_bits(uint8_t bits)
{
    return static_cast<unsigned>(__builtin_popcount(bits));
}

// Segments switched onto the segment that the switch itself sits on.
unsigned open_siblings(const State &state, const Bus &bus, const Chip &chip)
{
    unsigned open = 0;
    for (uint32_t i = 0; i < bus.switch_count; i++) {
        const Chip &other = state.chips[bus.switches[i]];
        if (other.parent == chip.parent && other.channel == chip.channel) {
            open += count_bits(other.state.control);
        }
    }
    return open;
}

LockHold &hold_of(Bus &bus, Lock lock)
{
    return lock == Lock::semaphore ? bus.state.semaphore : bus.state.file;
}

void raise(uint64_t &longest, uint64_t value)
{
    longest = value > longest ? value : longest;
}

// Paths of its own that a process leaves open when it lets others at the bus.
bool leaves_path_open(const State &state, const Bus &bus, const Task &task)
{
    for (uint32_t i = 0; i < bus.switch_count; i++) {
        const ChipState &chip = state.chips[bus.switches[i]].state;
        if (chip.control != 0 && chip.opener.pid == task.pid) {
            return true;
        }
    }
    return false;
}

// A hold lasts until both locks are given back; what the semaphore's holder knows of the file lock
// began within it.
void end_hold(Bus &bus, Lock lock, const Task &task, Counters &counters)
{
    LockHold &mine = hold_of(bus, lock);
    LockHold &other = lock == Lock::semaphore ? bus.state.file : bus.state.semaphore;
    if (mine.pid != task.pid) {
        return; // never seen taken, or somebody else's by now
    }
    if (other.pid != task.pid) {
        raise(counters.longest_hold_ns, now_ns() - mine.since_ns);
    } else if (mine.since_ns < other.since_ns) {
        other.since_ns = mine.since_ns;
    }
    mine = {};
}

} // namespace

bool is_reachable(const State &state, const Chip &chip)
{
    uint8_t channel = chip.channel;
    for (uint32_t parent = chip.parent; parent != kNoParent;) {
        const Chip &upstream = state.chips[parent];
        if ((upstream.state.control >> channel & 1) == 0) {
            return false;
        }
        channel = upstream.channel;
        parent = upstream.parent;
    }
    return true;
}

uint16_t judge_start(State &state, Bus &bus, const Task &task, Counters &counters)
{
    uint16_t findings = 0;
    for (uint32_t i = 0; i < bus.switch_count; i++) {
        Chip &chip = state.chips[bus.switches[i]];
        const Task opener = chip.state.opener;
        if (chip.state.control == 0 || opener.pid == 0 || same(opener, task)) {
            continue;
        }
        if (is_alive(opener, chip.state.opened_at)) {
            findings |= kFindingForeign;
        } else {
            preserve(state, bus, &chip.state, sizeof(chip.state));
            chip.state.opener = {};
            counters.orphaned_paths++;
            findings |= kFindingOrphan;
        }
    }
    if ((findings & kFindingForeign) != 0) {
        counters.foreign_transfers++;
    }
    return findings;
}

uint16_t judge_switch(State &state, Bus &bus, Chip &chip, uint8_t before, const Task &task)
{
    if (chip.state.control == 0) {
        chip.state.opener = {};
        return 0;
    }
    chip.state.opener = task;
    chip.state.opened_at = clock_ns(CLOCK_BOOTTIME);
    const bool opened_more = count_bits(chip.state.control) > count_bits(before);
    return opened_more && open_siblings(state, bus, chip) > 1 ? kFindingTwoChannels : uint16_t{0};
}

void judge_unlock(State &state, Bus &bus, Lock lock)
{
    const Self self = current_task(state);
    BusHold hold;
    lock_bus(state, bus, hold);
    preserve(state, bus, &bus.state, sizeof(bus.state));
    Counters &counters = own_counters(state, bus, self.record);
    if (lock != Lock::semaphore && leaves_path_open(state, bus, self.task)) {
        counters.paths_left_open++;
    }
    if (lock == Lock::record) {
        if (bus.state.lock_holder != self.task.pid) {
            counters.unbalanced_unlocks++;
        } else {
            bus.state.lock_holder = 0;
        }
    }
    end_hold(bus, lock, self.task, counters);
    unlock_bus(state, bus, hold);
}

void judge_lock(State &state, Bus &bus, Lock lock, uint64_t asked_ns)
{
    const uint64_t got_ns = now_ns();
    const Self self = current_task(state);
    BusHold hold;
    lock_bus(state, bus, hold);
    preserve(state, bus, &bus.state, sizeof(bus.state));
    raise(own_counters(state, bus, self.record).longest_wait_ns, got_ns - asked_ns);
    hold_of(bus, lock) = {got_ns, self.task.pid, 0};
    if (lock == Lock::record) {
        bus.state.lock_holder = self.task.pid;
    }
    unlock_bus(state, bus, hold);
}

} // namespace simboard
