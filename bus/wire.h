// How offsets travel: as a run of bytes, most significant byte first.
#ifndef QELI2C_BUS_WIRE_H
#define QELI2C_BUS_WIRE_H

#include <cstdint>

// The longest message: its length is a 16-bit field of struct i2c_msg.
constexpr uint64_t longest_message = 65535;

// Fills `count` bytes; beyond the four of `value` the leading ones are 0.
inline void put_big_endian(uint8_t *bytes, uint32_t count, uint32_t value)
{
    for (uint32_t i = count; i > 0; --i) {
        bytes[i - 1] = static_cast<uint8_t>(value & 0xFF);
        value >>= 8;
    }
}

#endif
