// What surrounds a chip, read and changed by name.
#include <stdexcept>

#include "simboard/bus_guard.h"
#include "simboard/chip_kind.h"
#include "simboard/chip_memory.h"
#include "simboard/view.h"

namespace simboard
{

namespace
{

const Stimulus &require_stimulus(const Chip &chip, const std::string &name)
{
    const Stimulus *const stimulus = find_stimulus(chip_kind(chip.type), name);
    if (stimulus == nullptr) {
        throw std::runtime_error(std::string(chip.name) + " (" + chip_kind(chip.type).name +
                                 ") has no \"" + name + "\"");
    }
    return *stimulus;
}

} // namespace

int64_t read_stimulus(const BoardView &view, const Chip &chip, const std::string &name)
{
    const Stimulus &stimulus = require_stimulus(chip, name);
    const std::vector<uint8_t> bytes = peek(view, chip, stimulus.offset, stimulus.size);
    const uint32_t value = load_number(bytes.data(), stimulus.size);
    return stimulus.low < 0 ? static_cast<int32_t>(value) : int64_t{value};
}

void write_stimulus(const BoardView &view, Chip &chip, const std::string &name, int64_t value)
{
    const Stimulus &stimulus = require_stimulus(chip, name);
    if (value < stimulus.low || value > stimulus.high) {
        throw std::runtime_error(
            std::string(chip.name) + "." + name + ": " + std::to_string(value) + " is not from " +
            std::to_string(stimulus.low) + " to " + std::to_string(stimulus.high));
    }
    std::vector<uint8_t> bytes(stimulus.size);
    store_number(bytes.data(), stimulus.size, static_cast<uint32_t>(value));
    poke(view, chip, stimulus.offset, bytes);
}

void write_pin(const BoardView &view, Chip &chip, uint32_t pin, bool level)
{
    const Stimulus &inputs = require_stimulus(chip, "inputs");
    if (pin >= chip_kind(chip.type).pins) {
        throw std::runtime_error(std::string(chip.name) + " has no pin " + std::to_string(pin));
    }
    State &state = *view.state;
    Bus &bus = state.buses[chip.bus];
    const BusGuard guard(state, bus); // other pins may be changed at the same time
    uint8_t *const port = memory_of(state, chip) + inputs.offset + pin / 8;
    const unsigned bit = 1U << pin % 8;
    preserve(state, bus, port, 1);
    *port = static_cast<uint8_t>(level ? *port | bit : *port & ~bit);
    chip_settle({state, bus, chip, 0});
}

std::vector<std::string> list_stimuli(const Chip &chip)
{
    const ChipKind &kind = chip_kind(chip.type);
    std::vector<std::string> names;
    for (uint32_t i = 0; i < kind.stimulus_count; i++) {
        names.emplace_back(kind.stimuli[i].name);
    }
    return names;
}

} // namespace simboard
