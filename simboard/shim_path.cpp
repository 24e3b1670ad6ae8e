// The preload shim's part for what programs ask about files by path or descriptor: a device shows
// as the character device it would be, and cannot be positioned.
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include "simboard/open_devices.h"
#include "simboard/place.h"
#include "simboard/shim.h"

namespace simboard
{

namespace
{

using SeekCall = off_t (*)(int, off_t, int);
using PathCall = int (*)(const char *, int);
using PathAtCall = int (*)(int, const char *, int, int);
using LinkCall = ssize_t (*)(const char *, char *, size_t);
using LinkAtCall = ssize_t (*)(int, const char *, char *, size_t);
using AttributeCall = ssize_t (*)(const char *, const char *, void *, size_t);
using StatCall = int (*)(const char *, void *);
using StatFdCall = int (*)(int, void *);
using StatAtCall = int (*)(int, const char *, void *, int);
using OldStatCall = int (*)(int, const char *, void *);
using OldStatFdCall = int (*)(int, int, void *);
using OldStatAtCall = int (*)(int, int, const char *, void *, int);
using StatxCall = int (*)(int, const char *, int, unsigned, struct statx *);

constexpr mode_t kDeviceMode = S_IFCHR | 0600;
constexpr unsigned kMemoryMajor = 1;
constexpr unsigned kMemoryMinor = 1;

// What of a file's status is a device's.
struct DeviceNumber {
    bool is_device;
    unsigned major, minor;
};

DeviceNumber number_of(const Place &place)
{
    if (place.kind == PlaceKind::bus) {
        return {true, kDeviceMajor, place.bus};
    }
    return {place.kind == PlaceKind::memory, kMemoryMajor, kMemoryMinor};
}

DeviceNumber number_of(int fd)
{
    Descriptor descriptor;
    const bool is_device = may_be_device(fd) && confirm_device(fd, descriptor);
    return {is_device, kDeviceMajor, is_device ? descriptor.bus : 0U};
}

// On 32 bits these names have records of several layouts; there the stand-in file's own status has
// to do.
void show_device(const DeviceNumber &number, void *status)
{
    if (number.is_device && sizeof(long) == 8) {
        struct stat &shown = *static_cast<struct stat *>(status);
        shown.st_mode = kDeviceMode;
        shown.st_rdev = makedev(number.major, number.minor);
        shown.st_size = 0;
        shown.st_blocks = 0;
    }
}

// Asks `next` for the status of a path, or of the file that stands for it.
template <typename Next>
int stat_path(int dir, const char *path, void *status, Next next)
{
    const Place place = find_place(dir, path);
    if (place.kind == PlaceKind::elsewhere) {
        return next(dir, path);
    }
    StandIn stand_in;
    if (!find_stand_in(place, stand_in)) {
        return -1;
    }
    const int result = next(AT_FDCWD, stand_in.path);
    if (result == 0) {
        show_device(number_of(place), status);
    }
    return result;
}

template <typename Next>
int stat_open_file(int fd, void *status, Next next)
{
    const int result = next();
    if (result == 0) {
        show_device(number_of(fd), status);
    }
    return result;
}

bool means_descriptor(const char *path, int flags)
{
    return (flags & AT_EMPTY_PATH) != 0 && (path == nullptr || *path == '\0');
}

// The path itself, or of the file that stands for it; null with errno set when there is none.
const char *real_path(int &dir, const char *path, StandIn &stand_in)
{
    const Place place = find_place(dir, path);
    if (place.kind == PlaceKind::elsewhere) {
        return path;
    }
    dir = AT_FDCWD;
    return find_stand_in(place, stand_in) ? stand_in.path : nullptr;
}

} // namespace

} // namespace simboard

using namespace simboard;

