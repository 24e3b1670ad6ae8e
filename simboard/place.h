// What a path stands for on a machine with a board: a device, memory, an entry of sysfs, or nothing
// of the board's.
#ifndef SIMBOARD_PLACE_H
#define SIMBOARD_PLACE_H

#include <limits.h>
#include <stddef.h>

#include "simboard/attach.h"

namespace simboard
{

enum class PlaceKind {
    elsewhere, // not the board's
    nowhere,   // a device's name that there is not
    bus,
    memory,
    sysfs, // below a directory that lists buses
};

struct Place {
    PlaceKind kind;
    unsigned bus;     // its number, for a bus
    const char *rest; // for sysfs: what follows "/sys/"
};

constexpr int kDeviceMajor = 89; // of i2c-dev (Documentation/admin-guide/devices.txt)

// Only canonical paths are taken, as the kernel's devtmpfs and sysfs name them; also a device's
// bare name within /dev. Without a wish for a board everything is elsewhere.
Place find_place(int dir, const char *path);

// The file that stands for it. False with errno ENODEV or ENOENT when there is none.
struct StandIn {
    const Attachment *board;
    char path[PATH_MAX + 64];
};
bool find_stand_in(const Place &place, StandIn &stand_in);

// Whether the descriptor is an open /dev.
bool is_device_directory(int fd);

} // namespace simboard

#endif
