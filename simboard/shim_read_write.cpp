// The preload shim's part for plain transfers: read and write of open devices, and the calls that
// duplicate descriptors, which have to be followed so that a device is known by each of its
// numbers.
#include <errno.h>
#include <unistd.h>

#include "simboard/attach.h"
#include "simboard/i2c_dev.h"
#include "simboard/open_devices.h"
#include "simboard/shim.h"

namespace simboard
{

namespace
{

using ReadCall = ssize_t (*)(int, void *, size_t);
using CheckedReadCall = ssize_t (*)(int, void *, size_t, size_t);
using WriteCall = ssize_t (*)(int, const void *, size_t);
using DupCall = int (*)(int);
using Dup2Call = int (*)(int, int);
using Dup3Call = int (*)(int, int, int);

// Makes the transfer of a marked descriptor. False when it is no open device after all.
bool transfer(int fd, bool reading, void *buffer, size_t count, ssize_t &result)
{
    Descriptor descriptor;
    const Attachment *const board =
        confirm_device(fd, descriptor) ? attached_board(descriptor.board) : nullptr;
    if (board == nullptr) {
        return false;
    }
    const int saved = errno;
    result = plain_transfer(*board->state, fd, descriptor, reading, buffer, count);
    errno = result < 0 ? static_cast<int>(-result) : saved;
    result = result < 0 ? -1 : result;
    return true;
}

int follow(int from, int to)
{
    if (to >= 0 && may_be_device(from)) {
        mark_device(to);
    }
    return to;
}

__attribute__((constructor)) void start()
{
    if (wants_board()) {
        find_inherited_devices();
    }
}

} // namespace

} // namespace simboard

using namespace simboard;

extern "C" {

ssize_t shim_read(int fd, void *buffer, size_t count) SHIM("read");
ssize_t shim_read_alias(int fd, void *buffer, size_t count) SHIM("__read");
ssize_t shim_read_chk(int fd, void *buffer, size_t count, size_t room) SHIM("__read_chk");
ssize_t shim_write(int fd, const void *buffer, size_t count) SHIM("write");
ssize_t shim_write_alias(int fd, const void *buffer, size_t count) SHIM("__write");
int shim_dup(int fd) SHIM("dup");
int shim_dup2(int fd, int to) SHIM("dup2");
int shim_dup2_alias(int fd, int to) SHIM("__dup2");
int shim_dup3(int fd, int to, int flags) SHIM("dup3");

ssize_t shim_read(int fd, void *buffer, size_t count)
{
    ssize_t result;
    if (may_be_device(fd) && transfer(fd, true, buffer, count, result)) {
        return result;
    }
    return NEXT(ReadCall, "read")(fd, buffer, count);
}

ssize_t shim_read_alias(int fd, void *buffer, size_t count)
{
    return shim_read(fd, buffer, count);
}

ssize_t shim_read_chk(int fd, void *buffer, size_t count, size_t room)
{
    ssize_t result;
    if (count <= room && may_be_device(fd) && transfer(fd, true, buffer, count, result)) {
        return result;
    }
    return NEXT(CheckedReadCall, "__read_chk")(fd, buffer, count, room);
}

ssize_t shim_write(int fd, const void *buffer, size_t count)
{
    ssize_t result;
    if (may_be_device(fd) && transfer(fd, false, const_cast<void *>(buffer), count, result)) {
        return result;
    }
    return NEXT(WriteCall, "write")(fd, buffer, count);
}

ssize_t shim_write_alias(int fd, const void *buffer, size_t count)
{
    return shim_write(fd, buffer, count);
}

int shim_dup(int fd)
{
    return follow(fd, NEXT(DupCall, "dup")(fd));
}

int shim_dup2(int fd, int to)
{
    return follow(fd, NEXT(Dup2Call, "dup2")(fd, to));
}

int shim_dup2_alias(int fd, int to)
{
    return shim_dup2(fd, to);
}

int shim_dup3(int fd, int to, int flags)
{
    return follow(fd, NEXT(Dup3Call, "dup3")(fd, to, flags));
}

} // extern "C"
