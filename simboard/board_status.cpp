// Users and open paths of a board.
#include "simboard/board_status.h"

#include <ctime>

#include "simboard/bus_guard.h"
#include "simboard/process.h"

namespace simboard
{

namespace
{

std::vector<LiveProcess> find_processes(State &state)
{
    std::vector<LiveProcess> found;
    lock_shared(state.process_mutex);
    for (uint32_t i = 1; i < kProcesses; i++) {
        const ProcessRecord &record = state.processes[i];
        const int32_t pid = record.pid.load(std::memory_order_acquire);
        if (pid != 0 && process_lives(pid, record.start_ticks)) {
            found.push_back({pid, record.name});
        }
    }
    pthread_mutex_unlock(&state.process_mutex);
    return found;
}

void add_open_paths(State &state, Bus &bus, std::vector<OpenPath> &found)
{
    const BusGuard guard(state, bus);
    for (uint32_t i = 0; i < bus.switch_count; i++) {
        const ChipState &chip = state.chips[bus.switches[i]].state;
        if (chip.control == 0) {
            continue;
        }
        const bool lives = chip.opener.pid != 0 && is_alive(chip.opener, chip.opened_at);
        found.push_back({bus.number, state.chips[bus.switches[i]].name, chip.control,
                         lives ? chip.opener : Task{}});
    }
}

} // namespace

BoardStatus read_status(const BoardView &view)
{
    State &state = *view.state;
    BoardStatus status;
    const uint64_t now = static_cast<uint64_t>(std::time(nullptr));
    status.age_s = now > state.header.created_at ? now - state.header.created_at : 0;
    status.processes = find_processes(state);
    for (Bus &bus : state.buses) {
        add_open_paths(state, bus, status.open_paths);
    }
    for (const ProcessCounters &process : read_counters(view)) {
        for (const Counters &counters : process.by_bus) {
            add_counters(status.totals, counters);
        }
    }
    return status;
}

} // namespace simboard
