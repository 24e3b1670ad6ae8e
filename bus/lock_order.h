// The order in which locks are taken - the EEPROM semaphore, a bus's semaphore, its owner record,
// the lock on its device file, the path - checked as it happens in debug builds. There a lock taken
// out of order, or a bus that has two holders in this process, ends the process. Other builds carry
// nothing of it.
#ifndef QELI2C_BUS_LOCK_ORDER_H
#define QELI2C_BUS_LOCK_ORDER_H

#include <cstdint>

// What the holder of a bus took last.
enum class Lock : int32_t { none, semaphore, owner, file, path };

#ifdef QELI2C_CHECK_LOCK_ORDER

// After it was taken, and before it is given back.
void note_semaphore(uint32_t bus, int32_t semid);
void note_semaphore_release(int32_t semid);
void note_lock(uint32_t bus, Lock lock);
// `left` is what the holder still has.
void note_unlock(uint32_t bus, Lock left);
void note_eeprom_wait();
void forget_locks();

#else

inline void note_semaphore(uint32_t, int32_t) {}
inline void note_lock(uint32_t, Lock) {}
inline void note_unlock(uint32_t, Lock) {}
inline void note_semaphore_release(int32_t) {}
inline void note_eeprom_wait() {}
inline void forget_locks() {}

#endif

#endif
