// The command-line tool from outside, on the reference board. A row is a command line and all it
// must show.
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

void expect_failure(const std::string &line, int status, const std::string &reason)
{
    const Ended ended = run(line);
    EXPECT_EQ(ended.status, status) << line;
    EXPECT_EQ(ended.out, "") << line;
    EXPECT_TRUE(contains(ended.err, reason)) << line << ": " << ended.err;
}

TEST(Tool, RefusesWrongUsageInOneLineAndTouchesNothing)
{
    const struct {
        const char *line, *reason;
    } rows[] = {
        {"qeli2c", "no command"},
        {"qeli2c frobnicate", "not expected: frobnicate"},
        {"qeli2c get", "DEVICE is required"},
        {"qeli2c get --frobnicate main-registers", "not expected: --frobnicate"},
        {"qeli2c get no-such-device 0", "no device named 'no-such-device' in"},
        {"qeli2c get 16/0x50 0", "bus 16 is out of range: 0 to 15"},
        {"qeli2c get 4/0x70.8/0x50 0", "8 is out of range: 0 to 7"},
        {"qeli2c get 4/0x80 0", "address 0x80 is out of range"},
        {"qeli2c get 4/0x70.1/0x71.1/0x72.1/0x50", "at most two switches"},
        {"qeli2c get main-registers 0x100", "register 0x100 does not fit in 1 byte"},
        {"qeli2c get main-registers zz", "register 'zz' is not a number"},
        {"qeli2c get main-registers 0 0", "count 0 is out of range"},
        {"qeli2c get main-registers 0 8193", "count 8193 is out of range"},
        {"qeli2c get main-registers 0 1 2", "too many arguments: '2'"},
        {"qeli2c get main-registers 0 --offset-width 5", "--offset-width 5 is out of range"},
        {"qeli2c get main-registers 0 --order big", "--order needs --word"},
        {"qeli2c get main-registers 0 --word --order middle", "middle"},
        {"qeli2c get main-registers 0 --pec", "--pec needs --smbus"},
        {"qeli2c get main-eeprom 0 --smbus", "register number of 2 bytes"},
        {"qeli2c get main-eeprom 0xffff 2", "past the end of the memory"},
        {"qeli2c set main-eeprom 0xffff 1 2", "past the end of the memory"},
        {"qeli2c set main-registers", "VALUE... is required"},
        {"qeli2c set main-registers 0", "no value to write"},
        {"qeli2c set main-registers 0 0x100", "value 0x100 is out of range: 0x00 to 0xff"},
        {"qeli2c set main-registers 0 0x10000 --word", "value 0x10000 is out of range"},
        {"qeli2c set main-registers 0 1 2 --smbus", "--smbus writes one value"},
        {"qeli2c xfer main-registers", "MESSAGE... is required"},
        {"qeli2c xfer main-registers w2 0x10 r1", "'w2' is followed by 1 byte"},
        {"qeli2c xfer main-registers r8193", "out of range"},
        {"qeli2c scan 16", "bus 16 is out of range"},
        {"qeli2c scan x", "bus 'x' is not a number"},
        {"QELI2C_BOARD= qeli2c scan", "name the buses"},
        {"QELI2C_BOARD= qeli2c list", "no board file"},
        {"QELI2C_BOARD= qeli2c get main-registers 0", "no board file to look up its name"},
    };
    Board board(reference_board());
    for (const auto &row : rows) {
        const Ended ended = run(row.line);
        EXPECT_EQ(ended.status, 2) << row.line;
        EXPECT_EQ(ended.out, "") << row.line;
        EXPECT_TRUE(ended.err.starts_with("qeli2c: ")) << row.line << ": " << ended.err;
        EXPECT_TRUE(contains(ended.err, row.reason)) << row.line << ": " << ended.err;
        EXPECT_EQ(std::count(ended.err.begin(), ended.err.end(), '\n'), 1) << ended.err;
    }
    EXPECT_EQ(board.totals().transfers, 0U);
}

