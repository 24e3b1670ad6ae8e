// Processes of a test and the locks they hold, seen from outside.
#ifndef TESTS_RELIABILITY_WATCH_H
#define TESTS_RELIABILITY_WATCH_H

#include "bench/device_work.h"
#include "simboard/testing.h"
#include "tests/platform/process.h"

#include <memory>
#include <pthread.h>
#include <string>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

namespace watch
{

// `window` tells apart those who work on one device at the same time, 0 to 31.
struct Device {
    bench::Work work;
    bench::Job job;
};
Device device(const simboard::testing::Board &board, const std::string &name, uint32_t window);

// Does the rounds with these sequence numbers; tells on standard output what went wrong. `calls`
// counts those made.
bool do_rounds(const Device &device, uint64_t first, uint64_t last, uint64_t *calls = nullptr);

// Forks a process that exits with 0 when `work` says so, and has `limit` seconds for it. Its log
// lines go nowhere.
pid_t start(const std::function<bool()> &work, unsigned limit = 60);
int end_of(pid_t child); // its wait status
bool succeeds(const std::function<bool()> &work);

// Of bus `bus`, and kEeproms for the EEPROM semaphore.
inline constexpr uint32_t kEeproms = 16;
int semaphore_value(uint32_t bus); // 0 when free, also when it was never used
int waiters(uint32_t bus);

// Every lock of the board that somebody holds, one line each.
std::string held_locks();

// Whether this process holds nothing; asked from a child, which shares none of its locks.
bool holds_nothing();

// Starts a thread that does `work`; the result of join tells whether it was cancelled.
template <typename Work>
pthread_t start_thread(Work &work)
{
    pthread_t thread{};
    pthread_create(
        &thread, nullptr,
        [](void *argument) -> void * {
            (*static_cast<Work *>(argument))();
            return nullptr;
        },
        &work);
    return thread;
}
bool is_cancelled(pthread_t thread);

// A signal for this process after so long, once or again and again.
void signal_after(int signal, long nanoseconds, bool repeat);

} // namespace watch

#endif
