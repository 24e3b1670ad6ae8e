// Boards looked at from outside.
#include "simboard/view.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "simboard/attach.h"
#include "simboard/build_state.h"
#include "simboard/bus_guard.h"
#include "simboard/chip.h"
#include "simboard/fault_view.h"
#include "simboard/recorder.h"

namespace simboard
{

namespace
{

// Registers and EEPROM bytes, or a switch's control register.
uint8_t *bytes_of(State &state, Chip &chip, uint32_t offset, size_t count)
{
    const bool is_switch = chip.type == ChipType::pca9548;
    const uint32_t size = is_switch ? 1 : chip.memory_size;
    if (offset > size || count > size - offset) {
        throw std::runtime_error(std::string(chip.name) + " has " + std::to_string(size) +
                                 " bytes: " + std::to_string(count) + " at " +
                                 std::to_string(offset) + " are beyond them");
    }
    return (is_switch ? &chip.state.control : memory_of(state, chip)) + offset;
}

// What a column holds belongs to an earlier process when its generation is not the record's.
void collect(State &state, Bus &bus, std::vector<ProcessCounters> &found)
{
    const BusGuard guard(state, bus);
    for (uint32_t i = 0; i < kProcesses; i++) {
        const ProcessRecord &record = state.processes[i];
        const Counters &column = record.by_bus[bus.number];
        const bool own = column.generation == record.generation;
        add_counters(found[own ? i : 0].by_bus[bus.number], column);
    }
}

bool has_counted(const ProcessCounters &process)
{
    for (const Counters &counters : process.by_bus) {
        if (counters.transfers + counters.paths_left_open + counters.unbalanced_unlocks +
                counters.longest_wait_ns >
            0) {
            return true;
        }
    }
    return false;
}

} // namespace

BoardView open_board(const std::string &directory)
{
    const char *reason = nullptr;
    State *const state = map_board(directory.c_str(), reason);
    if (state == nullptr) {
        throw std::runtime_error("board " + directory + ": " + reason);
    }
    return {state, directory};
}

void close_board(BoardView &view)
{
    if (view.state != nullptr) {
        unmap_board(view.state);
        view.state = nullptr;
    }
}

Chip *look_up_chip(const BoardView &view, const std::string &name)
{
    for (uint32_t i = 0; i < view.state->header.chip_count; i++) {
        if (name == view.state->chips[i].name) {
            return &view.state->chips[i];
        }
    }
    return nullptr;
}

Chip &find_chip(const BoardView &view, const std::string &name)
{
    if (Chip *const chip = look_up_chip(view, name)) {
        return *chip;
    }
    throw std::runtime_error("the board has no device \"" + name + "\"");
}

std::vector<uint8_t> peek(const BoardView &view, const Chip &chip, uint32_t offset, uint32_t count)
{
    State &state = *view.state;
    Bus &bus = state.buses[chip.bus];
    Chip &present = const_cast<Chip &>(chip);
    const BusGuard guard(state, bus);
    const uint8_t *const bytes = bytes_of(state, present, offset, count);
    chip_settle({state, bus, present, 0});
    return {bytes, bytes + count};
}

void poke(const BoardView &view, Chip &chip, uint32_t offset, const std::vector<uint8_t> &bytes)
{
    State &state = *view.state;
    Bus &bus = state.buses[chip.bus];
    const BusGuard guard(state, bus);
    uint8_t *const to = bytes_of(state, chip, offset, bytes.size());
    preserve(state, bus, to, bytes.size());
    std::copy(bytes.begin(), bytes.end(), to);
    chip_settle({state, bus, chip, 0});
    if (chip.type == ChipType::pca9548) {
        preserve(state, bus, &chip.state.opener, sizeof(chip.state.opener));
        chip.state.opener = {};
    }
}

std::vector<ProcessCounters> read_counters(const BoardView &view)
{
    State &state = *view.state;
    std::vector<ProcessCounters> all(kProcesses);
    lock_shared(state.process_mutex);
    for (uint32_t i = 1; i < kProcesses; i++) {
        all[i].pid = state.processes[i].pid.load(std::memory_order_acquire);
        all[i].name = state.processes[i].name;
    }
    for (Bus &bus : state.buses) {
        collect(state, bus, all);
    }
    pthread_mutex_unlock(&state.process_mutex);
    std::vector<ProcessCounters> found;
    for (const ProcessCounters &process : all) {
        if (has_counted(process)) {
            found.push_back(process);
        }
    }
    return found;
}

std::string describe_wrongs(const Counters &counters, const std::string &prefix)
{
    const struct {
        uint64_t count;
        const char *text;
    } wrongs[] = {
        {counters.conflicts, "transfers that two devices answered at once"},
        {counters.foreign_transfers, "transfers inside the open path of another task"},
        {counters.paths_left_open, "releases of the file lock with a path left open"},
        {counters.two_channels, "transfers that left two channels open on one segment"},
        {counters.unbalanced_unlocks, "releases of a file lock that was not held"},
    };
    std::string text;
    for (const auto &wrong : wrongs) {
        if (wrong.count > 0) {
            text += prefix + std::to_string(wrong.count) + " " + wrong.text + "\n";
        }
    }
    return text;
}

void reset_board(const BoardView &view)
{
    State &state = *view.state;
    for (Bus &bus : state.buses) {
        BusGuard guard(state, bus);
        await_recorders(state, bus, guard.hold(), kTraceSlots); // they have all that was before
        for (uint32_t i = 0; i < bus.chip_count; i++) {
            clear_chip(state, state.chips[bus.first_chip + i]);
        }
        for (ProcessRecord &process : state.processes) {
            Counters &column = process.by_bus[bus.number];
            const uint32_t generation = column.generation;
            column = {};
            column.generation = generation;
        }
        const uint32_t resets = bus.state.resets + 1;
        bus.state = {};
        bus.state.resets = resets;
        restart_recorders(state, bus);
    }
    rearm_faults(view);
}

} // namespace simboard
