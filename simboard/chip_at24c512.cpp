// AT24C512: 64 KiB EEPROM in pages of 128 bytes (Microchip AT24C512C datasheet, sections 6 to 8).
#include <string.h>

#include "simboard/bus_lock.h"
#include "simboard/chip.h"

namespace simboard
{

namespace
{

constexpr uint32_t kPage = 128;
constexpr uint64_t kWriteCycleNs = 5'000'000; // tWR, longest

// Two bytes of word address, then data into the page latch, where the address wraps within the
// page.
void take_byte(const ChipAccess &access, uint8_t byte)
{
    ChipState &self = access.chip.state;
    uint8_t *const latch = scratch_of(access.state, access.chip);
    if (self.received == 0) {
        self.pending = byte;
    } else if (self.received == 1) {
        self.pointer = static_cast<uint32_t>(self.pending << 8 | byte);
    } else {
        const uint32_t page = self.pointer / kPage * kPage;
        if (self.latching == 0) {
            memcpy(latch, memory_of(access.state, access.chip) + page, kPage);
            self.latching = 1;
        }
        latch[self.pointer - page] = byte;
        self.pointer = page + (self.pointer + 1) % kPage;
    }
    self.received++;
}

// STOP after data starts the internal write cycle, in which the chip does not answer.
void write_page(const ChipAccess &access)
{
    ChipState &self = access.chip.state;
    uint8_t *const page = memory_of(access.state, access.chip) + self.pointer / kPage * kPage;
    preserve(access.state, access.bus, page, kPage);
    memcpy(page, scratch_of(access.state, access.chip), kPage);
    self.latching = 0;
    if (access.chip.busy_after_write != 0) {
        self.busy_until = access.now_ns + kWriteCycleNs;
    }
}

} // namespace

int at24c512(const ChipAccess &access, BusEvent event, uint8_t byte)
{
    ChipState &self = access.chip.state;
    switch (event) {
    case BusEvent::start_write:
    case BusEvent::start_read:
        self.received = 0;
        return access.now_ns < self.busy_until ? kNack : kAck;
    case BusEvent::write_byte:
        take_byte(access, byte);
        return kAck;
    case BusEvent::read_byte: {
        const int value = memory_of(access.state, access.chip)[self.pointer];
        self.pointer = (self.pointer + 1) & 0xffff;
        return value;
    }
    case BusEvent::repeated_start: // data not followed by STOP is not written
        self.latching = 0;
        break;
    case BusEvent::stop:
        if (self.latching != 0) {
            write_page(access);
        }
        break;
    }
    return kAck;
}

} // namespace simboard
