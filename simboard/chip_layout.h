// Where the chips keep what is not at a register's own address, and how they wake up.
//
// A chip's memory starts with its registers, in the order of their addresses. Behind them stand its
// surroundings: the levels at its pins, the voltage at its input, the identity it reports.
#ifndef SIMBOARD_CHIP_LAYOUT_H
#define SIMBOARD_CHIP_LAYOUT_H

#include "simboard/chip.h"

namespace simboard
{

// pca9535, pca9554: registers, then the levels that the board applies to the pins, a byte a port.
constexpr uint32_t kExpanderInputs = 8;
constexpr uint32_t kExpanderMemory = 16;

// tpa626: registers 0 to 7, two bytes each, most significant first.
constexpr uint32_t kMonitorVoltage = 16; // millivolts, 4 bytes
constexpr uint32_t kMonitorCurrent = 20; // milliamperes, 4 bytes, two's complement
constexpr uint32_t kMonitorShunt = 24;   // microohms, 4 bytes
constexpr uint32_t kMonitorMemory = 32;

// EPLDs: user registers, then the identity, then what the SPI flash answered.
constexpr uint32_t kEpldRegisters = 4096;
constexpr uint32_t kEpldId = kEpldRegisters;
constexpr uint32_t kEpldShifted = kEpldRegisters + 128;
constexpr uint32_t kEpldShiftedSize = 256;
constexpr uint32_t kEpldMemory = kEpldShifted + kEpldShiftedSize;

// mctp: the packet received last, and the response that waits to be read.
constexpr uint32_t kMctpRequest = 0;
constexpr uint32_t kMctpResponse = 256;
constexpr uint32_t kMctpEid = 512;
constexpr uint32_t kMctpResponseLength = 513; // 2 bytes
constexpr uint32_t kMctpMemory = 528;

// Registers as they are after power-on, in memory that is otherwise ready.
void pca953x_power_on(uint8_t *memory, ChipType type);
void tpa626_power_on(uint8_t *memory);

// Registers that follow the surroundings, brought up to date. With the bus held.
void pca953x_settle(const ChipAccess &access);
void tpa626_settle(const ChipAccess &access);

} // namespace simboard

#endif
