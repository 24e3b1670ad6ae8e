// The System V sets behind the semaphores, looked at from outside, for tests.
#include "tests/platform/semaphore_sets.h"

#include "tests/platform/process.h"

#include <cerrno>
#include <sys/sem.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

constexpr int kImaginarySet = 1'000'000;
int scripted_calls = 0;
int scripted_error = 0;

uint32_t fresh_key()
{
    static uint32_t count = 0;
    return 0x40000000U | (static_cast<uint32_t>(getpid()) & 0x3FFFFFU) << 8 | ++count;
}

int ask(uint32_t key, int command)
{
    const auto set = static_cast<int>(syscall(SYS_semget, key, 0, 0));
    return set < 0 ? -1 : semctl(set, 0, command);
}

} // namespace

extern "C" int semget(key_t key, int count, int flags) noexcept
{
    if (scripted_calls > 0) {
        --scripted_calls;
        errno = scripted_error;
        return scripted_error != 0 ? -1 : kImaginarySet;
    }
    return static_cast<int>(syscall(SYS_semget, key, count, flags));
}

void script_semget(int count, int error)
{
    scripted_calls = count;
    scripted_error = error;
}

int value_of(uint32_t key)
{
    return ask(key, GETVAL);
}

int waiters_for(uint32_t key)
{
    return ask(key, GETZCNT);
}

void remove_set(uint32_t key)
{
    ask(key, IPC_RMID);
}

void Semaphore::SetUp()
{
    key = fresh_key();
    id = OAL_SemCreate(key);
    ASSERT_GE(id, 0) << errno;
}

void Semaphore::TearDown()
{
    remove_set(key);
}

pid_t Semaphore::start_holder() const
{
    const pid_t holder =
        start_child([this] { return OAL_SemLockBySemId(id, kForever) != 0 ? 1 : pause(); });
    wait_until([this] { return value_of(key) == 1; });
    return holder;
}

pid_t Semaphore::start_waiter() const
{
    const pid_t waiter = start_child([this] {
        return OAL_SemLockBySemId(id, kForever) == 0 && OAL_SemUnLockBySemId(id, kForever) == 0 ? 0
                                                                                                : 1;
    });
    wait_until([this] { return waiters_for(key) == 1; });
    return waiter;
}
