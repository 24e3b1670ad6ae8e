// The preload shim: the libc calls through which programs reach I2C devices and /dev/mem.
//
// Everything that is not a board's goes on to the next definition of the call, after one
// comparison. Without QELI2C_SIM nothing is a board's.
#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include "simboard/attach.h"
#include "simboard/clock.h"
#include "simboard/descriptor.h"
#include "simboard/fault.h"
#include "simboard/i2c_dev.h"
#include "simboard/judge.h"
#include "simboard/open_device.h"
#include "simboard/open_devices.h"
#include "simboard/shim.h"

namespace simboard
{

namespace
{

using OpenCall = int (*)(const char *, int, ...);
using OpenatCall = int (*)(int, const char *, int, ...);
using IoctlCall = int (*)(int, unsigned long, ...);
using FcntlCall = int (*)(int, int, ...);
using FlockCall = int (*)(int, int);
using LockfCall = int (*)(int, int, long);
using Lockf64Call = int (*)(int, int, off_t);

bool takes_mode(int flags)
{
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
}

// The board and bus of an open device; null when fd is something else.
const Attachment *find_device(int fd, Descriptor &descriptor)
{
    return read_descriptor(fd, descriptor) ? attached_board(descriptor.board) : nullptr;
}

// The part of a lock request that is the same in all its layouts.
struct LockStart {
    short type;
    short whence;
};

bool is_lock_command(int command)
{
    switch (command) {
    case F_SETLK:
    case F_SETLKW:
    case F_GETLK:
    case F_OFD_SETLK:
    case F_OFD_SETLKW:
    case F_OFD_GETLK:
        return true;
    default:
#if F_SETLK != 6 // the layout of programs built without large files
        return command >= 5 && command <= 7;
#else
        return false;
#endif
    }
}

bool is_query(int command)
{
    return command == F_GETLK || command == F_OFD_GETLK || (F_SETLK != 6 && command == 5);
}

bool is_record_lock(int command)
{
    return command != F_OFD_SETLK && command != F_OFD_SETLKW && command != F_OFD_GETLK;
}

// A lock on an open device. The offset of the stand-in file is not the device's, which is always 0.
int lock_device(State &state, Bus &bus, FcntlCall next, int fd, int command, void *argument)
{
    LockStart start;
    memcpy(&start, argument, sizeof(start));
    const bool from_offset = start.whence == SEEK_CUR;
    if (from_offset) {
        const short from_start = SEEK_SET;
        memcpy(static_cast<char *>(argument) + offsetof(LockStart, whence), &from_start,
               sizeof(from_start));
    }
    const Lock lock = is_record_lock(command) ? Lock::record : Lock::open_file;
    if (!is_query(command) && start.type == F_UNLCK) {
        judge_unlock(state, bus, lock);
    }
    const uint64_t asked_ns = now_ns();
    const int result = next(fd, command, argument);
    const int saved = errno;
    if (from_offset && !is_query(command)) {
        memcpy(static_cast<char *>(argument) + offsetof(LockStart, whence), &start.whence,
               sizeof(start.whence));
    }
    if (result >= 0 && !is_query(command) && start.type != F_UNLCK) {
        judge_lock(state, bus, lock, asked_ns);
    }
    errno = saved;
    return result;
}

int control_file(FcntlCall next, int fd, int command, void *argument)
{
    Descriptor descriptor;
    if (is_lock_command(command) && reinterpret_cast<uintptr_t>(argument) >= 4096) {
        const Attachment *const board = find_device(fd, descriptor);
        if (board != nullptr) {
            return lock_device(*board->state, board->state->buses[descriptor.bus], next, fd,
                               command, argument);
        }
    }
    const int result = next(fd, command, argument);
    if ((command == F_DUPFD || command == F_DUPFD_CLOEXEC) && result >= 0 && may_be_device(fd)) {
        mark_device(result);
    }
    return result;
}

int request(IoctlCall next, int fd, unsigned long number, void *argument)
{
    const unsigned low = static_cast<unsigned>(number);
    Descriptor descriptor;
    if (low - kFirstRequest > kLastRequest - kFirstRequest) {
        return next(fd, number, argument);
    }
    const Attachment *const board = find_device(fd, descriptor);
    if (board == nullptr) {
        return next(fd, number, argument);
    }
    mark_device(fd); // it may have come from another process
    const int saved = errno;
    const long result = device_request(*board->state, fd, descriptor, low, argument);
    errno = result < 0 ? static_cast<int>(-result) : saved;
    return result < 0 ? -1 : static_cast<int>(result);
}

// lockf(3) in terms of record locks; libc's own works from the file offset and does not pass
// through `fcntl`.
int lock_section(int fd, int operation, off_t length)
{
    struct flock lock = {};
    lock.l_type = operation == F_ULOCK ? F_UNLCK : F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_len = length;
    const FcntlCall next = NEXT(FcntlCall, "fcntl64");
    switch (operation) {
    case F_ULOCK:
    case F_TLOCK:
        return control_file(next, fd, F_SETLK, &lock);
    case F_LOCK:
        return control_file(next, fd, F_SETLKW, &lock);
    case F_TEST:
        if (control_file(next, fd, F_GETLK, &lock) < 0) {
            return -1;
        }
        if (lock.l_type == F_UNLCK) {
            return 0;
        }
        errno = EACCES;
        return -1;
    default:
        errno = EINVAL;
        return -1;
    }
}

} // namespace

} // namespace simboard

using namespace simboard;

