// The System V sets behind the semaphores, looked at from outside, for tests.
#include "tests/platform/semaphore_sets.h"

#include <sys/sem.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

constexpr int kImaginarySet = 1'000'000;
int scripted_calls = 0;
int scripted_error = 0;
std::atomic<int> releases{0};

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

extern "C" int semop(int set, sembuf *operations, size_t count) noexcept
{
    releases += operations[0].sem_op < 0 ? 1 : 0;
    return static_cast<int>(syscall(SYS_semop, set, operations, count));
}

int releases_tried()
{
    return releases;
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
    static uint32_t count = 0;
    key = 0x40000000U | (static_cast<uint32_t>(getpid()) & 0x3FFFFFU) << 8 | ++count;
    new_key = key + 0x80;
    id = OAL_SemCreate(key);
    ASSERT_GE(id, 0) << errno;
}

void Semaphore::TearDown()
{
    remove_set(key);
    remove_set(new_key);
}

pid_t Semaphore::start_holder() const
{
    const pid_t holder = start_child([this] { return take() && pause() == 0; });
    wait_until([this] { return value_of(key) == 1; });
    return holder;
}

pid_t Semaphore::start_waiter() const
{
    const pid_t waiter = start_child([this] { return take() && release(); });
    wait_until([this] { return waiters_for(key) == 1; });
    return waiter;
}
