// What peek and poke are about: a device, or something around it that has a name.
#ifndef QELI2C_SIM_SUBJECT_H
#define QELI2C_SIM_SUBJECT_H

#include "chosen_board.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace runner
{

struct Subject {
    simboard::Chip *chip;
    std::string quantity;        // empty: the device's registers
    std::optional<uint32_t> pin; // of an expander, when the quantity is one of its pins
};

// "DEVICE" or "DEVICE.QUANTITY", the latter one of the device's surroundings ("voltage_mv"), or a
// pin of an expander by its number or its name.
Subject find_subject(ChosenBoard &board, const std::string &text);

// What the board file calls an expander's pins, from 0 on; empty for other devices.
std::vector<std::string> pin_names(const ChosenBoard &board, const simboard::Chip &chip);

// A quantity; of a pin, the level that stands at it from outside.
int64_t read_quantity(ChosenBoard &board, const Subject &subject);
void write_quantity(ChosenBoard &board, const Subject &subject, int64_t value);

// Bytes that programs can reach at a device: a switch's control register, registers, EEPROM.
uint32_t count_registers(const simboard::Chip &chip);

// An offset into them as typed; a usage error beyond them.
uint32_t parse_offset(const simboard::Chip &chip, const std::string &text);

} // namespace runner

#endif
