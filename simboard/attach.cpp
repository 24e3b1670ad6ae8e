// Attaching a process to its board.
#include "simboard/attach.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace simboard
{

namespace
{

std::atomic<const Attachment *> newest{nullptr};

bool is_private(const struct stat &status)
{
    return status.st_uid == geteuid() && (status.st_mode & 077) == 0;
}

// Opened relative to the directory that was checked, so that nobody can put another in its place
// meanwhile.
int open_state(const char *directory, const char *&reason)
{
    const int dir = static_cast<int>(
        syscall(SYS_openat, AT_FDCWD, directory, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (dir < 0) {
        reason = strerror(errno);
        return -1;
    }
    struct stat status;
    int fd = -1;
    if (fstat(dir, &status) < 0 || !is_private(status)) {
        reason = "the directory is not private to this user";
    } else {
        fd = static_cast<int>(syscall(SYS_openat, dir, "state", O_RDWR | O_NOFOLLOW | O_CLOEXEC));
        if (fd < 0) {
            reason = "there is no board in it";
        }
    }
    close(dir);
    return fd;
}

const char *find_fault(const Header &header, uint64_t file_size)
{
    if (header.magic != kStateMagic) {
        return "its state file is damaged";
    }
    if (header.version != kStateVersion || header.mutex_size != sizeof(pthread_mutex_t)) {
        return "it was made by another version, or for another word size";
    }
    return header.size != file_size ? "its state file is cut short" : nullptr;
}

const Attachment *find_attachment(const char *directory)
{
    for (const Attachment *a = newest.load(std::memory_order_acquire); a != nullptr; a = a->next) {
        if (strcmp(a->directory, directory) == 0) {
            return a;
        }
    }
    return nullptr;
}

void complain(const char *directory, const char *reason)
{
    static std::atomic<bool> complained{false};
    if (!complained.exchange(true)) {
        dprintf(STDERR_FILENO, "simulated board %s: %s\n", directory, reason);
    }
}

void *map_memory(size_t size, int flags, int fd)
{
    void *const area = mmap(nullptr, size, PROT_READ | PROT_WRITE, flags, fd, 0);
    return area == MAP_FAILED ? nullptr : area;
}

const Attachment *make_attachment(const char *directory)
{
    const char *reason = nullptr;
    State *const state = strlen(directory) < PATH_MAX ? map_board(directory, reason) : nullptr;
    void *const area = state == nullptr
                           ? nullptr
                           : map_memory(sizeof(Attachment), MAP_PRIVATE | MAP_ANONYMOUS, -1);
    if (area == nullptr) {
        complain(directory, reason != nullptr ? reason : "out of memory");
        return nullptr;
    }
    Attachment *const made = static_cast<Attachment *>(area);
    made->state = state;
    memcpy(made->directory, directory, strlen(directory) + 1);
    const Attachment *head = newest.load(std::memory_order_acquire);
    do {
        // Threads that arrive together may each map the board; one mapping too many does no harm.
        made->next = head;
    } while (!newest.compare_exchange_weak(head, made, std::memory_order_acq_rel));
    return made;
}

} // namespace

State *map_board(const char *directory, const char *&reason)
{
    const int fd = open_state(directory, reason);
    if (fd < 0) {
        return nullptr;
    }
    struct stat status;
    void *area = nullptr;
    if (fstat(fd, &status) < 0 || static_cast<uint64_t>(status.st_size) < sizeof(State)) {
        reason = "its state file is cut short";
    } else {
        area = map_memory(static_cast<size_t>(status.st_size), MAP_SHARED, fd);
        reason = area == nullptr ? strerror(errno) : nullptr;
    }
    close(fd);
    if (area == nullptr) {
        return nullptr;
    }
    State *const state = static_cast<State *>(area);
    reason = find_fault(state->header, static_cast<uint64_t>(status.st_size));
    if (reason != nullptr) {
        munmap(area, static_cast<size_t>(status.st_size));
        return nullptr;
    }
    return state;
}

void unmap_board(State *state)
{
    munmap(state, static_cast<size_t>(state->header.size));
}

bool wants_board()
{
    const char *const directory = secure_getenv("QELI2C_SIM");
    return directory != nullptr && directory[0] != '\0';
}

const Attachment *attach_board()
{
    const int saved = errno;
    const char *const directory = secure_getenv("QELI2C_SIM");
    const Attachment *found = nullptr;
    if (directory != nullptr) {
        found = find_attachment(directory);
        if (found == nullptr) {
            found = make_attachment(directory);
        }
    }
    errno = found == nullptr ? ENODEV : saved;
    return found;
}

const Attachment *attached_boards()
{
    return newest.load(std::memory_order_acquire);
}

const Attachment *attached_board(uint16_t id)
{
    for (const Attachment *a = newest.load(std::memory_order_acquire); a != nullptr; a = a->next) {
        if (a->state->header.id == id) {
            return a;
        }
    }
    // A descriptor inherited through exec arrives before its board has been looked for.
    const Attachment *const named = wants_board() ? attach_board() : nullptr;
    return named != nullptr && named->state->header.id == id ? named : nullptr;
}

const Attachment *find_semaphore_board(int32_t id, uint32_t &bus)
{
    for (const Attachment *a = newest.load(std::memory_order_acquire); a != nullptr; a = a->next) {
        for (bus = 0; bus < kBuses; bus++) {
            if (a->semaphores[bus].load(std::memory_order_relaxed) == id + 1) {
                return a;
            }
        }
    }
    return nullptr;
}

} // namespace simboard
