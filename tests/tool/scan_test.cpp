// Scans, compared whole.
#include "command.h"

#include "simboard/testing.h"

#include <gtest/gtest.h>

using simboard::testing::Board;
using simboard::testing::reference_board;

namespace
{

constexpr char REFERENCE_TREE[] = R"(bus 0
|-- 0x20  board-status (registers)
`-- 0x50  fru-eeprom (at24c512)
bus 1
|-- 0x51  psu-eeprom (at24c512)
|-- 0x58  psu0 (registers)
`-- 0x59  psu1 (registers)
bus 2
|-- 0x48  thermal (registers)
`-- 0x70  sw-fan (pca9548)
    |-- channel 0
    |   `-- 0x2c  fan0 (registers)
    |-- channel 1
    |   `-- 0x2c  fan1 (registers)
    |-- channel 2
    |   `-- 0x50  fan-eeprom (at24c512)
    `-- channels 3-7: nothing
bus 3
|-- 0x54  clock-eeprom (at24c512)
`-- 0x6a  clock (registers)
bus 4
|-- 0x57  main-eeprom (at24c512)
|-- 0x60  main-registers (registers)
`-- 0x70  sw-main (pca9548)
    |-- channel 0
    |   `-- 0x20  slot0-registers (registers)
    |-- channel 1
    |   `-- 0x20  slot1-registers (registers)
    |-- channel 2
    |   `-- 0x53  slot-eeprom (at24c512)
    |-- channel 5
    |   |-- 0x21  riser-registers (registers)
    |   `-- 0x71  sw-riser (pca9548)
    |       |-- channel 0
    |       |   `-- 0x40  port0-registers (registers)
    |       |-- channel 3
    |       |   |-- 0x22  id-registers (registers)
    |       |   `-- 0x50  id-eeprom (at24c512)
    |       |-- channel 7
    |       |   `-- 0x52  log-eeprom (at24c512)
    |       `-- channels 1-2, 4-6: nothing
    `-- channels 3-4, 6-7: nothing
bus 5
`-- 0x72  sw-optics (pca9548)
    |-- channel 0
    |   `-- 0x50  optic0 (registers)
    |-- channel 1
    |   `-- 0x50  optic1 (registers)
    |-- channel 2
    |   `-- 0x50  optic2 (registers)
    |-- channel 3
    |   `-- 0x50  optic3 (registers)
    `-- channels 4-7: nothing
bus 6
|-- 0x21  backplane-registers (registers)
`-- 0x70  sw-backplane (pca9548)
    |-- channel 2
    |   `-- 0x73  sw-card (pca9548)
    |       |-- channel 1
    |       |   |-- 0x30  card-registers (registers)
    |       |   `-- 0x56  card-eeprom (at24c512)
    |       `-- channels 0, 2-7: nothing
    `-- channels 0-1, 3-7: nothing
bus 7
|-- 0x30  scratch-registers (registers)
`-- 0x50  scratch-eeprom (at24c512)
bus 8
`-- 0x40  monitor8 (registers)
bus 9
`-- 0x40  monitor9 (registers)
bus 10
`-- 0x40  monitor10 (registers)
bus 11
`-- 0x40  monitor11 (registers)
bus 12
`-- 0x40  monitor12 (registers)
bus 13
`-- 0x40  monitor13 (registers)
bus 14
`-- 0x40  monitor14 (registers)
bus 15
`-- 0x10  bmc-registers (registers)
)";

constexpr char SMALL_BOARD[] = R"({ "name": "small", "buses": [ { "bus": 3, "devices": [
  { "name": "sw", "type": "pca9548", "address": "0x70", "channels": {
      "6": [ { "name": "far", "type": "registers", "address": "0x20" } ] } },
  { "name": "near", "type": "registers", "address": "0x48" } ] } ] })";

// The same board as somebody else describes it: near is not known, ghost does not exist.
constexpr char OTHER_DESCRIPTION[] = R"( --board /dev/stdin <<'EOF'
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
    EXPECT_EQ(ended.out, REFERENCE_TREE);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(board.wrongs(), "");
    for (const char *name :
         {"sw-fan", "sw-main", "sw-riser", "sw-optics", "sw-backplane", "sw-card"})
        EXPECT_EQ(board.peek(name), 0) << name;
}

TEST(Scan, MarksWhatTheBoardFileDoesNotKnowAndWhatDoesNotAnswer)
{
    Board board(SMALL_BOARD);
    const Ended ended = run("qeli2c scan" + std::string(OTHER_DESCRIPTION));
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
    Board board(SMALL_BOARD);
    const Ended ended = run("QELI2C_BOARD= qeli2c scan 3");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "bus 3\n|-- 0x48  unknown device\n`-- 0x70  unknown device\n");
    EXPECT_EQ(ended.err, "");
}

TEST(Scan, AsAGridMarksWhatAnswersInFrontOfTheSwitch)
{
    Board board(SMALL_BOARD);
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
    Board board(SMALL_BOARD);
    const Ended ended =
        run("{ qeli2c scan --json" + std::string(OTHER_DESCRIPTION) + "\n} | tr -d ' \\n'");
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
