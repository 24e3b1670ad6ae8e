// A log-linear histogram of durations that lives in memory shared by processes.
#ifndef BENCH_HISTOGRAM_H
#define BENCH_HISTOGRAM_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace bench
{

// Every power of two is divided into 64 equal buckets: a value read back is at most 1/64 too high.
inline constexpr unsigned kSubBits = 6;
inline constexpr size_t kSubBuckets = size_t{1} << kSubBits;
inline constexpr size_t kBuckets = (40 - kSubBits + 1) * kSubBuckets; // up to 2^40 ns, 18 minutes

struct Histogram { // all zero when new
    std::array<std::atomic<uint64_t>, kBuckets> counts;
    std::atomic<uint64_t> largest;
};

// Called by the one thread that owns the histogram; others may read meanwhile.
void record(Histogram &histogram, uint64_t nanoseconds);

void add(Histogram &sum, const Histogram &part);

// The value that `fraction` (0 to 1) of all recorded values do not exceed, in nanoseconds; 0 when
// nothing was recorded.
uint64_t quantile(const Histogram &histogram, double fraction);

} // namespace bench

#endif
