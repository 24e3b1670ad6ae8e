// Chips in time; what else they do is in the transcripts.
#include <gtest/gtest.h>
#include <time.h>

#include "device.h"
#include "simboard/testing.h"

namespace
{

using simboard::testing::Board;
using simboard::testing::reference_board;

uint64_t now_ns()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

TEST(At24c512, DoesNotAnswerDuringItsWriteCycle)
{
    Board board(reference_board());
    const Device bus(0);
    ASSERT_EQ(bus.write(0x50, {0, 0}), 1); // an address alone starts no cycle
    const uint64_t before = now_ns();
    ASSERT_EQ(bus.write(0x50, {0, 0, 1}), 1);
    int result;
    uint64_t refused = 0;
    while ((result = bus.write(0x50, {0, 1})) == -ENXIO) {
        refused++;
    }
    EXPECT_EQ(result, 1);
    EXPECT_GE(now_ns() - before, 5'000'000U);
    EXPECT_EQ(board.totals(0).address_nacks, refused);
}

// START, 9 bits a byte, repeated START, STOP.
TEST(WireTime, ATransferTakesAsLongAsItsBits)
{
    for (const uint64_t bit_ns : {10'000U, 2'500U}) {
        Board board(reference_board(), bit_ns == 10'000U ? "100k" : "400k");
        Bytes bytes(20);
        const uint64_t before = now_ns();
        ASSERT_EQ(Device(7).write_read(0x30, {0}, bytes), 2);
        const uint64_t expected = (1 + 9 * 2 + 1 + 9 * 21 + 1) * bit_ns;
        EXPECT_GE(now_ns() - before, expected);
        const auto record = board.trace(7).back();
        EXPECT_EQ(record.end_ns - record.start_ns, expected);
    }
}

} // namespace
