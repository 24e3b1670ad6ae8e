// EPLDs: the configuration port that their vendors document, and the board's own registers behind
// it.
//
// The port is driven by commands: an opcode, its operands, and for some an answer that is read
// after a repeated START; STOP ends the command. An opcode the part does not know is not
// acknowledged. The decision falls with the opcode itself: the address byte names no command yet,
// and operands belong to a command that was accepted.
//
// A first byte of 0x80 to 0x8f is no opcode of any of the vendors. Together with the next byte it
// is the address of a user register, 0x8000 to 0x8fff, and data follows; the address counts up.
//
// Opcodes: Lattice FPGA-TN-02155 "MachXO2 Programming and Configuration"; identification bytes of
// the SPI flash behind an Anlogic EF2: GigaDevice GD25VQ40C datasheet, chapter 7.
#include <string.h>

#include "simboard/chip_layout.h"
#include "simboard/chip_memory.h"

namespace simboard
{

namespace
{

constexpr uint8_t kUserMask = 0xf0;
constexpr uint8_t kUserPage = 0x80;

// Lattice.
constexpr uint8_t kLatticeId = 0xe0;
constexpr uint8_t kLatticeUserCode = 0xc0;
constexpr uint8_t kLatticeStatus = 0x3c;
constexpr uint8_t kLatticeBusy = 0xf0;
constexpr uint8_t kLatticeEnable = 0x74; // transparent
constexpr uint8_t kLatticeEnableOffline = 0xc6;
constexpr uint8_t kLatticeDisable = 0x26;
constexpr uint8_t kLatticeNoOperation = 0xff;
constexpr uint32_t kLatticeDone = 1U << 8;
constexpr uint32_t kLatticeEnabled = 1U << 9;

// Pango.
constexpr uint8_t kPangoId = 0xa1;

// Anlogic.
constexpr uint8_t kEf2Read = 0x00;
constexpr uint8_t kEf2Mode = 0x01;
constexpr uint8_t kEf2Shift = 0x02;
constexpr uint8_t kEf2SpiMode = 0xf0;
constexpr uint8_t kEf3Id = 0x51;

// SPI flash.
constexpr uint8_t kFlashId = 0x9f;
constexpr uint8_t kFlashStatus = 0x05;
constexpr uint8_t kFlashWriteEnable = 0x06;
constexpr uint8_t kFlashWriteDisable = 0x04;
constexpr uint8_t kFlashWriteEnabled = 0x02; // of the status

// Operand bytes that the part takes after an opcode, -1 when it does not know the opcode.
int operands_of(const Chip &chip, uint8_t opcode)
{
    switch (chip.type) {
    case ChipType::epld_lattice:
        switch (opcode) {
        case kLatticeId:
        case kLatticeUserCode:
        case kLatticeStatus:
        case kLatticeBusy:
        case kLatticeEnable:
        case kLatticeEnableOffline:
        case kLatticeDisable:
        case kLatticeNoOperation:
            return 3;
        default:
            return -1;
        }
    case ChipType::epld_pango:
        return opcode == kPangoId ? 3 : -1;
    case ChipType::epld_anlogic_ef3:
        return opcode == kEf3Id ? 0 : -1;
    case ChipType::epld_anlogic_ef2:
        if (opcode == kEf2Mode) {
            return 1;
        }
        if (chip.state.mode != kEf2SpiMode) { // nothing to shift through yet
            return -1;
        }
        return opcode == kEf2Read ? 3 : opcode == kEf2Shift ? INT32_MAX : -1;
    default:
        return -1;
    }
}

bool is_user(const ChipState &self)
{
    return (self.command & kUserMask) == kUserPage;
}

uint32_t identity(const ChipAccess &access)
{
    return load_number(memory_of(access.state, access.chip) + kEpldId, 4);
}

// Byte `index` of a number sent most significant byte first; ones behind its end.
int byte_of(uint32_t number, uint32_t size, uint32_t index)
{
    return index < size ? static_cast<int>(number >> 8 * (size - 1 - index) & 0xff) : 0xff;
}

// What the flash sends while byte `index` of what it is told goes in.
uint8_t flash_answer(const ChipAccess &access, uint32_t index)
{
    const ChipState &self = access.chip.state;
    if (index == 0) {
        return 0xff; // still taking its opcode
    }
    switch (self.flash_command) {
    case kFlashId:
        return static_cast<uint8_t>(byte_of(identity(access), 3, index - 1));
    case kFlashStatus:
        return self.flash_status;
    default:
        return 0xff;
    }
}

// One byte in, one byte out; chip select stays active for the whole message.
void shift(const ChipAccess &access, uint8_t byte)
{
    ChipState &self = access.chip.state;
    const uint32_t index = self.received - 1;
    if (index == 0) {
        uint8_t *const shifted = memory_of(access.state, access.chip) + kEpldShifted;
        preserve(access.state, access.bus, shifted, kEpldShiftedSize);
        memset(shifted, 0xff, kEpldShiftedSize);
        self.flash_command = byte;
    }
    if (index < kEpldShiftedSize) {
        set_memory(access, kEpldShifted + index, flash_answer(access, index));
    }
}

// Chip select goes away: a write enable or disable, alone, takes effect.
void deselect_flash(ChipState &self)
{
    if (self.command != kEf2Shift || self.received != 2) {
        return;
    }
    if (self.flash_command == kFlashWriteEnable) {
        self.flash_status |= kFlashWriteEnabled;
    } else if (self.flash_command == kFlashWriteDisable) {
        self.flash_status &= static_cast<uint8_t>(~kFlashWriteEnabled);
    }
}

int take_user_byte(const ChipAccess &access, uint8_t byte)
{
    ChipState &self = access.chip.state;
    if (self.received == 1) {
        self.pointer = static_cast<uint32_t>(self.command << 8 | byte) % kEpldRegisters;
    } else {
        set_memory(access, self.pointer, byte);
        self.pointer = (self.pointer + 1) % kEpldRegisters;
    }
    self.received++;
    return kAck;
}

int take_opcode(const ChipAccess &access, uint8_t byte)
{
    ChipState &self = access.chip.state;
    self.command = byte;
    if (!is_user(self) && operands_of(access.chip, byte) < 0) {
        return kNack;
    }
    self.received = 1;
    return kAck;
}

// Commands that change the port, as their first operand comes in; the further ones say nothing.
void change_mode(Chip &chip, uint8_t operand)
{
    ChipState &self = chip.state;
    if (chip.type == ChipType::epld_anlogic_ef2) {
        self.mode = self.command == kEf2Mode ? operand : self.mode;
    } else if (self.command == kLatticeEnable || self.command == kLatticeEnableOffline) {
        self.mode = 1;
    } else if (self.command == kLatticeDisable) {
        self.mode = 0;
    }
}

int take_byte(const ChipAccess &access, uint8_t byte)
{
    ChipState &self = access.chip.state;
    if (self.received == 0) {
        return take_opcode(access, byte);
    }
    if (is_user(self)) {
        return take_user_byte(access, byte);
    }
    const int operands = operands_of(access.chip, self.command);
    if (static_cast<int64_t>(self.received) > operands) {
        return kNack;
    }
    if (self.command == kEf2Shift) {
        shift(access, byte);
    } else if (self.received == 1) {
        change_mode(access.chip, byte);
    }
    self.received++;
    return kAck;
}

int lattice_answer(const ChipAccess &access, uint32_t index)
{
    const ChipState &self = access.chip.state;
    switch (self.command) {
    case kLatticeId:
        return byte_of(identity(access), 4, index);
    case kLatticeUserCode:
        return byte_of(0, 4, index);
    case kLatticeStatus:
        return byte_of(kLatticeDone | (self.mode != 0 ? kLatticeEnabled : 0), 4, index);
    case kLatticeBusy:
        return byte_of(0, 1, index);
    default:
        return 0xff;
    }
}

int give_byte(const ChipAccess &access)
{
    ChipState &self = access.chip.state;
    if (is_user(self) && self.received >= 2) {
        const int value = memory_byte(access, self.pointer);
        self.pointer = (self.pointer + 1) % kEpldRegisters;
        return value;
    }
    const int operands = operands_of(access.chip, self.command);
    if (self.received == 0 || operands < 0 ||
        static_cast<int64_t>(self.received) != operands + int64_t{1}) {
        return 0xff; // no command, or one not all there
    }
    const uint32_t index = self.pointer++;
    switch (access.chip.type) {
    case ChipType::epld_lattice:
        return lattice_answer(access, index);
    case ChipType::epld_anlogic_ef2:
        return self.command == kEf2Read && index < kEpldShiftedSize
                   ? memory_byte(access, kEpldShifted + index)
                   : 0xff;
    default:
        return byte_of(identity(access), 4, index);
    }
}

} // namespace

int epld(const ChipAccess &access, BusEvent event, uint8_t byte)
{
    ChipState &self = access.chip.state;
    switch (event) {
    case BusEvent::start_write:
        self.received = 0;
        self.pointer = 0;
        return kAck;
    case BusEvent::start_read:
        return kAck;
    case BusEvent::write_byte:
        return take_byte(access, byte);
    case BusEvent::read_byte:
        return give_byte(access);
    case BusEvent::repeated_start:
        deselect_flash(self);
        break;
    case BusEvent::stop:
        deselect_flash(self);
        self.received = 0;
        break;
    }
    return kAck;
}

} // namespace simboard
