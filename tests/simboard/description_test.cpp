// What descriptions hold; their mistakes are in the transcripts.
#include <gtest/gtest.h>

#include "simboard/testing.h"

namespace
{

using simboard::testing::Board;

TEST(Description, SpeedsAndStatusWordsAreThoseOfTheBuses)
{
    Board board(R"({"name": "b", "speed": "100k", "buses": [
        {"bus": 3, "speed": "instant", "status": "0xfffeffff"}, {"bus": 15, "status": 65536}]})");
    EXPECT_EQ(board.description().bit_ns, (std::vector<uint32_t>{0, 10'000}));
    const uint32_t first = 0x1e78a088;
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(board.physical(first + 3 * 0x80), 0xfffeffffU);
        EXPECT_EQ(board.physical(first + 15 * 0x80), 0x10000U);
        EXPECT_EQ(board.physical(first + 4 * 0x80), 0U);
        board.set_physical(first + 3 * 0x80, 1);
        board.set_physical(first + 4 * 0x80, 1);
        board.reset();
    }
}

} // namespace
