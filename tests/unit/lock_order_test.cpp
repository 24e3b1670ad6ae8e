// Debug builds end a process that takes its locks out of order.
#include "bus/lock_order.h"
#include "tests/unit/scripted_kernel.h"

#include <csignal>
#include <gtest/gtest.h>
#include <initializer_list>

namespace
{

#ifdef QELI2C_CHECK_LOCK_ORDER
TEST(LockOrderDeathTest, IsKept)
{
    const std::initializer_list<void (*)()> out_of_order = {
        [] { note_semaphore(3, 9); }, // a second holder
        [] { note_lock(3, Lock::owner), note_lock(3, Lock::owner); },
        [] { note_lock(3, Lock::file), note_lock(3, Lock::owner); },
        [] { note_lock(3, Lock::owner), note_lock(3, Lock::path); },
        [] { note_lock(4, Lock::file); },
        [] { note_semaphore(2, 8), note_eeprom_wait(); },
        [] { note_semaphore(2, 8), note_lock(2, Lock::file), note_eeprom_wait(); },
    };
    for (const auto run : out_of_order) {
        forget_locks();
        note_semaphore(3, 9);
        EXPECT_EXIT(run(), testing::KilledBySignal(SIGABRT), "");
    }
    note_lock(3, Lock::path); // held by the caller's own calls
    note_unlock(3, Lock::semaphore);
    note_lock(3, Lock::owner);
    note_lock(3, Lock::file);
    note_lock(3, Lock::path);
    note_lock(3, Lock::path); // another try
    note_unlock(3, Lock::file);
    note_semaphore_release(9);
    note_eeprom_wait();
    note_semaphore(3, 9);
    forget_locks();
}
#endif

} // namespace