extern "C" {

long shim_lseek(int fd, long offset, int whence) SHIM("lseek");
off_t shim_lseek64(int fd, off_t offset, int whence) SHIM("lseek64");
int shim_stat(const char *path, void *status) SHIM("stat");
int shim_stat64(const char *path, void *status) SHIM("stat64");
int shim_lstat(const char *path, void *status) SHIM("lstat");
int shim_lstat64(const char *path, void *status) SHIM("lstat64");
int shim_fstat(int fd, void *status) SHIM("fstat");
int shim_fstat64(int fd, void *status) SHIM("fstat64");
int shim_fstatat(int dir, const char *path, void *status, int flags) SHIM("fstatat");
int shim_fstatat64(int dir, const char *path, void *status, int flags) SHIM("fstatat64");
int shim_statx(int dir, const char *path, int flags, unsigned mask, struct statx *status)
    SHIM("statx");
int shim_xstat(int version, const char *path, void *status) SHIM("__xstat");
int shim_xstat64(int version, const char *path, void *status) SHIM("__xstat64");
int shim_lxstat(int version, const char *path, void *status) SHIM("__lxstat");
int shim_lxstat64(int version, const char *path, void *status) SHIM("__lxstat64");
int shim_fxstat(int version, int fd, void *status) SHIM("__fxstat");
int shim_fxstat64(int version, int fd, void *status) SHIM("__fxstat64");
int shim_fxstatat(int version, int dir, const char *path, void *status, int flags)
    SHIM("__fxstatat");
int shim_fxstatat64(int version, int dir, const char *path, void *status, int flags)
    SHIM("__fxstatat64");
int shim_access(const char *path, int mode) SHIM("access");
int shim_euidaccess(const char *path, int mode) SHIM("euidaccess");
int shim_eaccess(const char *path, int mode) SHIM("eaccess");
int shim_faccessat(int dir, const char *path, int mode, int flags) SHIM("faccessat");
ssize_t shim_getxattr(const char *path, const char *name, void *value, size_t size)
    SHIM("getxattr");
ssize_t shim_lgetxattr(const char *path, const char *name, void *value, size_t size)
    SHIM("lgetxattr");
ssize_t shim_readlink(const char *path, char *target, size_t size) SHIM("readlink");
ssize_t shim_readlinkat(int dir, const char *path, char *target, size_t size) SHIM("readlinkat");

long shim_lseek(int fd, long offset, int whence)
{
    if (number_of(fd).is_device) {
        errno = ESPIPE;
        return -1;
    }
    using LongSeekCall = long (*)(int, long, int);
    return NEXT(LongSeekCall, "lseek")(fd, offset, whence);
}

off_t shim_lseek64(int fd, off_t offset, int whence)
{
    if (number_of(fd).is_device) {
        errno = ESPIPE;
        return -1;
    }
    return NEXT(SeekCall, "lseek64")(fd, offset, whence);
}

// All names of one shape.
#define STAT_BY_PATH(function, name)                                                               \
    int function(const char *path, void *status)                                                   \
    {                                                                                              \
        return stat_path(AT_FDCWD, path, status, [status](int, const char *real) {                 \
            return NEXT(StatCall, name)(real, status);                                             \
        });                                                                                        \
    }
#define STAT_BY_DESCRIPTOR(function, name)                                                         \
    int function(int fd, void *status)                                                             \
    {                                                                                              \
        return stat_open_file(fd, status, [=] { return NEXT(StatFdCall, name)(fd, status); });     \
    }
#define STAT_WITHIN(function, name)                                                                \
    int function(int dir, const char *path, void *status, int flags)                               \
    {                                                                                              \
        if (means_descriptor(path, flags)) {                                                       \
            return stat_open_file(                                                                 \
                dir, status, [=] { return NEXT(StatAtCall, name)(dir, path, status, flags); });    \
        }                                                                                          \
        return stat_path(dir, path, status, [=](int from, const char *real) {                      \
            return NEXT(StatAtCall, name)(from, real, status, flags);                              \
        });                                                                                        \
    }
#define OLD_STAT_BY_PATH(function, name)                                                           \
    int function(int version, const char *path, void *status)                                      \
    {                                                                                              \
        return stat_path(AT_FDCWD, path, status, [=](int, const char *real) {                      \
            return NEXT(OldStatCall, name)(version, real, status);                                 \
        });                                                                                        \
    }
#define OLD_STAT_BY_DESCRIPTOR(function, name)                                                     \
    int function(int version, int fd, void *status)                                                \
    {                                                                                              \
        return stat_open_file(fd, status,                                                          \
                              [=] { return NEXT(OldStatFdCall, name)(version, fd, status); });     \
    }
#define OLD_STAT_WITHIN(function, name)                                                            \
    int function(int version, int dir, const char *path, void *status, int flags)                  \
    {                                                                                              \
        return stat_path(dir, path, status, [=](int from, const char *real) {                      \
            return NEXT(OldStatAtCall, name)(version, from, real, status, flags);                  \
        });                                                                                        \
    }

STAT_BY_PATH(shim_stat, "stat")
STAT_BY_PATH(shim_stat64, "stat64")
STAT_BY_PATH(shim_lstat, "lstat")
STAT_BY_PATH(shim_lstat64, "lstat64")
STAT_BY_DESCRIPTOR(shim_fstat, "fstat")
STAT_BY_DESCRIPTOR(shim_fstat64, "fstat64")
STAT_WITHIN(shim_fstatat, "fstatat")
STAT_WITHIN(shim_fstatat64, "fstatat64")
OLD_STAT_BY_PATH(shim_xstat, "__xstat")
OLD_STAT_BY_PATH(shim_xstat64, "__xstat64")
OLD_STAT_BY_PATH(shim_lxstat, "__lxstat")
OLD_STAT_BY_PATH(shim_lxstat64, "__lxstat64")
OLD_STAT_BY_DESCRIPTOR(shim_fxstat, "__fxstat")
OLD_STAT_BY_DESCRIPTOR(shim_fxstat64, "__fxstat64")
OLD_STAT_WITHIN(shim_fxstatat, "__fxstatat")
OLD_STAT_WITHIN(shim_fxstatat64, "__fxstatat64")

int shim_statx(int dir, const char *path, int flags, unsigned mask, struct statx *status)
{
    StandIn stand_in;
    const bool by_descriptor = means_descriptor(path, flags);
    const Place place =
        by_descriptor ? Place{PlaceKind::elsewhere, 0, nullptr} : find_place(dir, path);
    if (place.kind != PlaceKind::elsewhere) {
        if (!find_stand_in(place, stand_in)) {
            return -1;
        }
        path = stand_in.path;
        dir = AT_FDCWD;
    }
    const int result = NEXT(StatxCall, "statx")(dir, path, flags, mask, status);
    const DeviceNumber number = by_descriptor ? number_of(dir) : number_of(place);
    if (result == 0 && number.is_device) {
        status->stx_mode = kDeviceMode;
        status->stx_rdev_major = number.major;
        status->stx_rdev_minor = number.minor;
        status->stx_size = 0;
        status->stx_blocks = 0;
    }
    return result;
}

#define ACCESS(function, name)                                                                     \
    int function(const char *path, int mode)                                                       \
    {                                                                                              \
        StandIn stand_in;                                                                          \
        int dir = AT_FDCWD;                                                                        \
        const char *const real = real_path(dir, path, stand_in);                                   \
        return real == nullptr && path != nullptr ? -1 : NEXT(PathCall, name)(real, mode);         \
    }

ACCESS(shim_access, "access")
ACCESS(shim_euidaccess, "euidaccess")
ACCESS(shim_eaccess, "eaccess")

int shim_faccessat(int dir, const char *path, int mode, int flags)
{
    StandIn stand_in;
    const char *const real = real_path(dir, path, stand_in);
    return real == nullptr && path != nullptr
               ? -1
               : NEXT(PathAtCall, "faccessat")(dir, real, mode, flags);
}

// Listing programs ask for them; nothing of the board has any.
#define GET_ATTRIBUTE(function, name_of_it)                                                        \
    ssize_t function(const char *path, const char *name, void *value, size_t size)                 \
    {                                                                                              \
        if (find_place(AT_FDCWD, path).kind != PlaceKind::elsewhere) {                             \
            errno = ENODATA;                                                                       \
            return -1;                                                                             \
        }                                                                                          \
        return NEXT(AttributeCall, name_of_it)(path, name, value, size);                           \
    }

GET_ATTRIBUTE(shim_getxattr, "getxattr")
GET_ATTRIBUTE(shim_lgetxattr, "lgetxattr")

ssize_t shim_readlink(const char *path, char *target, size_t size)
{
    StandIn stand_in;
    int dir = AT_FDCWD;
    const char *const real = real_path(dir, path, stand_in);
    return real == nullptr && path != nullptr ? -1 : NEXT(LinkCall, "readlink")(real, target, size);
}

ssize_t shim_readlinkat(int dir, const char *path, char *target, size_t size)
{
    StandIn stand_in;
    const char *const real = real_path(dir, path, stand_in);
    return real == nullptr && path != nullptr
               ? -1
               : NEXT(LinkAtCall, "readlinkat")(dir, real, target, size);
}

} // extern "C"