TEST(Tool, ReportsEveryMistakeOfABoardFileAndTouchesNothing)
{
    Board board(reference_board());
    const struct {
        const char *line, *reason;
    } rows[] = {
        {"qeli2c --board /nowhere/board.json get 4/0x60 0", "/nowhere/board.json"},
        {"QELI2C_BOARD=/nowhere/board.json qeli2c get 4/0x60 0", "/nowhere/board.json"},
        {"qeli2c --board /dev/stdin scan <<'EOF'\n{ \"name\": \"b\",\n  \"buses\": [ {\"bus\": 16} "
         "] }\nEOF",
         "/dev/stdin:2: buses[0].bus: "},
        {"qeli2c --board /dev/stdin get a 0 <<'EOF'\n{ \"name\": \"b\", \"buses\": [ {\"bus\": 1, "
         "\"devices\": [\n"
         "{ \"name\": \"a\", \"type\": \"registers\", \"address\": \"0x80\" },\n"
         "{ \"name\": \"c\", \"type\": \"toaster\", \"address\": \"0x20\" } ] } ] }\nEOF",
         "/dev/stdin:3: buses[0].devices[1].type: "},
        {"qeli2c --board /dev/stdin list <<'EOF'\n{ \"name\": \"b\",\n\"buses\": [ ] ] }\nEOF",
         "/dev/stdin:2: "},
    };
    for (const auto &row : rows) {
        expect_failure(row.line, 2, row.reason);
        expect_failure(row.line, 2, "the board file cannot be used; nothing was done");
    }
    EXPECT_EQ(board.totals().transfers, 0U);
}

TEST(Tool, NamesWhatIsMissingWhenATransferFails)
{
    Board board(reference_board());
    const struct {
        const char *line, *reason;
    } rows[] = {
        {"qeli2c get 4/0x44 0",
         "cannot read 4/0x44: no device acknowledges this address (ENXIO); try 'qeli2c scan 4'"},
        {"qeli2c set 4/0x70.4/0x21 0 1", "cannot write 4/0x70.4/0x21: no device acknowledges"},
        {"qeli2c xfer 4/0x21 r1 --once", "cannot transfer with 4/0x21: no device"},
        {"qeli2c get 4/0x21 0 --smbus", "cannot read 4/0x21: no device"},
        {"qeli2c get 4/0x75.4/0x21 0",
         "the switch 4/0x75 in front of it does not acknowledge (ENXIO)"},
        {"qeli2c -y set 4/0x44.1/0x50 0 1",
         "the switch 4/0x44 in front of it does not acknowledge"},
    };
    for (const auto &row : rows)
        expect_failure(row.line, 1, row.reason);
    EXPECT_EQ(board.wrongs(), "");
    expect_failure("qeli2c get 4/0x70.5/0x75.4/0x21 0", 1,
                   "the switch 4/0x70.5/0x75 in front of it");
    EXPECT_EQ(board.peek("sw-main"), 0) << "the path to the missing switch is closed again";
}

TEST(Tool, SaysThatABusHasNoDeviceFile)
{
    Board board(R"({ "name": "small", "buses": [ { "bus": 3 } ] })");
    expect_failure("qeli2c get 9/0x20 0", 1, "/dev/i2c-9 cannot be opened: ");
    expect_failure("qeli2c set 9/0x20 0 1 --smbus", 1, "/dev/i2c-9 cannot be opened: ");
    const Ended scanned = run("qeli2c scan 3 9");
    EXPECT_EQ(scanned.status, 1);
    EXPECT_EQ(scanned.out, "bus 3: nothing\nbus 9\n`-- not scanned to the end, see the message\n");
    EXPECT_TRUE(contains(scanned.err, "scan of 9: /dev/i2c-9 cannot be opened")) << scanned.err;
}

