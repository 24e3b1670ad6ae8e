// What scans send.
#include "command.h"

#include "simboard/testing.h"

#include <gtest/gtest.h>

using simboard::testing::Board;

namespace
{

constexpr char kSmallBoard[] = R"({ "name": "small", "buses": [ { "bus": 3, "devices": [
  { "name": "sw", "type": "pca9548", "address": "0x70", "channels": {
      "6": [ { "name": "far", "type": "registers", "address": "0x20" } ] } },
  { "name": "near", "type": "registers", "address": "0x48" } ] } ] })";

TEST(Scan, SaysWhyItEndedAndLeavesTheBusFree)
{
    const struct {
        const char *step;
        const char *message;
    } rows[] = {
        {R"("fault": "bus-stuck", "bus": 3, "address": "0x20", "times": 1)",
         "0x20: the transfer timed out (ETIMEDOUT)"},
        {R"("fault": "bus-error", "bus": 3, "address": 8, "errno": "EOPNOTSUPP", "direction": "write")",
         "the bus adapter cannot do quick writes; --read probes the rest"},
    };
    for (const auto &row : rows) {
        Board board(kSmallBoard);
        board.inject(std::string(R"({ "steps": [ { )") + row.step + " } ] }");
        const Ended ended = run("qeli2c scan");
        EXPECT_EQ(ended.status, 1);
        EXPECT_EQ(ended.err.find(std::string("qeli2c: scan of 3: ") + row.message), 0U)
            << ended.err;
        EXPECT_EQ(board.unfired(), "");
        EXPECT_EQ(board.wrongs(), "");
        EXPECT_EQ(run("qeli2c scan --read").status, 0);
    }
}

// A quick write could harm what sits at these addresses; a byte read at the others could take one
// from a FIFO.
TEST(Scan, ProbesByReadingWhereEepromsSitAndByQuickWriteElsewhere)
{
    Board board(R"({ "name": "none", "buses": [ { "bus": 3 } ] })");
    EXPECT_EQ(run("qeli2c scan 3").status, 0);
    std::vector<std::string> expected;
    for (int address = 0x08; address <= 0x77; address++) {
        const bool reads =
            (address >= 0x30 && address <= 0x37) || (address >= 0x50 && address <= 0x5f);
        char line[32];
        snprintf(line, sizeof line, "%c 0x%02x NACK", reads ? 'R' : 'W',
                 static_cast<unsigned>(address));
        expected.insert(expected.end(), {line, "P ENXIO"});
    }
    EXPECT_EQ(board.wire(3), expected) << "each address once, nothing else";
    board.reset();
    EXPECT_EQ(run("qeli2c scan 3 --read").status, 0);
    EXPECT_EQ(board.wire(3).front(), "R 0x08 NACK");
}

} // namespace
