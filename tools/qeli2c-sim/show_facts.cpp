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

// Registers of an expander in their order, each over all ports.
enum ExpanderRegister : uint32_t { kInput, kOutput, kPolarity, kConfiguration };

uint32_t over_ports(const std::vector<uint8_t> &registers, ExpanderRegister which, uint32_t ports)
{
    uint32_t value = 0;
    for (uint32_t port = 0; port < ports; port++) {
        value |= static_cast<uint32_t>(registers[which * ports + port]) << 8 * port;
    }
    return value;
}

std::vector<Fact> expander_facts(const std::vector<uint8_t> &registers, uint32_t ports)
{
    std::vector<Fact> facts;
    const char *const names[] = {"input", "output", "polarity", "configuration"};
    for (const ExpanderRegister which : {kInput, kOutput, kPolarity, kConfiguration}) {
        const uint32_t value = over_ports(registers, which, ports);
        facts.push_back(number(names[which], value, static_cast<int>(2 * ports),
                               which != kPolarity || value != 0));
    }
    return facts;
}

Fact measured(const char *name, double value, int decimals)
{
    char text[48];
    std::snprintf(text, sizeof(text), "%.*f", decimals, value);
    return {name, value, text, false};
}

// What the registers stand for: current and power are zero until the chip is calibrated.
void add_measurements(std::vector<Fact> &facts, const std::vector<uint8_t> &registers,
                      int64_t shunt_uohm)
{
    const auto word = [&registers](uint32_t i) {
        return static_cast<uint16_t>(registers[2 * i] << 8 | registers[2 * i + 1]);
    };
    const double current_lsb =
        word(5) == 0 || shunt_uohm == 0 ? 0 : 5120.0 / (word(5) * static_cast<double>(shunt_uohm));
    facts.push_back(measured("shunt_v", static_cast<int16_t>(word(1)) * 2.5e-6, 7));
    facts.push_back(measured("bus_v", word(2) * 1.25e-3, 5));
    facts.push_back(measured("power_w", word(3) * 25 * current_lsb, 3));
    facts.push_back(measured("current_a", static_cast<int16_t>(word(4)) * current_lsb, 3));
}

std::vector<Fact> monitor_facts(const std::vector<uint8_t> &registers, int64_t shunt_uohm)
{
    std::vector<Fact> facts;
    const char *const names[] = {"configuration", "shunt",       "bus",  "power",
                                 "current",       "calibration", "mask", "limit"};
    for (uint32_t i = 0; i < 8; i++) {
        facts.push_back(number(names[i],
                               static_cast<uint64_t>(registers[2 * i] << 8) | registers[2 * i + 1],
                               4, false));
    }
    add_measurements(facts, registers, shunt_uohm);
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
        more = monitor_facts(registers, simboard::read_stimulus(view, chip, "shunt_uohm"));
    } else if (chip.type != ChipType::mctp) {
        more = memory_facts(registers, kind.fill);
    }
    facts.insert(facts.end(), more.begin(), more.end());
    return facts;
}

std::vector<Pin> pins_of(const BoardView &view, const Chip &chip,
                         const std::vector<std::string> &names)
{
    std::vector<Pin> pins(simboard::chip_kind(chip.type).pins);
    if (pins.empty()) {
        return pins;
    }
    const auto ports = static_cast<uint32_t>(pins.size() / 8);
    const std::vector<uint8_t> registers = simboard::peek(view, chip, 0, 4 * ports);
    const uint32_t levels =
        over_ports(registers, kInput, ports) ^ over_ports(registers, kPolarity, ports);
    const uint32_t inputs = over_ports(registers, kConfiguration, ports);
    for (size_t i = 0; i < pins.size(); i++) {
        pins[i] = {i < names.size() ? names[i] : "", (inputs >> i & 1) != 0,
                   (levels >> i & 1) != 0};
    }
    return pins;
}

std::string holder_text(const Holder &holder)
{
    if (holder.task.pid == 0) {
        return "nobody known";
    }
    std::string text =
        (holder.name.empty() ? "process" : holder.name) + " " + std::to_string(holder.task.pid);
    if (holder.task.tid != holder.task.pid) {
        text += "/" + std::to_string(holder.task.tid);
    }
    return text + (holder.alive ? "" : ", ended");
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
