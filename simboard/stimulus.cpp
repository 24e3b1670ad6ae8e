// What surrounds a chip, read and changed by name.
#include <stdexcept>

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
        throw std::runtime_error(std::string(chip.name) + ", a " + chip_kind(chip.type).name +
                                 ", has no \"" + name + "\"");
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
