// A kernel and a platform that note every request, lock, check and log line of the library as one
// line of text, and answer as a test says: with success where it says nothing.
#ifndef TESTS_UNIT_SCRIPTED_KERNEL_H
#define TESTS_UNIT_SCRIPTED_KERNEL_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace scripted
{

using Bytes = std::vector<uint8_t>;

/**
 * The answer to the events from the first to the last, of those that contain the text. Of several,
 * each has a result one lower and an errno one higher than the one before.
 */
struct Answer {
    std::string text;
    unsigned first = 1;
    unsigned last = 1;
    std::optional<int> result = {};
    int error = 0;
    Bytes reply = {}; // for the read messages, the SMBus area, the MCTP buffer or a register
    std::function<void()> meanwhile = {}; // what others do while the request runs
    unsigned seen = 0;
};

int fd_of(uint32_t bus);

/** Sixteen slots of the owner table, and as many words behind them that nobody may write. */
uint32_t *owner_table();

// Faults outside the answers; they hold for the next events.
void fail_allocation(unsigned nth); // the nth one from 1 on
void fail_next_mutex_lock();
unsigned allocations(); // how many the last call made
int unreleased();       // how many of them it did not free

void begin(std::vector<Answer> answers, bool threads = false);
/** The events in order. An answer or fault that nothing asked for is one more. */
std::vector<std::string> end();

/** Runs a body, from any number of threads, with only the events named given other answers. */
template <class Body>
std::vector<std::string> observe(const std::vector<Answer> &answers, Body &&body)
{
    begin(answers, true);
    body();
    return end();
}

/** Opens a bus and, when it can be locked, creates its semaphore and maps the owner table. */
void warm_up(uint32_t bus);
/** A bus number nobody used yet in this process; too high to be locked. */
uint32_t fresh_bus();

} // namespace scripted

#endif
