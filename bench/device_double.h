// The stand-in for the kernel's devices that the measurements share; see the source file.
#ifndef QELI2C_BENCH_DEVICE_DOUBLE_H
#define QELI2C_BENCH_DEVICE_DOUBLE_H

#include <atomic>
#include <cstdint>

namespace bench
{

constexpr int kMostDevices = 8;

inline std::atomic<uint64_t> opens{0};

} // namespace bench

#endif
