// Looking into chips.
#include "show_facts.h"

#include "simboard/bus_guard.h"
#include "simboard/chip_kind.h"
#include "simboard/process.h"

#include <algorithm>
#include <csignal>
#include <cstdio>

namespace runner
{

namespace
{

using simboard::BoardView;
using simboard::Chip;
using simboard::ChipType;

std::string hex(uint64_t value, int digits)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%0*llx", digits, static_cast<unsigned long long>(value));
    return text;
}

Fact number(const char *name, uint64_t value, int digits, bool brief = true)
{
    return {name, Json::UInt64(value), hex(value, digits), brief};
}

std::vector<Fact> expander_facts(const std::vector<uint8_t> &registers, uint32_t ports)
{
    std::vector<Fact> facts;
    const char *const names[] = {"input", "output", "polarity", "configuration"};
    for (uint32_t kind = 0; kind < 4; kind++) {
        uint32_t value = 0;
        for (uint32_t port = 0; port < ports; port++) {
            value |= static_cast<uint32_t>(registers[kind * ports + port]) << 8 * port;
        }
        facts.push_back(
            number(names[kind], value, static_cast<int>(2 * ports), kind != 2 || value != 0));
    }
    return facts;
}

std::vector<Fact> monitor_facts(const std::vector<uint8_t> &registers)
{
    std::vector<Fact> facts;
    const char *const names[] = {"configuration", "shunt",       "bus",  "power",
                                 "current",       "calibration", "mask", "limit"};
    for (uint32_t i = 0; i < 8; i++) {
        facts.push_back(number(names[i],
                               static_cast<uint64_t>(registers[2 * i] << 8) | registers[2 * i + 1],
                               4, false));
    }
    return facts;
}

// How much differs from how the chip was delivered.
std::vector<Fact> memory_facts(const std::vector<uint8_t> &bytes, uint8_t fill)
{
    const auto is_used = [fill](uint8_t byte) { return byte != fill; };
    const auto first = std::find_if(bytes.begin(), bytes.end(), is_used);
    const auto used = std::count_if(bytes.begin(), bytes.end(), is_used);
    const std::string erased = fill == 0 ? "all zeros" : "erased";
    std::vector<Fact> facts = {
        {"used", Json::Int64(used),
         used == 0 ? erased : std::to_string(used) + " of " + std::to_string(bytes.size()), true}};
    if (used > 0) {
        facts.push_back(number("first", static_cast<uint64_t>(first - bytes.begin()),
                               bytes.size() > 256 ? 4 : 2));
    }
    return facts;
}

Holder holder_of(const simboard::State &state, const simboard::Task &task, bool alive)
{
    Holder holder = {task, "", alive && task.pid != 0};
    for (const simboard::ProcessRecord &process : state.processes) {
        if (task.pid != 0 && process.pid.load(std::memory_order_acquire) == task.pid) {
            holder.name = process.name;
        }
    }
    return holder;
}

// A lock's holder is remembered after a kill, though the kernel has given the lock back.
Holder lock_holder(const simboard::State &state, const simboard::LockHold &hold)
{
    return holder_of(state, {hold.pid, hold.pid},
                     simboard::is_alive({hold.pid, hold.pid}, UINT64_MAX));
}

} // namespace

std::vector<Fact> facts_of(const BoardView &view, const Chip &chip)
{
    std::vector<Fact> facts;
    const simboard::ChipKind &kind = simboard::chip_kind(chip.type);
    const uint32_t size = kind.stimulus_count > 0 ? kind.stimuli[0].offset : chip.memory_size;
    for (const std::string &name : simboard::list_stimuli(chip)) {
        const int64_t value = simboard::read_stimulus(view, chip, name);
        const bool is_bits = name == "id" || name == "inputs";
        facts.push_back({name, Json::Int64(value),
                         is_bits ? hex(static_cast<uint64_t>(value),
                                       name == "id" ? 8 : static_cast<int>(kind.pins) / 4)
                                 : std::to_string(value),
                         name != "inputs"});
    }
    if (chip.type == ChipType::pca9548) {
        return facts;
    }
    const std::vector<uint8_t> registers = simboard::peek(view, chip, 0, size);
    std::vector<Fact> more;
    if (kind.pins > 0) {
        more = expander_facts(registers, kind.pins / 8);
    } else if (chip.type == ChipType::tpa626) {
        more = monitor_facts(registers);
    } else if (chip.type != ChipType::mctp) {
        more = memory_facts(registers, kind.fill);
    }
    facts.insert(facts.end(), more.begin(), more.end());
    return facts;
}

SwitchState read_switch(const BoardView &view, const Chip &chip)
{
    simboard::State &state = *view.state;
    const simboard::BusGuard guard(state, state.buses[chip.bus]);
    const simboard::Task opener = chip.state.opener;
    return {chip.state.control,
            holder_of(state, opener, simboard::is_alive(opener, chip.state.opened_at))};
}

BusHolders read_holders(const BoardView &view, uint32_t bus)
{
    simboard::State &state = *view.state;
    const simboard::BusGuard guard(state, state.buses[bus]);
    return {lock_holder(state, state.buses[bus].state.semaphore),
            lock_holder(state, state.buses[bus].state.file)};
}

std::string path_of(const simboard::State &state, const Chip &chip)
{
    std::string text = "/0x" + hex(chip.address, 2);
    for (const Chip *at = &chip; at->parent != simboard::kNoParent;) {
        const Chip &parent = state.chips[at->parent];
        text = "/0x" + hex(parent.address, 2) + "." + std::to_string(at->channel) + text;
        at = &parent;
    }
    return std::to_string(chip.bus) + text;
}

} // namespace runner
