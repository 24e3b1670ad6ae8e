// PCA9535 and PCA9554: 16-bit and 8-bit I/O expanders (NXP PCA9535/PCA9535C and PCA9554/PCA9554A
// datasheets, chapters 6.2 "Registers" and 6.5 or 7 "Bus transactions").
#include <string.h>

#include "simboard/chip_layout.h"
#include "simboard/chip_memory.h"

namespace simboard
{

namespace
{

// Kinds of registers, in the order of their command bytes; each has one register for every port.
constexpr uint32_t kInput = 0;
constexpr uint32_t kOutput = 1;
constexpr uint32_t kPolarity = 2;
constexpr uint32_t kConfiguration = 3;

uint32_t ports_of(const Chip &chip)
{
    return chip.type == ChipType::pca9535 ? 2 : 1;
}

// An output pin shows the level it drives, an input pin the level that stands at it; either is
// inverted where the polarity register says so.
uint8_t input_level(const ChipAccess &access, uint32_t port)
{
    const uint32_t ports = ports_of(access.chip);
    const uint8_t output = memory_byte(access, kOutput * ports + port);
    const uint8_t polarity = memory_byte(access, kPolarity * ports + port);
    const uint8_t configuration = memory_byte(access, kConfiguration * ports + port);
    const uint8_t outside = memory_byte(access, kExpanderInputs + port);
    return static_cast<uint8_t>(((output & ~configuration) | (outside & configuration)) ^ polarity);
}

} // namespace

void pca953x_power_on(uint8_t *memory, ChipType type)
{
    const uint32_t ports = type == ChipType::pca9535 ? 2 : 1;
    memset(memory + kOutput * ports, 0xff, ports);
    memset(memory + kPolarity * ports, 0, ports);
    memset(memory + kConfiguration * ports, 0xff, ports);
}

void pca953x_settle(const ChipAccess &access)
{
    for (uint32_t port = 0; port < ports_of(access.chip); port++) {
        set_memory(access, port, input_level(access, port));
    }
}

int pca953x(const ChipAccess &access, BusEvent event, uint8_t byte)
{
    ChipState &self = access.chip.state;
    const uint32_t ports = ports_of(access.chip);
    switch (event) {
    case BusEvent::start_write:
        self.received = 0;
        return kAck;
    case BusEvent::write_byte:
        if (self.received == 0) {
            self.pointer = byte & (4 * ports - 1); // the command byte's other bits mean nothing
            self.received = 1;
            return kAck;
        }
        if (self.pointer / ports != kInput) {
            set_memory(access, self.pointer, byte);
        }
        self.pointer ^= ports - 1; // on to the pair's other register; the PCA9554 has no pairs
        return kAck;
    case BusEvent::read_byte: {
        pca953x_settle(access);
        const int value = memory_byte(access, self.pointer);
        self.pointer ^= ports - 1;
        return value;
    }
    case BusEvent::start_read: // goes on with the register that comes next
    case BusEvent::repeated_start:
    case BusEvent::stop:
        break;
    }
    return kAck;
}

} // namespace simboard
