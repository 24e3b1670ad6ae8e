// The preload shim's part for plain transfers: read and write of open devices, and the calls that
// duplicate descriptors, which have to be followed so that a device is known by each of its
// numbers.
#include <errno.h>
#include <limits.h>
#include <sys/uio.h>
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
using ReadAtCall = ssize_t (*)(int, void *, size_t, off_t);
using CheckedReadAtCall = ssize_t (*)(int, void *, size_t, off_t, size_t);
using WriteAtCall = ssize_t (*)(int, const void *, size_t, off_t);
using VectorCall = ssize_t (*)(int, const iovec *, int);
using VectorAtCall = ssize_t (*)(int, const iovec *, int, off_t);
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

// A device has no position, so the kernel lets one be given and only refuses what can be none.
bool refuses_position(int fd, off_t at, ssize_t &result)
{
    Descriptor descriptor;
    if (at >= 0 || !confirm_device(fd, descriptor)) {
        return false;
    }
    errno = EINVAL;
    result = -1;
    return true;
}

bool transfer_at(int fd, bool reading, void *buffer, size_t count, off_t at, ssize_t &result)
{
    return refuses_position(fd, at, result) || transfer(fd, reading, buffer, count, result);
}

// As the kernel does for drivers that know no vectors: each part that is not empty is a message of
// its own, until one fails or falls short.
bool transfer_parts(int fd, bool reading, const iovec *parts, int count, ssize_t &result)
{
    Descriptor descriptor;
    if (!confirm_device(fd, descriptor)) {
        return false;
    }
    result = 0;
    if (count < 0 || count > IOV_MAX || (count > 0 && is_bad(parts))) {
        errno = count < 0 || count > IOV_MAX ? EINVAL : EFAULT;
        result = -1;
    }
    for (int i = 0; i < count && result >= 0; i++) {
        ssize_t done = 0;
        if (parts[i].iov_len > 0 &&
            !transfer(fd, reading, parts[i].iov_base, parts[i].iov_len, done)) {
            return false;
        }
        if (done < 0) {
            result = result > 0 ? result : done;
            break;
        }
        result += done;
        if (static_cast<size_t>(done) != parts[i].iov_len) {
            break;
        }
    }
    return true;
}

bool transfer_parts_at(int fd, bool reading, const iovec *parts, int count, off_t at,
                       ssize_t &result)
{
    return refuses_position(fd, at, result) || transfer_parts(fd, reading, parts, count, result);
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
ssize_t shim_pread(int fd, void *buffer, size_t count, off_t at) SHIM("pread64");
ssize_t shim_pread_alias(int fd, void *buffer, size_t count, long at) SHIM("pread");
ssize_t shim_pread_chk(int fd, void *buffer, size_t count, off_t at, size_t room)
    SHIM("__pread64_chk");
ssize_t shim_pread_chk_alias(int fd, void *buffer, size_t count, long at, size_t room)
    SHIM("__pread_chk");
ssize_t shim_pwrite(int fd, const void *buffer, size_t count, off_t at) SHIM("pwrite64");
ssize_t shim_pwrite_alias(int fd, const void *buffer, size_t count, long at) SHIM("pwrite");
ssize_t shim_readv(int fd, const iovec *parts, int count) SHIM("readv");
ssize_t shim_writev(int fd, const iovec *parts, int count) SHIM("writev");
ssize_t shim_preadv(int fd, const iovec *parts, int count, off_t at) SHIM("preadv64");
ssize_t shim_preadv_alias(int fd, const iovec *parts, int count, long at) SHIM("preadv");
ssize_t shim_pwritev(int fd, const iovec *parts, int count, off_t at) SHIM("pwritev64");
ssize_t shim_pwritev_alias(int fd, const iovec *parts, int count, long at) SHIM("pwritev");
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

ssize_t shim_pread(int fd, void *buffer, size_t count, off_t at)
{
    ssize_t result;
    if (may_be_device(fd) && transfer_at(fd, true, buffer, count, at, result)) {
        return result;
    }
    return NEXT(ReadAtCall, "pread64")(fd, buffer, count, at);
}

ssize_t shim_pread_alias(int fd, void *buffer, size_t count, long at)
{
    return shim_pread(fd, buffer, count, at);
}

ssize_t shim_pread_chk(int fd, void *buffer, size_t count, off_t at, size_t room)
{
    ssize_t result;
    if (count <= room && may_be_device(fd) && transfer_at(fd, true, buffer, count, at, result)) {
        return result;
    }
    return NEXT(CheckedReadAtCall, "__pread64_chk")(fd, buffer, count, at, room);
}

ssize_t shim_pread_chk_alias(int fd, void *buffer, size_t count, long at, size_t room)
{
    return shim_pread_chk(fd, buffer, count, at, room);
}

ssize_t shim_pwrite(int fd, const void *buffer, size_t count, off_t at)
{
    ssize_t result;
    if (may_be_device(fd) &&
        transfer_at(fd, false, const_cast<void *>(buffer), count, at, result)) {
        return result;
    }
    return NEXT(WriteAtCall, "pwrite64")(fd, buffer, count, at);
}

ssize_t shim_pwrite_alias(int fd, const void *buffer, size_t count, long at)
{
    return shim_pwrite(fd, buffer, count, at);
}

ssize_t shim_readv(int fd, const iovec *parts, int count)
{
    ssize_t result;
    if (may_be_device(fd) && transfer_parts(fd, true, parts, count, result)) {
        return result;
    }
    return NEXT(VectorCall, "readv")(fd, parts, count);
}

ssize_t shim_writev(int fd, const iovec *parts, int count)
{
    ssize_t result;
    if (may_be_device(fd) && transfer_parts(fd, false, parts, count, result)) {
        return result;
    }
    return NEXT(VectorCall, "writev")(fd, parts, count);
}

ssize_t shim_preadv(int fd, const iovec *parts, int count, off_t at)
{
    ssize_t result;
    if (may_be_device(fd) && transfer_parts_at(fd, true, parts, count, at, result)) {
        return result;
    }
    return NEXT(VectorAtCall, "preadv64")(fd, parts, count, at);
}

ssize_t shim_preadv_alias(int fd, const iovec *parts, int count, long at)
{
    return shim_preadv(fd, parts, count, at);
}

ssize_t shim_pwritev(int fd, const iovec *parts, int count, off_t at)
{
    ssize_t result;
    if (may_be_device(fd) && transfer_parts_at(fd, false, parts, count, at, result)) {
        return result;
    }
    return NEXT(VectorAtCall, "pwritev64")(fd, parts, count, at);
}

ssize_t shim_pwritev_alias(int fd, const iovec *parts, int count, long at)
{
    return shim_pwritev(fd, parts, count, at);
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
