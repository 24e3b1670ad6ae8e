// The command-line tool from outside, where a transcript does not tell it: whole pages, signals,
// two at once.
#include "command.h"

#include "simboard/testing.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <thread>

using simboard::testing::Board;
using simboard::testing::reference_board;

namespace
{

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

void expect_success(const std::string &line, const std::string &out)
{
    const Ended ended = run(line);
    EXPECT_EQ(ended.status, 0) << line;
    EXPECT_EQ(ended.out, out) << line;
    EXPECT_EQ(ended.err, "") << line;
}

TEST(Tool, WritesAnEepromPageByPageAndWaitsForEachWriteCycle)
{
    Board board(reference_board());
    std::string values;
    std::vector<uint8_t> expected;
    for (uint32_t i = 0; i < 300; i++) {
        values += " " + std::to_string(i * 7 % 251);
        expected.push_back(static_cast<uint8_t>(i * 7 % 251));
    }
    const Ended ended =
        run("qeli2c set -y id-eeprom 0x7e" + values + " && qeli2c get id-eeprom 0x7e");
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.out, "0x00\n") << "the memory answers at once";
    EXPECT_EQ(ended.err, "qeli2c: about to write 300 bytes at 0x007e of the EEPROM id-eeprom "
                         "(4/0x70.5/0x71.3/0x50)\n");
    EXPECT_EQ(board.peek("id-eeprom", 0x7e, 300), expected);
    EXPECT_EQ(board.peek("id-eeprom", 0), 0xff) << "nothing wrapped to the start of a page";
    EXPECT_EQ(board.peek("id-eeprom", 0x7e + 300), 0xff);
    EXPECT_EQ(board.wrongs(), "");
}

TEST(Tool, HelpFitsEightyColumns)
{
    for (const char *command : {"",
                                "scan",
                                "get",
                                "set",
                                "dump",
                                "xfer",
                                "smbus",
                                "gpio",
                                "gpio get",
                                "gpio output",
                                "gpio watch",
                                "epld",
                                "epld id",
                                "epld write-read",
                                "retimer read",
                                "switch status",
                                "switch open",
                                "switch close",
                                "bus",
                                "bus stats",
                                "bus hold",
                                "list",
                                "info"}) {
        const Ended ended = run(std::string("qeli2c ") + command + " --help");
        EXPECT_EQ(ended.status, 0);
        size_t start = 0;
        for (size_t end; (end = ended.out.find('\n', start)) != std::string::npos; start = end + 1)
            EXPECT_LE(end - start, 80U) << ended.out.substr(start, end - start);
        EXPECT_GT(start, 100U) << command;
    }
}

TEST(Tool, TwoAtOnceOnOneDeviceDoNotDisturbEachOther)
{
    Board board(reference_board());
    const auto loop = [](const std::string &reg) {
        return start("for i in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 19 20; do"
                     " qeli2c set id-registers " +
                     reg + " $i || exit 9; [ $(($(qeli2c get id-registers " + reg +
                     "))) = $i ] || exit 8; done");
    };
    const Command first = loop("0x10");
    const Command second = loop("0x11");
    for (const Command &command : {first, second}) {
        const Ended ended = end_of(command);
        EXPECT_EQ(ended.status, 0);
        EXPECT_EQ(ended.err, "");
    }
    EXPECT_EQ(board.peek("id-registers", 0x10, 2), (std::vector<uint8_t>{20, 20}));
    EXPECT_EQ(board.wrongs(), "");
}

// Waits until the running command has done so many transfers, a minute at most.
void wait_for_transfers(Board &board, uint64_t count)
{
    for (int i = 0; i < 60000 && board.totals().transfers < count; i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TEST(Tool, InterruptedCommandsLeaveNothingHeldAndNoPathOpen)
{
    const struct {
        const char *line;
        uint64_t transfers; // done when the signal comes
        int signal;
        const char *message;
    } rows[] = {
        {"exec qeli2c scan 4", 300, SIGINT, "interrupted: the scan is not complete"},
        {"exec qeli2c scan 4", 700, SIGTERM, "interrupted: the scan is not complete"},
        {"exec qeli2c-stress --processes 2 --threads 2 --seconds 60 --device id-registers", 200,
         SIGINT, "this is how far it got"},
    };
    for (const auto &row : rows) {
        Board board(reference_board(), "100k");
        const Command command = start(row.line);
        wait_for_transfers(board, row.transfers);
        kill(command.child, row.signal);
        const Ended ended = end_of(command);
        EXPECT_EQ(ended.status, 128 + row.signal) << row.line;
        EXPECT_TRUE(contains(ended.err, row.message)) << ended.err;
        EXPECT_NE(ended.out, "") << "what was found so far is shown";
        EXPECT_EQ(board.peek("sw-main"), 0);
        EXPECT_EQ(board.peek("sw-riser"), 0);
        EXPECT_EQ(board.wrongs(), "");
        expect_success("timeout 10 qeli2c get id-registers 0x80", "0x00\n");
    }
}

} // namespace
