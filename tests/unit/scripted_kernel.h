// A kernel and a platform made of a script: every request, lock, check and log line of the library
// is one event, compared in order with the events a test states, and answered as the test says.
#ifndef TESTS_UNIT_SCRIPTED_KERNEL_H
#define TESTS_UNIT_SCRIPTED_KERNEL_H

#include <cerrno>
#include <cstdint>
#include <functional>
#include <linux/i2c.h>
#include <source_location>
#include <string>
#include <vector>

namespace scripted
{

using Bytes = std::vector<uint8_t>;

/** What the library must do next, and what it gets for it. Log lines and checks give no answer. */
struct Event {
    std::string text;
    int result = 0;
    int error = 0;    // errno set with a negative result, or with a select that timed out
    Bytes reply = {}; // bytes for the read messages, the SMBus area, the MCTP buffer or a register
    std::function<void()> meanwhile = {}; // what others do while the request runs
};
using Script = std::vector<Event>;

// Events by name. The descriptor and semaphore of a bus are the same in every test of a process.
constexpr int memory_fd = 900;
int fd_of(uint32_t bus);
int semaphore_of(uint32_t bus);
Event open_bus(uint32_t bus, int result, int error = 0);
Event open_memory(int result = memory_fd, int error = 0);
Event map_memory(int result = 0, int error = 0);
Event close_memory();
Event create_semaphore(uint32_t key, int result, int error = 0);
Event lock_semaphore(uint32_t bus, int result = 0, int error = 0);
Event unlock_semaphore(uint32_t bus, int result = 0, int error = 0);
Event lock_file(int fd, int result = 0, int error = 0);
Event unlock_file(int fd);
Event wait_ready(int fd, bool writable_too, int result = 1, int error = 0);
Event set_slave(int fd, bool force, uint16_t addr, int result = 0, int error = 0);
Event set_pec(int fd, unsigned on, int result = 0, int error = 0);
Event transfer(int fd, const i2c_msg *msgs, uint32_t count, int result, int error = 0,
               const Bytes &reply = {});
Event smbus(int fd, unsigned direction, unsigned command, unsigned size, const Bytes &area,
            int result = 0, int error = 0, const Bytes &reply = {});
Event read_mctp(int fd, int result, int error = 0, const Bytes &reply = {});

// Lines of ui2c_ioctls, without its tag, and argument checks.
Event line132(const char *format, ...) __attribute__((format(printf, 1, 2)));
Event line135(const char *format, ...) __attribute__((format(printf, 1, 2)));
Event no_registry();              // the registry's mutex could not be taken
Event no_semaphore(uint32_t bus); // the bus has none, or it could not be created
Script argument_check(const char *file, const char *function, const char *argument);

std::string printed(const char *format, ...) __attribute__((format(printf, 1, 2)));
std::string error_text(int error); // what qel_strerror_s says here
/** "errno = 6, text": how most lines end. */
std::string with_errno(int error);
Script &operator+=(Script &script, const Event &event);
Script &operator+=(Script &script, const Script &more);

/** Sixteen slots of the owner table, and as many words behind them that nobody may write. */
uint32_t *owner_table();

/** A bus number nobody used yet in this process; too high to be locked. */
uint32_t fresh_bus();
/** Opens a bus, creates its semaphore and maps the owner table, unless that was done before. */
void warm_up(uint32_t bus);

// Faults outside the script; they hold for the next play() or observe().
void fail_allocation(unsigned nth); // the nth one from 1 on
void fail_next_mutex_lock();
void pretend_process_id(int id); // 0: the true one
unsigned allocations();          // how many the last play() or observe() made
int unreleased();                // how many of them it did not free

// Begin and end of a script; use play().
void begin(const Script &script);
void end(const std::source_location &where);
void begin_observing(const Script &exceptions);
std::vector<std::string> end_observing();

/** Runs a call against a script. errno afterwards is what the call left. */
template <class Call>
auto play(const Script &script, Call &&call,
          const std::source_location &where = std::source_location::current())
{
    begin(script);
    errno = 0;
    const auto result = call();
    const int error = errno;
    end(where);
    errno = error;
    return result;
}

/**
 * Runs a call, from any number of threads, with every request succeeding but the first of each
 * named in exceptions; returns the events in the order they came.
 */
template <class Call>
std::vector<std::string> observe(const Script &exceptions, Call &&call)
{
    begin_observing(exceptions);
    call();
    return end_observing();
}

} // namespace scripted

/** Runs one call of the library against a script: the events, between braces or as a variable. */
#define EXPECT_PLAY(expected, call, ...)                                                           \
    EXPECT_EQ(scripted::play(scripted::Script(__VA_ARGS__), [&] { return call; }), expected)

#endif
