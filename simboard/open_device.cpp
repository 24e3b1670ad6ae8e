// Opening devices of a board: their stand-in files, made known as devices.
#include "simboard/open_device.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include "simboard/descriptor.h"
#include "simboard/fault.h"
#include "simboard/open_devices.h"
#include "simboard/place.h"
#include "simboard/shim.h"

namespace simboard
{

namespace
{

using OpenatCall = int (*)(int, const char *, int, ...);

int open_file(const StandIn &stand_in, int flags)
{
    // A device is not emptied by O_TRUNC nor limited in size; and nothing is ever created here.
    const int device_flags = (flags & ~(O_TRUNC | O_CREAT)) | O_LARGEFILE;
    return NEXT(OpenatCall, "openat64")(AT_FDCWD, stand_in.path, device_flags);
}

int open_bus(const StandIn &stand_in, unsigned number, int flags)
{
    State &state = *stand_in.board->state;
    Bus &bus = state.buses[number];
    if (has_faults(state, bus, kInCalls)) {
        const int error = strike_call(state, bus, kCallOpen, 0);
        if (error != 0) {
            errno = error;
            return -1;
        }
    }
    const int fd = open_file(stand_in, flags);
    if (fd < 0) {
        return fd;
    }
    Descriptor descriptor;
    descriptor.board = state.header.id;
    descriptor.bus = static_cast<uint8_t>(number);
    if (!write_descriptor(fd, descriptor) &&
        errno != EBADF) { // EBADF: O_PATH, which allows no ioctl either
        const int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    mark_device(fd);
    return fd;
}

} // namespace

bool open_device(int dir, const char *path, int flags, int &fd)
{
    const Place place = find_place(dir, path);
    if (place.kind == PlaceKind::elsewhere) {
        return false;
    }
    fd = -1;
    StandIn stand_in;
    if (!find_stand_in(place, stand_in)) {
        return true;
    }
    if (place.kind != PlaceKind::sysfs &&
        (flags & (O_CREAT | O_EXCL)) == (O_CREAT | O_EXCL)) { // must be new
        errno = EEXIST;
    } else if (place.kind == PlaceKind::bus) {
        fd = open_bus(stand_in, place.bus, flags);
    } else {
        fd = open_file(stand_in, flags);
    }
    return true;
}

} // namespace simboard
