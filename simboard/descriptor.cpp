// Descriptor state in a file offset.
#include "simboard/descriptor.h"

#include <errno.h>
#include <unistd.h>

#include "simboard/shim.h"

namespace simboard
{

namespace
{

// 43 bits in all, within what any file system and a 32-bit kernel take:
//   42..32 magic, 31..16 board, 15..12 bus, 11 ten-bit, 10 PEC, 9..0 address
constexpr off_t kMagic = 0x5a3;
constexpr off_t kMagicShift = 32;

using SeekCall = off_t (*)(int, off_t, int);

// Past the shim's own lseek, which knows devices as something that cannot be positioned.
off_t seek(int fd, off_t offset, int whence)
{
    return NEXT(SeekCall, "lseek64")(fd, offset, whence);
}

} // namespace

bool read_descriptor(int fd, Descriptor &descriptor)
{
    const int saved = errno;
    const off_t offset = seek(fd, 0, SEEK_CUR);
    errno = saved;
    if (offset < 0 || offset >> kMagicShift != kMagic) {
        return false;
    }
    descriptor.board = static_cast<uint16_t>(offset >> 16 & 0xffff);
    descriptor.bus = static_cast<uint8_t>(offset >> 12 & 0xf);
    descriptor.ten_bit = (offset >> 11 & 1) != 0;
    descriptor.pec = (offset >> 10 & 1) != 0;
    descriptor.address = static_cast<uint16_t>(offset & 0x3ff);
    return true;
}

bool write_descriptor(int fd, const Descriptor &descriptor)
{
    const off_t offset = kMagic << kMagicShift | off_t{descriptor.board} << 16 |
                         off_t{descriptor.bus} << 12 | off_t{descriptor.ten_bit} << 11 |
                         off_t{descriptor.pec} << 10 | off_t{descriptor.address};
    return seek(fd, offset, SEEK_SET) == offset;
}

} // namespace simboard
