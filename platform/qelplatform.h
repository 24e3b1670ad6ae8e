/*
 * Platform services: what the access library asks of the board's platform.
 *
 * On a board these names come from the platform's own shared libraries. libqelplatform.so.1 is the
 * version for any Linux host. All names have C linkage.
 */
#ifndef QELPLATFORM_H
#define QELPLATFORM_H

#include <stddef.h>
#include <stdint.h>
#include <sys/select.h>
#include <sys/time.h>

#ifdef __cplusplus
extern "C" {
#endif

#define QELPLATFORM_PRINTF(format_index, first_argument)                                           \
    __attribute__((format(printf, format_index, first_argument)))

/* Debug output: level, printf format, arguments. errno is the same before and after. */
void IDBG_LINUXAPP_DbgOut(uint32_t level, const char *format, ...) QELPLATFORM_PRINTF(2, 3);
void IDBG_LINUXAPP_Runtime_DbgOut(uint32_t level, const char *format, ...) QELPLATFORM_PRINTF(2, 3);
void IDBG_LINUXAPP_AuditOut(uint32_t level, const char *format, ...) QELPLATFORM_PRINTF(2, 3);

/* Assertion and audit reporting. errno is the same before and after. */
void sspFailedStat(const char *file, uint32_t line);
void _ssp_error(uint32_t level, const char *file, uint32_t line, const char *function,
                const char *text);
void _ssp_info(uint32_t level, const char *file, uint32_t line, const char *function,
               const char *format, ...) QELPLATFORM_PRINTF(5, 6);

/*
 * Process-shared semaphores by key: one holder at a time, free when created.
 *
 * OAL_SemCreate returns an id (0 or more), or a negative value with errno set. OAL_SemLockBySemId
 * returns 0 only when the semaphore is held; wait is in milliseconds, 65535 waits without limit.
 * OAL_SemUnLockBySemId returns 0, or a negative value with errno set when the semaphore was not
 * held.
 */
int32_t OAL_SemCreate(uint32_t key);
int32_t OAL_SemLockBySemId(int32_t id, uint32_t wait);
int32_t OAL_SemUnLockBySemId(int32_t id, uint32_t wait);

/* Signal-safe system calls. */
int sigwrap_open(const char *path, int flags, ...);
int sigwrap_select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds,
                   struct timeval *timeout);
void select_sleep(uint32_t seconds, uint32_t microseconds);

/* Exclusive lock on an open file: 0 or more when held / released, negative with errno set
 * otherwise. */
int file_lock_write(int fd);
int file_unlock(int fd);

/* Physical memory: 0 on success. MCTP: bytes read, or 0 / negative with errno set. */
int mmap_read32(uint32_t physical_address, uint32_t *value);
int i2c_mctp_read_on_fd(int fd, uint8_t *buffer);

/*
 * Bounds-checked memory and string functions. The copies return 0, the formatting calls the number
 * of characters; on misuse the result is negative and nothing is written past dest_size.
 */
int qel_memset_s(void *dest, size_t dest_size, int value, size_t count);
int qel_memcpy_s(void *dest, size_t dest_size, const void *source, size_t count);
int qel_snprintf_s(char *dest, size_t dest_size, const char *format, ...) QELPLATFORM_PRINTF(3, 4);
int qel_printf_s(const char *format, ...) QELPLATFORM_PRINTF(1, 2);

/* Text of an errno value; never null, valid in any thread, errno unchanged. */
const char *qel_strerror_s(int errnum);

#ifdef __cplusplus
}
#endif

#endif
