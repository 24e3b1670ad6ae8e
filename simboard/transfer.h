// One transfer: messages between START and STOP on a board's bus.
#ifndef SIMBOARD_TRANSFER_H
#define SIMBOARD_TRANSFER_H

#include <linux/i2c.h>

#include "simboard/state.h"

namespace simboard
{

struct Transfer {
    i2c_msg *messages;  // a block read's length grows by its count; its buffer holds 32 bytes more
                        // than its length
    uint32_t count;     // 1 to kMaxMessages
    int16_t smbus_size; // the SMBus transaction it is made for, -1 for none
    bool check_pec;     // the last byte of the last message is a PEC
    uint8_t pec;        // checksum of what goes before the last message
};

// Number of messages, fewer than asked for only by a fault; or a negative errno as a bit-banging
// adapter gives it: ENXIO when an address is not acknowledged, EIO when a byte is not, EPROTO for a
// block count that is none, EBADMSG for a wrong PEC.
int run_transfer(State &state, Bus &bus, Transfer &transfer);

} // namespace simboard

#endif