extern "C" {

int shim_open(const char *path, int flags, ...) SHIM("open");
int shim_open64(const char *path, int flags, ...) SHIM("open64");
int shim_openat(int dir, const char *path, int flags, ...) SHIM("openat");
int shim_openat64(int dir, const char *path, int flags, ...) SHIM("openat64");
int shim_open_2(const char *path, int flags) SHIM("__open_2");
int shim_open64_2(const char *path, int flags) SHIM("__open64_2");
int shim_openat_2(int dir, const char *path, int flags) SHIM("__openat_2");
int shim_openat64_2(int dir, const char *path, int flags) SHIM("__openat64_2");
int shim_ioctl(int fd, unsigned long number, ...) SHIM("ioctl");
int shim_ioctl_time64(int fd, unsigned long number, ...) SHIM("__ioctl_time64");
int shim_fcntl(int fd, int command, ...) SHIM("fcntl");
int shim_fcntl64(int fd, int command, ...) SHIM("fcntl64");
int shim_fcntl_time64(int fd, int command, ...) SHIM("__fcntl_time64");
int shim_flock(int fd, int operation) SHIM("flock");
int shim_lockf(int fd, int operation, long length) SHIM("lockf");
int shim_lockf64(int fd, int operation, off_t length) SHIM("lockf64");

// The mode of an open that creates, the last argument of the other calls.
#define TAKE_MODE(flags, mode)                                                                     \
    mode_t mode = 0;                                                                               \
    if (takes_mode(flags)) {                                                                       \
        va_list arguments;                                                                         \
        va_start(arguments, flags);                                                                \
        mode = va_arg(arguments, mode_t);                                                          \
        va_end(arguments);                                                                         \
    }

#define TAKE_POINTER(last, pointer)                                                                \
    va_list arguments;                                                                             \
    va_start(arguments, last);                                                                     \
    void *const pointer = va_arg(arguments, void *);                                               \
    va_end(arguments);

int shim_open(const char *path, int flags, ...)
{
    TAKE_MODE(flags, mode)
    int fd;
    return open_device(AT_FDCWD, path, flags, fd) ? fd : NEXT(OpenCall, "open")(path, flags, mode);
}

int shim_open64(const char *path, int flags, ...)
{
    TAKE_MODE(flags, mode)
    int fd;
    return open_device(AT_FDCWD, path, flags, fd) ? fd
                                                  : NEXT(OpenCall, "open64")(path, flags, mode);
}

int shim_openat(int dir, const char *path, int flags, ...)
{
    TAKE_MODE(flags, mode)
    int fd;
    return open_device(dir, path, flags, fd) ? fd
                                             : NEXT(OpenatCall, "openat")(dir, path, flags, mode);
}

int shim_openat64(int dir, const char *path, int flags, ...)
{
    TAKE_MODE(flags, mode)
    int fd;
    return open_device(dir, path, flags, fd) ? fd
                                             : NEXT(OpenatCall, "openat64")(dir, path, flags, mode);
}

int shim_open_2(const char *path, int flags)
{
    int fd;
    return open_device(AT_FDCWD, path, flags, fd) ? fd : NEXT(OpenCall, "__open_2")(path, flags);
}

int shim_open64_2(const char *path, int flags)
{
    int fd;
    return open_device(AT_FDCWD, path, flags, fd) ? fd : NEXT(OpenCall, "__open64_2")(path, flags);
}

int shim_openat_2(int dir, const char *path, int flags)
{
    int fd;
    return open_device(dir, path, flags, fd) ? fd
                                             : NEXT(OpenatCall, "__openat_2")(dir, path, flags);
}

int shim_openat64_2(int dir, const char *path, int flags)
{
    int fd;
    return open_device(dir, path, flags, fd) ? fd
                                             : NEXT(OpenatCall, "__openat64_2")(dir, path, flags);
}

int shim_ioctl(int fd, unsigned long number, ...)
{
    TAKE_POINTER(number, argument)
    return request(NEXT(IoctlCall, "ioctl"), fd, number, argument);
}

int shim_ioctl_time64(int fd, unsigned long number, ...)
{
    TAKE_POINTER(number, argument)
    return request(NEXT(IoctlCall, "__ioctl_time64"), fd, number, argument);
}

int shim_fcntl(int fd, int command, ...)
{
    TAKE_POINTER(command, argument)
    return control_file(NEXT(FcntlCall, "fcntl"), fd, command, argument);
}

int shim_fcntl64(int fd, int command, ...)
{
    TAKE_POINTER(command, argument)
    return control_file(NEXT(FcntlCall, "fcntl64"), fd, command, argument);
}

int shim_fcntl_time64(int fd, int command, ...)
{
    TAKE_POINTER(command, argument)
    return control_file(NEXT(FcntlCall, "__fcntl_time64"), fd, command, argument);
}

int shim_flock(int fd, int operation)
{
    Descriptor descriptor;
    const FlockCall next = NEXT(FlockCall, "flock");
    const Attachment *const board = find_device(fd, descriptor);
    if (board == nullptr) {
        return next(fd, operation);
    }
    State &state = *board->state;
    Bus &bus = state.buses[descriptor.bus];
    const bool releases = (operation & LOCK_UN) != 0;
    if (releases) {
        judge_unlock(state, bus, Lock::open_file);
    }
    const uint64_t asked_ns = now_ns();
    const int result = next(fd, operation);
    if (result >= 0 && !releases) {
        judge_lock(state, bus, Lock::open_file, asked_ns);
    }
    return result;
}

int shim_lockf(int fd, int operation, long length)
{
    Descriptor descriptor;
    return find_device(fd, descriptor) != nullptr ? lock_section(fd, operation, length)
                                                  : NEXT(LockfCall, "lockf")(fd, operation, length);
}

int shim_lockf64(int fd, int operation, off_t length)
{
    Descriptor descriptor;
    return find_device(fd, descriptor) != nullptr
               ? lock_section(fd, operation, length)
               : NEXT(Lockf64Call, "lockf64")(fd, operation, length);
}

} // extern "C"
