// The load program's histogram against the exact order of the values put in.
#include "bench/histogram.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

using namespace bench;

TEST(Histogram, QuantilesAreWithinOneBucketOfTheExactOnes)
{
    const auto histogram = std::make_unique<Histogram>();
    std::vector<uint64_t> values;
    for (uint64_t i = 0; i < 5000; i++)
        values.push_back(i * i * i + i % 7);
    for (const uint64_t value : values)
        record(*histogram, value);
    std::sort(values.begin(), values.end());
    for (const double fraction : {0.001, 0.25, 0.5, 0.9, 0.99, 1.0}) {
        const uint64_t exact = values[static_cast<size_t>(fraction * 5000) - 1];
        EXPECT_GE(quantile(*histogram, fraction), exact) << fraction;
        EXPECT_LE(quantile(*histogram, fraction), exact + exact / kSubBuckets + 1) << fraction;
    }
    EXPECT_EQ(quantile(*histogram, 1.0), values.back());
}

TEST(Histogram, HoldsNothingHugeValuesAndSums)
{
    const auto one = std::make_unique<Histogram>();
    const auto sum = std::make_unique<Histogram>();
    EXPECT_EQ(quantile(*one, 0.5), 0U);
    record(*one, UINT64_MAX);
    EXPECT_GT(quantile(*one, 0.5), uint64_t{1} << 39);
    record(*sum, 0);
    record(*sum, 10);
    add(*sum, *one);
    EXPECT_EQ(quantile(*sum, 0.3), 0U);
    EXPECT_EQ(quantile(*sum, 0.6), 10U);
    EXPECT_EQ(sum->largest, UINT64_MAX);
}
