// Packet error code.
#include "simboard/pec.h"

namespace simboard
{

uint8_t pec_add(uint8_t pec, const uint8_t *bytes, size_t count)
{
    for (size_t i = 0; i < count; i++) {
        pec ^= bytes[i];
        for (int bit = 0; bit < 8; bit++) {
            pec = static_cast<uint8_t>(pec << 1 ^ ((pec & 0x80) != 0 ? 0x07 : 0));
        }
    }
    return pec;
}

uint8_t pec_of_message(uint8_t pec, const i2c_msg &message, size_t count)
{
    const uint8_t address =
        static_cast<uint8_t>(message.addr << 1 | ((message.flags & I2C_M_RD) != 0 ? 1 : 0));
    return pec_add(pec_add(pec, &address, 1), message.buf, count);
}

} // namespace simboard
