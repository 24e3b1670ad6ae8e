// What descriptions hold; their mistakes are in the transcripts.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "simboard/description.h"
#include "simboard/testing.h"

namespace
{

using simboard::BoardDescription;
using simboard::DescriptionError;
using simboard::testing::Board;

TEST(Description, ReferenceBoardHasEveryKindOfChipAtEachDepth)
{
    Board board(simboard::testing::reference_board());
    const auto &devices = board.description().devices;
    std::map<std::string, std::set<int>> depths;
    for (const auto &device : devices) {
        int depth = 0;
        for (int at = device.parent; at >= 0; at = devices[static_cast<size_t>(at)].parent) {
            depth++;
        }
        depths[device.type].insert(depth);
    }
    EXPECT_EQ(board.description().buses.size(), 16U);
    EXPECT_EQ(depths.size(), 13U);
    for (const auto &[type, at] : depths) {
        EXPECT_EQ(at, type == "pca9548" ? (std::set<int>{0, 1}) : (std::set<int>{0, 1, 2})) << type;
    }
}

TEST(Description, TheExampleOfTheManualIsOne)
{
    std::string text;
    ASSERT_TRUE(simboard::read_text_file(BOARD_FILE_MANUAL, text));
    const size_t start = text.find("```json\n") + 8;
    std::vector<DescriptionError> errors;
    const BoardDescription board = simboard::parse_board_description(
        text.substr(start, text.find("```", start) - start), errors);
    ASSERT_TRUE(errors.empty()) << simboard::to_string("", errors[0]);
    EXPECT_EQ(board.devices.size(), 6U);
}

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
