// Packet error code: CRC-8 with polynomial 0x07 (SMBus specification, version 3.2, section 6.4).
#ifndef SIMBOARD_PEC_H
#define SIMBOARD_PEC_H

#include <linux/i2c.h>
#include <stddef.h>
#include <stdint.h>

namespace simboard
{

uint8_t pec_add(uint8_t pec, const uint8_t *bytes, size_t count);

// The code after the message's address byte and its first `count` bytes.
uint8_t pec_of_message(uint8_t pec, const i2c_msg &message, size_t count);

} // namespace simboard

#endif
