// What a worker does with a device of each type: calls of the library that write and read back, and
// what must come of them.
#ifndef BENCH_DEVICE_WORK_H
#define BENCH_DEVICE_WORK_H

#include "stress.h"

#include <array>
#include <cerrno>
#include <string>

namespace bench
{

inline constexpr uint32_t kLargestWindow = 32;

// A worker's device and its own part of it.
struct Job {
    ei2c_client client{};
    Window window;       // its registers, or as many blocks of memory
    uint32_t number = 0; // of the worker
    bool alone = true;   // nobody else changes what the device has only one of
    bool faulty = false; // accesses may fail, and what they changed is not known then
};

// Every byte depends on the worker and on the sequence number, so that another worker's or an older
// byte is seen.
uint8_t pattern_byte(uint32_t worker, uint64_t sequence, uint32_t position);

// Notes a call that has begun at `start`: done when it gave `wanted`, else an error.
bool note_call(Worker &result, int64_t start, int32_t done, int32_t wanted);
void note_wrong_byte(Worker &result, uint32_t position, uint8_t expected, uint8_t read);

// Makes a call and notes it.
template <typename Call>
bool attempt(Worker &result, int32_t wanted, Call call)
{
    const int64_t start = monotonic_nanoseconds();
    errno = 0;
    return note_call(result, start, call(), wanted);
}

// One round of calls; the calls take turns with the sequence number, so that kTurns rounds in a row
// make all that the type has.
using Work = void (*)(const Job &job, uint64_t sequence, Worker &result);
inline constexpr uint64_t kTurns = 14;

// Null for a type that nobody works on. A device of unknown type counts as registers.
Work work_on(const std::string &type);

} // namespace bench

#endif
