// Log-linear histogram.
#include "histogram.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace bench
{

namespace
{

size_t bucket_of(uint64_t value)
{
    if (value < kSubBuckets)
        return static_cast<size_t>(value);
    const auto exponent = static_cast<unsigned>(std::bit_width(value)) - 1 - kSubBits;
    const auto within = static_cast<size_t>(value >> exponent) - kSubBuckets;
    return std::min((exponent + 1) * kSubBuckets + within, kBuckets - 1);
}

uint64_t upper_bound_of(size_t bucket)
{
    if (bucket < kSubBuckets)
        return bucket;
    const size_t exponent = bucket / kSubBuckets - 1;
    const uint64_t within = bucket % kSubBuckets + kSubBuckets;
    return ((within + 1) << exponent) - 1;
}

void increase(std::atomic<uint64_t> &counter, uint64_t by)
{
    counter.store(counter.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
}

} // namespace

void record(Histogram &histogram, uint64_t nanoseconds)
{
    increase(histogram.counts[bucket_of(nanoseconds)], 1);
    if (nanoseconds > histogram.largest.load(std::memory_order_relaxed))
        histogram.largest.store(nanoseconds, std::memory_order_relaxed);
}

void add(Histogram &sum, const Histogram &part)
{
    for (size_t i = 0; i < kBuckets; i++)
        increase(sum.counts[i], part.counts[i].load(std::memory_order_relaxed));
    sum.largest = std::max(sum.largest.load(), part.largest.load());
}

uint64_t quantile(const Histogram &histogram, double fraction)
{
    uint64_t total = 0;
    for (const std::atomic<uint64_t> &count : histogram.counts)
        total += count;
    if (total == 0)
        return 0;
    const auto rank = static_cast<uint64_t>(std::ceil(fraction * static_cast<double>(total)));
    uint64_t seen = 0;
    size_t bucket = 0;
    for (; bucket < kBuckets; bucket++) {
        seen += histogram.counts[bucket];
        if (seen >= std::max<uint64_t>(rank, 1))
            break;
    }
    return std::min(upper_bound_of(std::min(bucket, kBuckets - 1)), histogram.largest.load());
}

} // namespace bench