TEST(Tool, ReadsWhatIsThereAtEveryDepth)
{
    Board board(reference_board());
    board.poke("main-registers", 0x10, {0xde, 0xad, 0x41});
    board.poke("riser-registers", 0x00, {0x34, 0x12, 0xcd, 0xab});
    board.poke("id-registers", 0x20, {0x5a, 0x02});
    board.poke("id-eeprom", 0x07e, {1, 2, 3, 4});
    board.poke("id-eeprom", 0xffff, {0x99});
    const struct {
        const char *line, *out;
    } rows[] = {
        {"qeli2c get main-registers 0x10", "0xde\n"},
        {"qeli2c get 4/0x60 16", "0xde\n"},
        {"QELI2C_BOARD= qeli2c get 4/0x60 0b10000", "0xde\n"},
        {"qeli2c get main-registers 0x0f 18",
         "0x0f: 00 de ad 41 00 00 00 00 00 00 00 00 00 00 00 00  ...A............\n"
         "0x1f: 00 00                                            ..\n"},
        {"qeli2c get main-registers 0x10 3 --json",
         "{\n  \"name\": \"main-registers\",\n  \"path\": \"4/0x60\",\n"
         "  \"register\": 16,\n  \"type\": \"registers\",\n"
         "  \"values\": [ 222, 173, 65 ]\n}\n"},
        {"qeli2c get 4/0x70.5/0x21 0 --word", "0x1234\n"},
        {"qeli2c get riser-registers 0 2 --word", "0x00: 1234 abcd\n"},
        {"qeli2c get riser-registers 0 2 --word --order big", "0x00: 3412 cdab\n"},
        {"qeli2c get riser-registers 0 --word --smbus", "0x1234\n"},
        {"qeli2c get 4/0x70.5/0x71.3/0x22 0x20", "0x5a\n"},
        {"qeli2c get id-registers 0x20 --smbus --word --order big", "0x5a02\n"},
        {"qeli2c get id-registers 0x20 --smbus", "0x5a\n"},
        {"qeli2c get id-registers --smbus", "0x02\n"}, // on from the register after 0x20
        {"qeli2c get id-eeprom 0x7e 4",
         "0x007e: 01 02 03 04                                      ....\n"},
        {"qeli2c get id-eeprom", "0xff\n"},
        {"qeli2c get id-eeprom 0xffff", "0x99\n"},
        {"qeli2c get 4/0x70.5/0x71.3/0x50 0x7f -w 2", "0x02\n"},
        {"qeli2c get -w 0 id-eeprom 2",
         "0x00: 03 04                                            ..\n"},
        {"qeli2c get sw-main", "0x00\n"},
        {"qeli2c xfer id-eeprom w 0 0x7e r4 w2 0 0x7f r2", "0x01 0x02 0x03 0x04\n0x02 0x03\n"},
        {"qeli2c xfer main-registers w 0x10 r2 --json",
         "{\n  \"messages\": \n  [\n    {\n      \"written\": [ 16 ]\n    },\n    {\n"
         "      \"read\": [ 222, 173 ]\n    }\n  ],\n  \"name\": \"main-registers\",\n"
         "  \"path\": \"4/0x60\",\n  \"type\": \"registers\"\n}\n"},
    };
    for (const auto &row : rows)
        expect_success(row.line, row.out);
    const Ended whole = run("qeli2c get id-eeprom 0 65536");
    EXPECT_EQ(std::count(whole.out.begin(), whole.out.end(), '\n'), 4096);
    EXPECT_TRUE(whole.out.ends_with("ff ff 99  ................\n"))
        << whole.out.substr(whole.out.size() - 160);
    EXPECT_EQ(board.wrongs(), "");
}

