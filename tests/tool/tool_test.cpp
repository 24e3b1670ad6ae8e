// The command-line tool from outside, where a transcript does not tell it: whole pages, signals,
// two at once.
#include "command.h"

#include "simboard/testing.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

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

TEST(Tool, EveryCommandHasHelpOfEightyColumnsAndASectionOfTheManualPage)
{
    const Ended ended =
        run("qeli2c --completion bash | sed -n 's/^    \"\\(.*\\)\") words=.*/\\1/p' |"
            " while read -r command; do echo '#'; qeli2c $command --help || exit 1;"
            " qeli2c --man | tr -d '\\\\' | grep -q \"^.S[SH].*$command\" || exit 2; done");
    EXPECT_EQ(ended.status, 0) << ended.out.substr(ended.out.rfind('#'));
    size_t start = 0;
    for (size_t end; (end = ended.out.find('\n', start)) != std::string::npos; start = end + 1)
        EXPECT_LE(end - start, 80U) << ended.out.substr(start, end - start);
    EXPECT_GE(std::count(ended.out.begin(), ended.out.end(), '#'), 36);
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
        const char *out, *err; // what it still says, among other things
    } rows[] = {
        {"exec qeli2c scan 4", 300, SIGINT, "bus 4", "interrupted: the scan is not complete"},
        {"exec qeli2c scan 4", 700, SIGTERM, "bus 4", "interrupted: the scan is not complete"},
        {"exec qeli2c power riser-power --watch --interval 10", 20, SIGINT, "riser-power,3.3", ""},
        {"exec qeli2c gpio watch riser-io --interval 10", 20, SIGHUP, "", "watching riser-io"},
        {"exec qeli2c switch open id-registers -- sleep 60", 2, SIGTERM, "", ""},
        {"exec qeli2c batch <<E\n$(yes get id-registers 0x80 | head -n 20000)\nE", 300, SIGINT,
         "0x00", "interrupted after line "},
        {"exec qeli2c eeprom read id-eeprom", 300, SIGINT, "\xff", " of 65536 bytes are read"},
        {"exec qeli2c-stress --processes 2 --threads 2 --seconds 60 --device id-registers", 200,
         SIGINT, "transfers", "this is how far it got"},
    };
    for (const auto &row : rows) {
        Board board(reference_board(), "100k");
        const Command command = start(row.line);
        wait_for_transfers(board, row.transfers);
        kill(command.child, row.signal);
        // A runner passes on what the whole group got.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        kill(command.child, row.signal);
        const Ended ended = end_of(command);
        EXPECT_EQ(ended.status, 128 + row.signal) << row.line;
        EXPECT_TRUE(contains(ended.out, row.out)) << row.line << "\n" << ended.out;
        EXPECT_TRUE(contains(ended.err, row.err)) << row.line << "\n" << ended.err;
        EXPECT_EQ(board.peek("sw-main"), 0);
        EXPECT_EQ(board.peek("sw-riser"), 0);
        EXPECT_EQ(board.wrongs(), "");
        expect_success("timeout 10 qeli2c get id-registers 0x80", "0x00\n");
    }
}

TEST(Tool, AnInterruptedEepromImageIsResumedAndTheJudgeFindsNothing)
{
    constexpr uint32_t kSize = 65536;
    Board board(reference_board());
    const std::string image = testing::TempDir() + "qeli2c-image-" + std::to_string(getpid());
    ASSERT_EQ(run("seq 1 20000 | head -c 65536 >" + image).status, 0);
    const std::string line = "exec qeli2c eeprom write id-eeprom --fast " + image;
    const Command command = start(line);
    wait_for_transfers(board, 2000);
    kill(command.child, SIGINT);
    const Ended ended = end_of(command);
    EXPECT_EQ(ended.status, 128 + SIGINT);
    EXPECT_TRUE(contains(ended.err, "interrupted: ")) << ended.err;
    const std::string tail = " of 65536 bytes are written; --update goes on from here\n";
    EXPECT_TRUE(ended.err.ends_with(tail)) << ended.err;
    const size_t said = ended.err.find("interrupted: ") + sizeof("interrupted: ") - 1;
    const auto written = static_cast<uint32_t>(std::stoul(ended.err.substr(said)));
    EXPECT_TRUE(written > 0 && written < kSize) << written;
    EXPECT_EQ(board.peek("id-eeprom", written, 128), std::vector<uint8_t>(128, 0xff))
        << "nothing is written beyond what it says";

    const Ended resumed = run(line + " --update --json");
    EXPECT_EQ(resumed.status, 0) << resumed.err;
    EXPECT_TRUE(contains(resumed.out, "\"equal_pages\": " + std::to_string(written / 128) + ","))
        << resumed.out;
    EXPECT_EQ(run("qeli2c eeprom read id-eeprom --fast | cmp - " + image).status, 0);
    EXPECT_EQ(board.peek("sw-main"), 0);
    unlink(image.c_str());
    EXPECT_EQ(board.wrongs(), "");
}

TEST(Tool, ShowsAPersonHowFarItGotAndAProgramNothing)
{
    Board board(reference_board());
    const std::string line = "seq 1 3000 | head -c 1024 | LC_ALL=C.UTF-8 qeli2c eeprom write "
                             "id-eeprom --no-verify";
    const Ended seen = run_on_terminal(line);
    EXPECT_TRUE(contains(seen.out, "\033[36m█")) << seen.out;
    EXPECT_TRUE(contains(seen.out, " of 1.0 KiB")) << seen.out;
    EXPECT_TRUE(contains(seen.out, " left")) << seen.out;
    EXPECT_FALSE(contains(run_on_terminal("NO_COLOR=1; export NO_COLOR; " + line).out, "\033[3"));
    for (const bool plain : {false, true}) {
        const Ended chart = run_on_terminal("NO_COLOR=" + std::string(plain ? "1" : "") +
                                            " qeli2c power power-5v --watch --count 2 "
                                            "--interval 50");
        EXPECT_TRUE(contains(chart.out, "5.05 V|")) << chart.out;
        EXPECT_EQ(contains(chart.out, "\033[3"), !plain) << chart.out;
    }
    EXPECT_FALSE(contains(run(line).err, "\r"));
    EXPECT_EQ(board.wrongs(), "");
}

} // namespace
