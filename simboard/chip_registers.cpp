// A register device, a retimer or a subcard's EPLD: 256 bytes behind a register pointer that moves
// on with every byte and wraps.
// An SMBus block write leaves its count in the register of its command, so a block read finds it
// there.
#include "simboard/bus_lock.h"
#include "simboard/chip.h"

namespace simboard
{

int registers(const ChipAccess &access, BusEvent event, uint8_t byte)
{
    ChipState &self = access.chip.state;
    uint8_t *const memory = memory_of(access.state, access.chip);
    switch (event) {
    case BusEvent::start_write:
        self.received = 0;
        return kAck;
    case BusEvent::write_byte:
        if (self.received == 0) {
            self.pointer = byte;
        } else {
            preserve(access.state, access.bus, memory + self.pointer, 1);
            memory[self.pointer] = byte;
            self.pointer = (self.pointer + 1) & 0xff;
        }
        self.received++;
        return kAck;
    case BusEvent::read_byte: {
        const int value = memory[self.pointer];
        self.pointer = (self.pointer + 1) & 0xff;
        return value;
    }
    case BusEvent::start_read:
    case BusEvent::repeated_start:
    case BusEvent::stop:
        break;
    }
    return kAck;
}

} // namespace simboard
