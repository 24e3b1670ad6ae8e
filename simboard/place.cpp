// Paths that are a board's.
#include "simboard/place.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <linux/stat.h>

namespace simboard
{

namespace
{

constexpr Place kElsewhere = {PlaceKind::elsewhere, 0, nullptr};
constexpr Place kNowhere = {PlaceKind::nowhere, 0, nullptr};

// The directories in which listing tools look for buses.
constexpr const char *kListings[] = {"class/i2c-dev", "class/i2c-adapter", "bus/i2c"};

Place find_in_sysfs(const char *name)
{
    for (const char *listing : kListings) {
        const size_t length = strlen(listing);
        if (strncmp(name, listing, length) == 0 && (name[length] == '/' || name[length] == '\0')) {
            return {PlaceKind::sysfs, 0, name};
        }
    }
    return kElsewhere;
}

Place find_bus(const char *digits)
{
    if (*digits < '0' || *digits > '9') {
        return kElsewhere;
    }
    const char *digit = digits;
    unsigned bus = 0;
    while (*digit >= '0' && *digit <= '9' && bus < 100000) {
        bus = bus * 10 + static_cast<unsigned>(*digit++ - '0');
    }
    const bool leading_zero = digits[0] == '0' && digit != digits + 1;
    return *digit != '\0' || leading_zero ? kNowhere : Place{PlaceKind::bus, bus, nullptr};
}

Place find_device_place(const char *name)
{
    if (strcmp(name, "mem") == 0) {
        return {PlaceKind::memory, 0, nullptr};
    }
    if (strncmp(name, "i2c/", 4) == 0) {
        return kNowhere; // an old naming scheme that tools still try
    }
    return strncmp(name, "i2c-", 4) == 0 ? find_bus(name + 4) : kElsewhere;
}

// By system call: the names of libc may be the shim's own. Unlike stat's, this record is the same
// for programs of every word size.
bool identify(int dir, const char *path, struct statx &status)
{
    const int saved = errno;
    const int flags = *path == '\0' ? AT_EMPTY_PATH : 0;
    const bool good = syscall(SYS_statx, dir, path, flags, STATX_INO, &status) == 0;
    errno = saved;
    return good;
}

} // namespace

bool is_device_directory(int fd)
{
    struct statx given;
    struct statx devices;
    const char *const here = fd == AT_FDCWD ? "." : "";
    return identify(fd, here, given) && identify(AT_FDCWD, "/dev", devices) &&
           given.stx_ino == devices.stx_ino && given.stx_dev_major == devices.stx_dev_major &&
           given.stx_dev_minor == devices.stx_dev_minor;
}

Place find_place(int dir, const char *path)
{
    // A null path, which is answered with EFAULT, shows as an address like any other here.
    if (reinterpret_cast<uintptr_t>(path) < 4096) {
        return kElsewhere;
    }
    Place place = kElsewhere;
    if (path[0] == '/') {
        if (strncmp(path, "/dev/", 5) == 0) {
            place = find_device_place(path + 5);
        } else if (strncmp(path, "/sys/", 5) == 0) {
            place = find_in_sysfs(path + 5);
        }
    } else if (strncmp(path, "i2c-", 4) == 0 && wants_board() && is_device_directory(dir)) {
        place = find_bus(path + 4);
    }
    return place.kind != PlaceKind::elsewhere && wants_board() ? place : kElsewhere;
}

bool find_stand_in(const Place &place, StandIn &stand_in)
{
    // A board that cannot be used never gives way to the machine's own devices.
    stand_in.board = attach_board();
    if (stand_in.board == nullptr) {
        return false;
    }
    const char *const directory = stand_in.board->directory;
    int length = 0;
    if (place.kind == PlaceKind::memory) {
        length = snprintf(stand_in.path, sizeof(stand_in.path), "%s/mem", directory);
    } else if (place.kind == PlaceKind::sysfs) {
        length = snprintf(stand_in.path, sizeof(stand_in.path), "%s/sys/%s", directory, place.rest);
    } else if (place.kind == PlaceKind::bus && place.bus < kBuses &&
               stand_in.board->state->buses[place.bus].described != 0) {
        length = snprintf(stand_in.path, sizeof(stand_in.path), "%s/i2c-%u", directory, place.bus);
    }
    if (length <= 0 || static_cast<size_t>(length) >= sizeof(stand_in.path)) {
        errno = length <= 0 ? ENOENT : ENAMETOOLONG;
        return false;
    }
    return true;
}

} // namespace simboard
