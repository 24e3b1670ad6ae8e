// Chip models: each is one function that answers what happens on the wires of its bus.
#ifndef SIMBOARD_CHIP_H
#define SIMBOARD_CHIP_H

#include "simboard/state.h"

namespace simboard
{

enum class BusEvent : uint8_t {
    start_write,    // START and the chip's address, R/W bit 0
    start_read,     // START and the chip's address, R/W bit 1
    write_byte,     // a byte from the master
    read_byte,      // the master clocks a byte out of the chip
    repeated_start, // a repeated START; the chip may or may not be addressed next
    stop,
};

constexpr int kAck = 0;
constexpr int kNack = -1;

// A chip in a transfer. Its ChipState has been preserved; `preserve` its memory before changing it.
struct ChipAccess {
    State &state;
    Bus &bus;
    Chip &chip;
    uint64_t now_ns; // time on the wire, CLOCK_MONOTONIC
};

// kAck or kNack for start_* and write_byte, 0 to 255 for read_byte, ignored otherwise.
int pca9548(const ChipAccess &access, BusEvent event, uint8_t byte);
int registers(const ChipAccess &access, BusEvent event, uint8_t byte);
int at24c512(const ChipAccess &access, BusEvent event, uint8_t byte);
int pca953x(const ChipAccess &access, BusEvent event, uint8_t byte);
int tpa626(const ChipAccess &access, BusEvent event, uint8_t byte);
int epld(const ChipAccess &access, BusEvent event, uint8_t byte);
int mctp(const ChipAccess &access, BusEvent event, uint8_t byte);

// The model of the chip's type.
int chip_event(const ChipAccess &access, BusEvent event, uint8_t byte);

// Registers as after power-on; the chip's surroundings stay, and what it keeps without power.
void chip_power_on(uint8_t *memory, const Chip &chip);

// Registers that follow the chip's surroundings, brought up to date. With the bus held.
void chip_settle(const ChipAccess &access);

} // namespace simboard

#endif
