// Children and signals for tests that need more than one process.
#ifndef TESTS_PLATFORM_PROCESS_H
#define TESTS_PLATFORM_PROCESS_H

#include <atomic>
#include <cerrno>
#include <functional>
#include <sys/mman.h>
#include <sys/types.h>

// Runs `body` in a forked child, which dies with this process.
pid_t start_child(const std::function<bool()> &body);

// Waits for its end: whether `body` was true.
bool ends_well(pid_t child);

void kill_child(pid_t child);

inline bool in_child(const std::function<bool()> &body)
{
    return ends_well(start_child(body));
}

// A record that forked children share, zero at the start; it lasts as long as the test's process.
template <typename Record>
Record &shared()
{
    return *static_cast<Record *>(
        mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
}

// Sleeps in small steps until the condition holds.
void wait_until(const std::function<bool()> &condition);

// While it exists, this process receives a SIGALRM every two milliseconds, handled without
// SA_RESTART. There is one storm at a time that is waited for.
class SignalStorm
{
public:
    SignalStorm();
    ~SignalStorm();
    SignalStorm(const SignalStorm &) = delete;
    SignalStorm &operator=(const SignalStorm &) = delete;
};

// Waits until a few signals have been handled in a child that is started with a storm.
void wait_for_storm();

// A result as it is, a failure as its negative errno: one value to compare.
inline int outcome(int result)
{
    return result < 0 ? -errno : result;
}

#endif
