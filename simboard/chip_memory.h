// Changing a chip's memory so that the change can be undone.
#ifndef SIMBOARD_CHIP_MEMORY_H
#define SIMBOARD_CHIP_MEMORY_H

#include "simboard/bus_lock.h"
#include "simboard/chip.h"

namespace simboard
{

inline uint8_t memory_byte(const ChipAccess &access, uint32_t offset)
{
    return memory_of(access.state, access.chip)[offset];
}

inline void set_memory(const ChipAccess &access, uint32_t offset, uint8_t value)
{
    uint8_t *const at = memory_of(access.state, access.chip) + offset;
    if (*at != value) {
        preserve(access.state, access.bus, at, 1);
        *at = value;
    }
}

// A number of `size` bytes, at most 4, least significant first: how a chip's surroundings are kept.
inline uint32_t load_number(const uint8_t *bytes, uint32_t size)
{
    uint32_t value = 0;
    for (uint32_t i = size; i > 0; i--) {
        value = value << 8 | bytes[i - 1];
    }
    return value;
}

inline void store_number(uint8_t *bytes, uint32_t size, uint32_t value)
{
    for (uint32_t i = 0; i < size; i++) {
        bytes[i] = static_cast<uint8_t>(value >> 8 * i);
    }
}

} // namespace simboard

#endif
