// The preload shim's part for streams: fopen on a device.
//
// libc's streams read and write by calls of its own that cannot be had in between, so a device's
// stream is one with functions of ours, and `fileno` knows its descriptor.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "simboard/open_device.h"
#include "simboard/open_devices.h"
#include "simboard/place.h"
#include "simboard/shim.h"

namespace simboard
{

namespace
{

using OpenStreamCall = FILE *(*)(const char *, const char *);
using ReopenStreamCall = FILE *(*)(const char *, const char *, FILE *);
using FilenoCall = int (*)(FILE *);

// Streams on devices: more than these are refused, as by a process that has too many files open.
constexpr uint32_t kStreams = 64;

struct Stream {
    std::atomic<FILE *> stream;
    int fd;
};
Stream streams[kStreams];
std::atomic<uint32_t> stream_count{0}; // slots ever used

FILE *const kClaimed = static_cast<FILE *>(static_cast<void *>(&streams)); // no stream is there

Stream *claim_slot()
{
    for (uint32_t i = 0; i < kStreams; i++) {
        FILE *none = nullptr;
        if (streams[i].stream.compare_exchange_strong(none, kClaimed)) {
            uint32_t count = stream_count.load();
            while (count < i + 1 && !stream_count.compare_exchange_weak(count, i + 1)) {
            }
            return &streams[i];
        }
    }
    errno = EMFILE;
    return nullptr;
}

const Stream *find_stream(FILE *stream)
{
    const uint32_t count = stream_count.load(std::memory_order_acquire);
    for (uint32_t i = 0; i < count; i++) {
        if (streams[i].stream.load(std::memory_order_acquire) == stream) {
            return &streams[i];
        }
    }
    return nullptr;
}

ssize_t read_stream(void *cookie, char *buffer, size_t size)
{
    return read(static_cast<Stream *>(cookie)->fd, buffer, size);
}

ssize_t write_stream(void *cookie, const char *buffer, size_t size)
{
    const ssize_t written = write(static_cast<Stream *>(cookie)->fd, buffer, size);
    return written < 0 ? 0 : written; // 0 tells of an error here
}

int close_stream(void *cookie)
{
    Stream *const stream = static_cast<Stream *>(cookie);
    const int fd = stream->fd;
    stream->stream.store(nullptr, std::memory_order_release);
    return close(fd);
}

int flags_of(const char *mode)
{
    const bool both = strchr(mode, '+') != nullptr;
    const int flags = both ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    return flags | (strchr(mode, 'e') != nullptr ? O_CLOEXEC : 0) |
           (strchr(mode, 'x') != nullptr ? O_CREAT | O_EXCL : 0);
}

FILE *open_stream(const char *path, const char *mode)
{
    Stream *const slot = claim_slot();
    if (slot == nullptr) {
        return nullptr;
    }
    FILE *stream = nullptr;
    if (open_device(AT_FDCWD, path, flags_of(mode), slot->fd) && slot->fd >= 0) {
        stream = fopencookie(slot, mode, {read_stream, write_stream, nullptr, close_stream});
    }
    if (stream == nullptr && slot->fd >= 0) {
        close(slot->fd);
    }
    slot->stream.store(stream, std::memory_order_release);
    return stream;
}

// A path of sysfs or memory has a file of its own; devices are made into streams above.
template <typename Next>
FILE *open_path(const char *path, const char *mode, Next next)
{
    const Place place = find_place(AT_FDCWD, path);
    if (place.kind == PlaceKind::elsewhere) {
        return next(path);
    }
    if (place.kind == PlaceKind::bus) {
        return open_stream(path, mode);
    }
    StandIn stand_in;
    return find_stand_in(place, stand_in) ? next(stand_in.path) : nullptr;
}

// The stream given stays the same, so it reads and writes past the board; requests by its
// descriptor reach the device.
template <typename Next>
FILE *reopen_path(const char *path, Next next)
{
    const Place place = find_place(AT_FDCWD, path);
    if (place.kind == PlaceKind::elsewhere) {
        return next(path);
    }
    StandIn stand_in;
    FILE *const opened = find_stand_in(place, stand_in) ? next(stand_in.path) : nullptr;
    if (opened != nullptr && place.kind == PlaceKind::bus) {
        const int fd = NEXT(FilenoCall, "fileno")(opened);
        Descriptor descriptor;
        descriptor.board = stand_in.board->state->header.id;
        descriptor.bus = static_cast<uint8_t>(place.bus);
        if (write_descriptor(fd, descriptor)) {
            mark_device(fd);
        }
    }
    return opened;
}

} // namespace

} // namespace simboard

using namespace simboard;

extern "C" {

FILE *shim_fopen(const char *path, const char *mode) SHIM("fopen");
FILE *shim_fopen64(const char *path, const char *mode) SHIM("fopen64");
FILE *shim_freopen(const char *path, const char *mode, FILE *stream) SHIM("freopen");
FILE *shim_freopen64(const char *path, const char *mode, FILE *stream) SHIM("freopen64");
int shim_fileno(FILE *stream) SHIM("fileno");
int shim_fileno_unlocked(FILE *stream) SHIM("fileno_unlocked");

FILE *shim_fopen(const char *path, const char *mode)
{
    return open_path(
        path, mode, [mode](const char *real) { return NEXT(OpenStreamCall, "fopen")(real, mode); });
}

FILE *shim_fopen64(const char *path, const char *mode)
{
    return open_path(path, mode, [mode](const char *real) {
        return NEXT(OpenStreamCall, "fopen64")(real, mode);
    });
}

FILE *shim_freopen(const char *path, const char *mode, FILE *stream)
{
    return reopen_path(path, [=](const char *real) {
        return NEXT(ReopenStreamCall, "freopen")(real, mode, stream);
    });
}

FILE *shim_freopen64(const char *path, const char *mode, FILE *stream)
{
    return reopen_path(path, [=](const char *real) {
        return NEXT(ReopenStreamCall, "freopen64")(real, mode, stream);
    });
}

int shim_fileno(FILE *stream)
{
    const Stream *const own = find_stream(stream);
    return own != nullptr ? own->fd : NEXT(FilenoCall, "fileno")(stream);
}

int shim_fileno_unlocked(FILE *stream)
{
    const Stream *const own = find_stream(stream);
    return own != nullptr ? own->fd : NEXT(FilenoCall, "fileno_unlocked")(stream);
}

} // extern "C"
