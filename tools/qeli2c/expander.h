// GPIO expanders: their pins by number or name, and their registers read and changed as a whole.
#ifndef QELI2C_EXPANDER_H
#define QELI2C_EXPANDER_H

#include "board_file.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tool
{

struct Expander {
    Target target;
    uint32_t pins = 0;              // how many it has, 16 or 8
    std::vector<std::string> names; // of its pins, from pin 0 on, as far as they have any
};

// One bit for each pin.
struct PinRegisters {
    uint32_t levels = 0;   // at the pins, inverted where `inverted` says so
    uint32_t outputs = 0;  // what output pins drive
    uint32_t inverted = 0; // polarity inversion of `levels`
    uint32_t inputs = 0;   // configuration: which pins are inputs
};

// `type` is asked for where the board file does not know it: "pca9535" or "pca9554".
Expander find_expander(const Board &board, const std::string &device, const std::string &type);

uint32_t pin_number(const Expander &expander, const std::string &text);
std::string pin_name(const Expander &expander, uint32_t pin); // its number when it has no name

PinRegisters read_pins(const Expander &expander);

// Sets the masked bits of outputs and inputs to those of `wanted`, under one hold of the bus;
// outputs first, so that no pin ever drives what it was not told.
struct PinChange {
    uint32_t output_mask = 0, outputs = 0;
    uint32_t input_mask = 0, inputs = 0;
};
void change_pins(const Expander &expander, const PinChange &change);

} // namespace tool

#endif