TEST(Tool, WritesAtEveryDepth)
{
    Board board(reference_board());
    const struct {
        const char *line, *device;
        uint32_t offset;
        std::vector<uint8_t> bytes; // there afterwards
    } rows[] = {
        {"qeli2c set main-registers 0x10 0xde 0xad", "main-registers", 0x0f, {0, 0xde, 0xad, 0}},
        {"qeli2c set riser-registers 0 0x1234 7 --word", "riser-registers", 0, {0x34, 0x12, 7, 0}},
        {"qeli2c set riser-registers 8 0x1234 --word --order big",
         "riser-registers",
         8,
         {0x12, 0x34}},
        {"qeli2c set id-registers 0x20 0x5a --smbus --pec",
         "id-registers",
         0x20,
         {0x5a, 0x02}}, // and the code
        {"qeli2c set id-registers 0x22 0x1234 --smbus --word", "id-registers", 0x22, {0x34, 0x12}},
        {"qeli2c set id-registers 0x24 0x1234 --smbus --word --order big",
         "id-registers",
         0x24,
         {0x12, 0x34}},
        {"qeli2c set -w 0 id-registers 0x30 1 2", "id-registers", 0x30, {1, 2, 0}},
        {"qeli2c xfer id-registers w 0x40 9 w3 0x50 8 7", "id-registers", 0x40, {9, 0}},
        {"true", "id-registers", 0x50, {8, 7, 0}},
    };
    for (const auto &row : rows) {
        expect_success(row.line, "");
        EXPECT_EQ(board.peek(row.device, row.offset, static_cast<uint32_t>(row.bytes.size())),
                  row.bytes)
            << row.line;
    }
    expect_success(
        "qeli2c set main-registers 0x10 1 2 --json",
        "{\n  \"name\": \"main-registers\",\n  \"path\": \"4/0x60\",\n  \"register\": 16,\n"
        "  \"type\": \"registers\",\n  \"written\": 2\n}\n");
    EXPECT_EQ(board.wrongs(), "");
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

TEST(Tool, AnnouncesAndAsksBeforeDelicateWrites)
{
    Board board(reference_board());
    const struct {
        const char *line, *answer; // no answer: not on a terminal
        int status;
        bool announced;
        uint8_t eeprom; // byte 0x10 afterwards
    } rows[] = {
        {"qeli2c set main-eeprom 0x10 1", "n\n", 1, true, 0xff},
        {"qeli2c xfer main-eeprom w 0 0x10 1", "\n", 1, true, 0xff},
        {"qeli2c set main-eeprom 0x10 2", "y\n", 0, true, 2},
        {"qeli2c set main-eeprom 0x10 3 -y", "n\n", 0, true, 3},
        {"qeli2c set -q main-eeprom 0x10 4", "n\n", 1, true, 3},
        {"qeli2c xfer main-eeprom w 0 0x10 r1", "n\n", 0, false, 3},
        {"qeli2c set main-eeprom 0x10 5", nullptr, 0, true, 5},
        {"qeli2c set main-eeprom 0x10 6 -q", nullptr, 0, false, 6},
        {"QELI2C_BOARD= qeli2c set 4/0x57 0x0a 0xb -w 2", nullptr, 0, true, 6},
        {"qeli2c set sw-main 0", nullptr, 0, true, 6},
        {"qeli2c set main-registers 0 1", nullptr, 0, false, 6},
    };
    for (const auto &row : rows) {
        const Ended ended =
            row.answer ? run_on_terminal(row.line, "[y/N]", row.answer) : run(row.line);
        EXPECT_EQ(ended.status, row.status) << row.line << "\n" << ended.out << ended.err;
        EXPECT_EQ(contains(ended.out + ended.err, "about to write"), row.announced) << row.line;
        EXPECT_EQ(board.peek("main-eeprom", 0x10), row.eeprom) << row.line;
        std::this_thread::sleep_for(
            std::chrono::milliseconds(12)); // the write cycle of the row before
    }
}

TEST(Tool, ShowsTheLibrarysTraceOnlyWhenAsked)
{
    Board board(reference_board());
    const Ended ended = run("qeli2c -v get main-registers 0");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out, "0x00\n");
    EXPECT_TRUE(contains(ended.err, "ui2c_rdwr_xfer() bus=4, addr=60 num=2")) << ended.err;
    expect_success("qeli2c get main-registers 0", "0x00\n");
}

TEST(Tool, FailsWhenItsResultsCannotBeWritten)
{
    Board board(reference_board());
    const Ended ended = run("qeli2c list >/dev/full");
    EXPECT_EQ(ended.status, 1);
    EXPECT_TRUE(contains(ended.err, "cannot write the results")) << ended.err;
}

TEST(Tool, HelpFitsEightyColumns)
{
    for (const char *command : {"", "scan", "get", "set", "xfer", "list"}) {
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
