// What i2c-dev keeps for an open device: kept in the file offset of the stand-in file.
//
// The offset belongs to the open file description, as the kernel's i2c_client does. So duplicates,
// children and programs started by exec share it, and closing needs no care.
#ifndef SIMBOARD_DESCRIPTOR_H
#define SIMBOARD_DESCRIPTOR_H

#include <stdint.h>

namespace simboard
{

struct Descriptor {
    uint16_t board = 0; // Header::id
    uint8_t bus = 0;
    uint16_t address = 0;
    bool ten_bit = false;
    bool pec = false;
};

// False when fd is no open device of a board. errno is kept.
bool read_descriptor(int fd, Descriptor &descriptor);

// False with errno set when fd takes no offset.
bool write_descriptor(int fd, const Descriptor &descriptor);

} // namespace simboard

#endif
