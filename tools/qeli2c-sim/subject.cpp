// Devices and what surrounds them, by name.
#include "subject.h"
#include "simboard/chip_kind.h"
#include "tools/qeli2c/number.h"

#include <algorithm>

namespace runner
{

std::vector<std::string> pin_names(const ChosenBoard &board, const simboard::Chip &chip)
{
    for (const simboard::DeviceDescription &device : board.description().devices) {
        if (device.name == chip.name) {
            return device.pins;
        }
    }
    return {};
}

namespace
{

std::optional<uint32_t> find_pin(const ChosenBoard &board, const simboard::Chip &chip,
                                 const std::string &name)
{
    const uint32_t pins = simboard::chip_kind(chip.type).pins;
    if (const std::optional<uint32_t> number = tool::parse_number(name)) {
        return *number < pins ? number : std::nullopt;
    }
    const std::vector<std::string> names = pin_names(board, chip);
    const auto found = std::find(names.begin(), names.end(), name);
    if (name.empty() || found == names.end()) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(found - names.begin());
}

// Says what there is, too.
[[noreturn]] void refuse(const simboard::Chip &chip, const std::string &quantity)
{
    const simboard::ChipKind &kind = simboard::chip_kind(chip.type);
    std::string known;
    for (const std::string &name : simboard::list_stimuli(chip)) {
        known += (known.empty() ? "" : ", ") + name;
    }
    if (kind.pins > 0) {
        known += ", pins 0 to " + std::to_string(kind.pins - 1) + " and their names";
    }
    throw std::runtime_error(std::string(chip.name) + " (" + kind.name + ") has no \"" + quantity +
                             "\"" + (known.empty() ? "" : "; it has " + known));
}

} // namespace

Subject find_subject(ChosenBoard &board, const std::string &text)
{
    if (simboard::Chip *const chip = simboard::look_up_chip(board.view(), text)) {
        return {chip, "", std::nullopt};
    }
    const size_t dot = text.rfind('.'); // names of devices may hold dots, too
    simboard::Chip *const chip = dot == std::string::npos
                                     ? nullptr
                                     : simboard::look_up_chip(board.view(), text.substr(0, dot));
    if (chip == nullptr) {
        throw std::runtime_error("the board has no device \"" + text.substr(0, dot) + "\"");
    }
    const std::string quantity = text.substr(dot + 1);
    if (simboard::find_stimulus(simboard::chip_kind(chip->type), quantity) != nullptr) {
        return {chip, quantity, std::nullopt};
    }
    const std::optional<uint32_t> pin = find_pin(board, *chip, quantity);
    if (!pin) {
        refuse(*chip, quantity);
    }
    return {chip, quantity, pin};
}

int64_t read_quantity(ChosenBoard &board, const Subject &subject)
{
    if (subject.pin) {
        return simboard::read_stimulus(board.view(), *subject.chip, "inputs") >> *subject.pin & 1;
    }
    return simboard::read_stimulus(board.view(), *subject.chip, subject.quantity);
}

void write_quantity(ChosenBoard &board, const Subject &subject, int64_t value)
{
    if (!subject.pin) {
        simboard::write_stimulus(board.view(), *subject.chip, subject.quantity, value);
        return;
    }
    if (value != 0 && value != 1) {
        throw UsageError("the level at a pin is 0 or 1");
    }
    simboard::write_pin(board.view(), *subject.chip, *subject.pin, value == 1);
}

uint32_t count_registers(const simboard::Chip &chip)
{
    if (chip.type == simboard::ChipType::pca9548) {
        return 1;
    }
    const simboard::ChipKind &kind = simboard::chip_kind(chip.type);
    return kind.stimulus_count > 0 ? kind.stimuli[0].offset : chip.memory_size;
}

uint32_t parse_offset(const simboard::Chip &chip, const std::string &text)
{
    return tool::number_in(text, 0, count_registers(chip) - 1, "offset");
}

} // namespace runner
