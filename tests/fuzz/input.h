// What all targets share: the bytes of one run, and how a finding is told.
#ifndef QELI2C_FUZZ_INPUT_H
#define QELI2C_FUZZ_INPUT_H

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace fuzz
{

// Ends the run as a finding: a promise that was broken.
[[noreturn]] inline void broken(const char *promise)
{
    std::fprintf(stderr, "broken: %s\n", promise);
    std::abort();
}

// Taken apart from the front. Where the bytes end, there are zeros.
struct Input {
    const uint8_t *at;
    const uint8_t *end;

    template <typename T>
    T take()
    {
        T value{};
        const auto count = std::min(sizeof(value), static_cast<size_t>(end - at));
        if (count != 0)
            std::memcpy(&value, at, count);
        at += count;
        return value;
    }
    uint8_t byte() { return take<uint8_t>(); }
    bool rarely() { return byte() % 16 == 15; }

    // A count: mostly a small one, else one at a limit, or any.
    uint32_t length()
    {
        static constexpr uint32_t kLimits[] = {
            32,    33,    253,   254,     255,     256,     257,        8192,      8193,
            65533, 65534, 65535, 0x10000, 0x10001, 0x101ff, 0xfffffffe, 0xffffffff};
        const uint8_t kind = byte();
        if (kind < 192)
            return kind % 64;
        if (kind < 240)
            return kLimits[kind % std::size(kLimits)];
        return kind < 252 ? take<uint16_t>() : take<uint32_t>();
    }
};

} // namespace fuzz

#endif
