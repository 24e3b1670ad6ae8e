// Children, signals and captured output for tests that need more than one process.
#ifndef TESTS_PLATFORM_PROCESS_H
#define TESTS_PLATFORM_PROCESS_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <sys/mman.h>
#include <sys/types.h>
#include <vector>

// Runs `body` in a forked child, which ends with its result as exit status and dies with this
// process.
pid_t start_child(const std::function<int()> &body);

// Exit status, or 128 + signal number.
int end_of(pid_t child);

void kill_child(pid_t child);

// A record that forked children share; zero at the start.
template <typename Record>
class Shared
{
public:
    Shared()
        : record_(static_cast<Record *>(mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE,
                                             MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
    }
    ~Shared() { munmap(record_, sizeof(Record)); }
    Shared(const Shared &) = delete;
    Shared &operator=(const Shared &) = delete;
    Record *operator->() const { return record_; }
    Record *get() const { return record_; }

private:
    Record *record_;
};

// Sleeps in small steps until the condition holds.
void wait_until(const std::function<bool()> &condition);

// While it exists, this process receives a SIGALRM every two milliseconds, handled without
// SA_RESTART. There is one storm at a time; its count is common to a process and the children it
// started before.
class SignalStorm
{
public:
    SignalStorm();
    ~SignalStorm();
    SignalStorm(const SignalStorm &) = delete;
    SignalStorm &operator=(const SignalStorm &) = delete;
    static int signals();           // handled so far
    static void wait_for_signals(); // until a few have been handled
};

// While it exists, standard error of this process goes to memory.
class CapturedErrors
{
public:
    CapturedErrors();
    ~CapturedErrors();
    CapturedErrors(const CapturedErrors &) = delete;
    CapturedErrors &operator=(const CapturedErrors &) = delete;
    std::vector<std::string> lines() const;

private:
    int memory_;
    int original_;
};

int64_t monotonic_milliseconds();

std::vector<int> open_descriptors();

#endif
