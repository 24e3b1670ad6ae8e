// The judge: foreign transfers, paths left open, channels that should not be open together.
#include "simboard/judge.h"

#include <time.h>

#include "simboard/bus_lock.h"

namespace simboard
{

namespace
{

bool same(const Task &a, const Task &b)
{
    return a.pid == b.pid && a.tid == b.tid;
}

uint64_t boot_time_ns()
{
    timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
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
    chip.state.opened_at = boot_time_ns();
    const bool opened_more = count_bits(chip.state.control) > count_bits(before);
    return opened_more && open_siblings(state, bus, chip) > 1 ? kFindingTwoChannels : uint16_t{0};
}

void judge_unlock(State &state, Bus &bus, bool posix)
{
    const Self self = current_task(state);
    BusHold hold;
    lock_bus(state, bus, hold);
    bool left_open = false;
    for (uint32_t i = 0; i < bus.switch_count; i++) {
        const ChipState &chip = state.chips[bus.switches[i]].state;
        left_open = left_open || (chip.control != 0 && chip.opener.pid == self.task.pid);
    }
    const bool unbalanced = posix && bus.state.lock_holder != self.task.pid;
    if (left_open || unbalanced) {
        Counters &counters = own_counters(state, bus, self.record);
        counters.paths_left_open += left_open ? 1U : 0U;
        counters.unbalanced_unlocks += unbalanced ? 1U : 0U;
    }
    if (posix && !unbalanced) {
        preserve(state, bus, &bus.state, sizeof(bus.state));
        bus.state.lock_holder = 0;
    }
    unlock_bus(state, bus, hold);
}

void judge_lock(State &state, Bus &bus)
{
    const Self self = current_task(state);
    BusHold hold;
    lock_bus(state, bus, hold);
    preserve(state, bus, &bus.state, sizeof(bus.state));
    bus.state.lock_holder = self.task.pid;
    unlock_bus(state, bus, hold);
}

} // namespace simboard
