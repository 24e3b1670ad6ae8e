// Scans, compared whole.
#include "command.h"

#include "simboard/testing.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>

using simboard::testing::Board;
using simboard::testing::reference_board;

namespace
{

// Made by "LC_ALL=C qeli2c-sim run --board boards/reference.json -- qeli2c scan" and read against
// the board file.
std::string reference_scan()
{
    std::ifstream file(QELI2C_TEST_DATA "/reference_scan.txt");
    return {std::istreambuf_iterator<char>(file), {}};
}

constexpr char kSmallBoard[] = R"({ "name": "small", "buses": [ { "bus": 3, "devices": [
  { "name": "sw", "type": "pca9548", "address": "0x70", "channels": {
      "6": [ { "name": "far", "type": "registers", "address": "0x20" } ] } },
  { "name": "near", "type": "registers", "address": "0x48" } ] } ] })";

// The same board as somebody else describes it: near is not known, ghost does not exist.
constexpr char kOtherDescription[] = R"( --board /dev/stdin <<'EOF'
{ "name": "other", "buses": [ { "bus": 3, "devices": [
  { "name": "ghost", "type": "registers", "address": "0x33" },
  { "name": "sw", "type": "pca9548", "address": "0x70", "channels": {
      "6": [ { "name": "far", "type": "registers", "address": "0x20" },
             { "name": "sw2", "type": "pca9548", "address": "0x71" } ] } } ] } ] }
EOF)";

TEST(Scan, OfTheReferenceBoardFindsEveryDeviceOnceAndLeavesEveryPathClosed)
{
    Board board(reference_board());
    const Ended ended = run("qeli2c scan");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, reference_scan());
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(board.wrongs(), "");
    for (const char *name :
         {"sw-fan", "sw-main", "sw-riser", "sw-optics", "sw-backplane", "sw-card"})
        EXPECT_EQ(board.peek(name), 0) << name;
}

TEST(Scan, MarksWhatTheBoardFileDoesNotKnowAndWhatDoesNotAnswer)
{
    Board board(kSmallBoard);
    const Ended ended = run("qeli2c scan" + std::string(kOtherDescription));
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "bus 3\n"
                         "|-- 0x33  ghost (registers)  NO ANSWER\n"
                         "|-- 0x48  unknown device\n"
                         "`-- 0x70  sw (pca9548)\n"
                         "    |-- channel 6\n"
                         "    |   |-- 0x20  far (registers)\n"
                         "    |   `-- 0x71  sw2 (pca9548)  NO ANSWER\n"
                         "    `-- channels 0-5, 7: nothing\n");
    EXPECT_EQ(ended.err, "qeli2c: 2 devices of the board file did not answer\n");
    EXPECT_EQ(board.wrongs(), "");
}

TEST(Scan, WithoutABoardFileShowsTheBusItself)
{
    Board board(kSmallBoard);
    const Ended ended = run("QELI2C_BOARD= qeli2c scan 3");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "bus 3\n|-- 0x48  unknown device\n`-- 0x70  unknown device\n");
    EXPECT_EQ(ended.err, "");
}

TEST(Scan, AsAGridMarksWhatAnswersInFrontOfTheSwitch)
{
    Board board(kSmallBoard);
    const Ended ended = run("qeli2c scan --grid");
    EXPECT_EQ(ended.status, 0);
    const std::string bus = "bus 3\n"
                            "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f\n"
                            "00:                         -- -- -- -- -- -- -- --\n"
                            "10: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
                            "20: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
                            "30: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
                            "40: -- -- -- -- -- -- -- -- 48 -- -- -- -- -- -- --\n"
                            "50: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
                            "60: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
                            "70: 70 -- -- -- -- -- -- --\n";
    const std::string channel = "bus 3/0x70.6\n"
                                "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f\n"
                                "00:                         -- -- -- -- -- -- -- --\n"
                                "10: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
                                "20: 20 -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
                                "30: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
                                "40: -- -- -- -- -- -- -- -- .. -- -- -- -- -- -- --\n"
                                "50: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
                                "60: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- --\n"
                                "70: .. -- -- -- -- -- -- --\n";
    EXPECT_TRUE(ended.out.starts_with(bus)) << ended.out;
    EXPECT_NE(ended.out.find(channel), std::string::npos) << ended.out;
}

TEST(Scan, AsJsonNestsChannelsInTheirSwitch)
{
    Board board(kSmallBoard);
    const Ended ended =
        run("{ qeli2c scan --json" + std::string(kOtherDescription) + "\n} | tr -d ' \\n'");
    std::string empty_channels;
    for (int channel = 0; channel < 6; channel++)
        empty_channels += R"({"channel":)" + std::to_string(channel) + R"(,"devices":[]},)";
    EXPECT_EQ(
        ended.out,
        R"({"buses":[{"bus":3,"devices":[)"
        R"({"address":51,"name":"ghost","path":"3/0x33","state":"missing","type":"registers"},)"
        R"({"address":72,"path":"3/0x48","state":"present"},)"
        R"({"address":112,"channels":[)" +
            empty_channels +
            R"({"channel":6,"devices":[)"
            R"({"address":32,"name":"far","path":"3/0x70.6/0x20","state":"present","type":"registers"},)"
            R"({"address":113,"name":"sw2","path":"3/0x70.6/0x71","state":"missing","type":"pca9548"}]},)"
            R"({"channel":7,"devices":[]}],)"
            R"("name":"sw","path":"3/0x70","state":"present","type":"pca9548"}]}]})");
}

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
