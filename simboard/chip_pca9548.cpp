// PCA9548: eight-channel switch with one control register (NXP PCA9548A datasheet, section 6.2).
#include "simboard/chip.h"

namespace simboard
{

int pca9548(const ChipAccess &access, BusEvent event, uint8_t byte)
{
    ChipState &self = access.chip.state;
    switch (event) {
    case BusEvent::write_byte: // of several bytes the last one counts
        self.pending = byte;
        self.has_pending = 1;
        return kAck;
    case BusEvent::read_byte:
        return self.has_pending != 0 ? self.pending : self.control;
    case BusEvent::stop: // channels change at STOP, so that no segment sees half a transfer
        if (self.has_pending != 0) {
            self.control = self.pending;
            self.has_pending = 0;
        }
        return kAck;
    case BusEvent::start_write:
    case BusEvent::start_read:
    case BusEvent::repeated_start:
        break;
    }
    return kAck;
}

} // namespace simboard
