/* Platform services that break their promises, preloaded by selftest_notices.sh. $BROKEN says how:
 * open lets everybody in and writes everywhere, refuse does nothing, leaky forgets to clean up. */
#include "platform/qelplatform.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/sem.h>
#include <time.h>

static int broken(const char *how)
{
    const char *const wanted = getenv("BROKEN");
    return wanted && strcmp(wanted, how) == 0;
}

/* No SEM_UNDO, no second try after a signal, and anybody may release. */
static int32_t leaky_change(int32_t id, short change)
{
    struct sembuf operation = {0, change, 0};
    return semop(id, &operation, 1);
}

int32_t OAL_SemCreate(uint32_t key)
{
    const int before = semget((key_t)key, 1, 0600);
    const int id = before >= 0 ? before : semget((key_t)key, 1, IPC_CREAT | 0600);
    if (before < 0 && broken("leaky"))
        leaky_change(id, 1);
    return id;
}

int32_t OAL_SemLockBySemId(int32_t id, uint32_t wait)
{
    (void)wait;
    return broken("open") ? 0 : broken("refuse") ? -1 : leaky_change(id, -1);
}

int32_t OAL_SemUnLockBySemId(int32_t id, uint32_t wait)
{
    (void)wait;
    return broken("open") ? 0 : broken("refuse") ? -1 : leaky_change(id, 1);
}

int file_lock_write(int fd)
{
    return broken("open") ? 0 : broken("refuse") ? -1 : flock(fd, LOCK_EX);
}

int file_unlock(int fd)
{
    return broken("leaky") ? 0 : fd >= 0 ? 0 : -1;
}

int sigwrap_open(const char *path, int flags, ...)
{
    const int fd = broken("refuse") ? -1 : open(path, flags);
    if (fd < 0 && errno == ENOENT)
        errno = 0;
    return fd;
}

int sigwrap_select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds,
                   struct timeval *timeout)
{
    if (broken("refuse"))
        return 0;
    return select(nfds, readfds, writefds, exceptfds, timeout);
}

void select_sleep(uint32_t seconds, uint32_t microseconds)
{
    const struct timespec time = {(time_t)seconds, (long)microseconds * 1000};
    if (!broken("refuse"))
        nanosleep(&time, NULL);
}

void IDBG_LINUXAPP_DbgOut(uint32_t level, const char *format, ...)
{
    if (broken("open"))
        errno = 0;
    else if (broken("leaky"))
        fprintf(stderr, "%u %s", (unsigned)level, format);
}

void sspFailedStat(const char *file, uint32_t line)
{
    (void)file, (void)line;
    if (broken("refuse"))
        errno = EINVAL;
}

int qel_memset_s(void *dest, size_t dest_size, int value, size_t count)
{
    memset(dest, value, broken("open") ? count : dest_size);
    return broken("refuse") ? -1 : 0;
}

int qel_memcpy_s(void *dest, size_t dest_size, const void *source, size_t count)
{
    (void)dest, (void)dest_size, (void)source, (void)count;
    return -1;
}

int qel_snprintf_s(char *dest, size_t dest_size, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(dest, broken("open") ? 8 : dest_size, format, arguments);
    va_end(arguments);
    return broken("leaky") ? length : -1;
}

int i2c_mctp_read_on_fd(int fd, uint8_t *buffer)
{
    (void)fd, (void)buffer;
    if (broken("refuse"))
        abort();
    return 9;
}

int mmap_read32(uint32_t physical_address, uint32_t *value)
{
    *value = physical_address;
    return broken("refuse") ? -1 : 0;
}
