// See imports.h.
#include "imports.h"

#include "platform/qelplatform.h"

#include <cstdarg>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <unistd.h>

namespace imports
{

Created created;

namespace
{

thread_local long trap_at = 0;
thread_local long count = 0;
thread_local void (*trap_action)() = nullptr;

void pass()
{
    if (trap_action != nullptr && ++count == trap_at)
        trap_action();
}

template <typename Function>
Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

void trap(long at, void (*action)())
{
    count = 0;
    trap_at = at;
    trap_action = action;
}

long made()
{
    return count;
}

} // namespace imports

using imports::next;
using imports::pass;

// What the definitions below have in common: `pass`, then the next definition of that name.
#define FORWARD(name, ...)                                                                         \
    static auto *const real = next<decltype(name)>(#name);                                         \
    pass();                                                                                        \
    return real(__VA_ARGS__)

extern "C" {

int32_t OAL_SemCreate(uint32_t key)
{
    imports::created.semaphores++;
    FORWARD(OAL_SemCreate, key);
}

int32_t OAL_SemLockBySemId(int32_t id, uint32_t wait)
{
    FORWARD(OAL_SemLockBySemId, id, wait);
}

int32_t OAL_SemUnLockBySemId(int32_t id, uint32_t wait)
{
    FORWARD(OAL_SemUnLockBySemId, id, wait);
}

int file_lock_write(int fd)
{
    FORWARD(file_lock_write, fd);
}

int file_unlock(int fd)
{
    FORWARD(file_unlock, fd);
}

int sigwrap_select(int count, fd_set *read, fd_set *write, fd_set *except, timeval *timeout)
{
    FORWARD(sigwrap_select, count, read, write, except, timeout);
}

void select_sleep(uint32_t seconds, uint32_t microseconds)
{
    FORWARD(select_sleep, seconds, microseconds);
}

// The library creates nothing: there is no mode.
int sigwrap_open(const char *path, int flags, ...)
{
    if (std::strncmp(path, "/dev/i2c-", 9) == 0)
        imports::created.devices++;
    FORWARD(sigwrap_open, path, flags);
}

int open64(const char *path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    FORWARD(open64, path, flags, mode);
}

void *mmap64(void *address, size_t length, int protection, int flags, int fd, off64_t offset)
{
    if (offset == 0xB8210000)
        imports::created.maps++;
    FORWARD(mmap64, address, length, protection, flags, fd, offset);
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list rest;
    va_start(rest, request);
    void *argument = va_arg(rest, void *);
    va_end(rest);
    static auto *const real = next<int(int, unsigned long, ...)>("ioctl");
    pass();
    return real(fd, request, argument);
}
}
