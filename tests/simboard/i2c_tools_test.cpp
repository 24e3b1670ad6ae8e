// Debian's i2c-tools, unmodified, on the reference board.
#include <gtest/gtest.h>

#include "shell.h"
#include "simboard/board.h"
#include "simboard/view.h"

namespace
{

// A standing board that the tools and the test both see.
class SharedBoard
{
public:
    SharedBoard()
    {
        const Finished started = shell_.run("qeli2c-sim start tools");
        EXPECT_EQ(started.status, 0) << started.err;
        environment_ = started.out;
        view_ = simboard::open_board(simboard::named_board_directory("tools"));
    }
    ~SharedBoard()
    {
        simboard::close_board(view_);
        EXPECT_EQ(shell_.run("qeli2c-sim stop tools").status, 0);
    }
    SharedBoard(const SharedBoard &) = delete;
    SharedBoard &operator=(const SharedBoard &) = delete;

    Finished run(const std::string &command) const { return shell_.run(environment_ + command); }
    std::vector<uint8_t> peek(const char *device, uint32_t offset, uint32_t count) const
    {
        return simboard::peek(view_, simboard::find_chip(view_, device), offset, count);
    }
    void poke(const char *device, uint32_t offset, const std::vector<uint8_t> &bytes) const
    {
        simboard::poke(view_, simboard::find_chip(view_, device), offset, bytes);
    }

private:
    Shell shell_;
    std::string environment_;
    simboard::BoardView view_;
};

std::string hex(const std::vector<uint8_t> &bytes, const char *prefix, const char *separator)
{
    std::string text;
    for (const uint8_t byte : bytes) {
        char part[16];
        std::snprintf(part, sizeof(part), "%s%02x", prefix, byte);
        text += (text.empty() ? "" : separator) + std::string(part);
    }
    return text;
}

std::vector<uint8_t> pattern(size_t count)
{
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; i++) {
        bytes[i] = static_cast<uint8_t>(i * 37 + 5);
    }
    return bytes;
}

TEST(I2cDetect, FindsWhatIsReachable)
{
    const SharedBoard board;
    const char *const closed = "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f\n"
                               "00:                         -- -- -- -- -- -- -- -- \n"
                               "10: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- \n"
                               "20: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- \n"
                               "30: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- \n"
                               "40: -- -- -- -- -- -- -- -- 48 -- -- -- -- -- -- -- \n"
                               "50: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- \n"
                               "60: -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- -- \n"
                               "70: 70 -- -- -- -- -- -- --                         \n";
    std::string open = closed;
    open.replace(open.find("50: --"), 6, "50: 50");
    EXPECT_EQ(board.run("i2cdetect -y 2").out, closed);
    board.poke("sw-fan", 0, {0x04});
    EXPECT_EQ(board.run("i2cdetect -y 2").out, open);
    EXPECT_EQ(board.run("i2cdetect -y -q 2").out, open); // all by quick write
    EXPECT_EQ(board.run("i2cdetect -y -r 2").out, open); // all by receive byte
    EXPECT_EQ(board.run("i2cdetect -y 16").status, 1);
}

TEST(I2cGet, ReadsWhatTheBoardHolds)
{
    const SharedBoard board;
    board.poke("scratch-registers", 0, pattern(256));
    const std::vector<uint8_t> bytes = pattern(256);
    const struct {
        const char *command;
        std::string out;
        int status;
    } rows[] = {
        {"i2cget -y 7 0x30 0x21", hex({bytes[0x21]}, "0x", "") + "\n", 0},
        {"i2cget -y 7 0x30", hex({bytes[0x22]}, "0x", "") + "\n", 0}, // where the pointer is
        {"i2cget -y 7 0x30 0x40 w",
         "0x" + hex({bytes[0x41]}, "", "") + hex({bytes[0x40]}, "", "") + "\n", 0},
        {"i2cget -y 7 0x30 0x40 i 8",
         hex({bytes.begin() + 0x40, bytes.begin() + 0x48}, "0x", " ") + "\n", 0},
        {"i2cget -y 7 0x30 0x40 bp", "", 2}, // no packet error code from this device
        {"i2cget -y 7 0x31 0x40", "", 2},
    };
    for (const auto &row : rows) {
        const Finished finished = board.run(row.command);
        EXPECT_EQ(finished.out, row.out) << row.command;
        EXPECT_EQ(finished.status, row.status) << row.command << "\n" << finished.err;
    }
}

TEST(I2cSet, ChangesTheBoard)
{
    const SharedBoard board;
    const struct {
        const char *command;
        std::vector<uint8_t> from_0x10;
    } rows[] = {
        {"i2cset -y 7 0x30 0x10 0xa5", {0xa5, 0, 0, 0}},
        {"i2cset -y 7 0x30 0x10 0x1234 w", {0x34, 0x12, 0, 0}},
        {"i2cset -y 7 0x30 0x10 1 2 3 i", {1, 2, 3, 0}},
        {"i2cset -y 7 0x30 0x10 7 8 s", {2, 7, 8, 0}},           // an SMBus block with its count
        {"i2cset -y -m 0x0f 7 0x30 0x10 0xff", {0x0f, 7, 8, 0}}, // reads before it writes
        {"i2cset -y 7 0x30 0x10", {0x0f, 7, 8, 0}},
    };
    for (const auto &row : rows) {
        const Finished finished = board.run(row.command);
        EXPECT_EQ(finished.status, 0) << row.command << "\n" << finished.err;
        EXPECT_EQ(board.peek("scratch-registers", 0x10, 4), row.from_0x10) << row.command;
    }
}

TEST(I2cDump, ShowsAllRegisters)
{
    const SharedBoard board;
    const std::vector<uint8_t> bytes = pattern(256);
    board.poke("scratch-registers", 0, bytes);
    for (const char *mode : {"b", "i", "w", "c"}) {
        const std::string out = board.run(std::string("i2cdump -y 7 0x30 ") + mode).out;
        for (int row = 0; row < 256 && mode[0] != 'w'; row += 16) {
            const std::string line = hex({static_cast<uint8_t>(row)}, "", "") + ": " +
                                     hex({bytes.begin() + row, bytes.begin() + row + 16}, "", " ");
            EXPECT_NE(out.find(line), std::string::npos) << mode << "\n" << out;
        }
    }
    const std::string words = board.run("i2cdump -y 7 0x30 w").out;
    EXPECT_NE(words.find("08: 522d 7752"), std::string::npos) << words;
}

TEST(I2cTransfer, CombinesMessagesThroughTwoSwitches)
{
    const SharedBoard board;
    const Finished finished = board.run("i2ctransfer -y 4 w1@0x70 0x20\n"
                                        "i2ctransfer -y 4 w1@0x71 0x08\n"
                                        "i2ctransfer -y 4 w6@0x50 0x12 0x34 1 2 3 4\n"
                                        "sleep 0.01\n"
                                        "i2ctransfer -y 4 w2@0x50 0x12 0x35 r4\n"
                                        "i2ctransfer -y 4 r1@0x71 r1@0x70\n"
                                        "i2ctransfer -y 4 w1@0x23 0 || echo absent\n"
                                        "i2ctransfer -y 4 w1@0x71 0\n"
                                        "i2ctransfer -y 4 w1@0x70 0\n");
    EXPECT_EQ(finished.out, "0x02 0x03 0x04 0xff\n0x08\n0x20\nabsent\n");
    EXPECT_EQ(finished.err, "Error: Sending messages failed: No such device or address\n");
    EXPECT_EQ(board.peek("id-eeprom", 0x1234, 5), (std::vector<uint8_t>{1, 2, 3, 4, 0xff}));
    EXPECT_EQ(board.run("qeli2c-sim report >/dev/null").status, 0);
}

TEST(I2cDetect, ListsTheBoardsBusesAndWhatTheyCan)
{
    const SharedBoard board;
    std::string expected;
    for (int bus = 0; bus < 16; bus++) {
        const std::string number = std::to_string(bus);
        expected += "i2c-" + number + "\ti2c\treference bus " + number + "\tI2C adapter\n";
    }
    EXPECT_EQ(board.run("i2cdetect -l | sed 's/ *\t/\t/g' | sort -V").out, expected);
    const std::string functions = board.run("i2cdetect -F 4").out;
    for (const char *line :
         {"I2C                              yes\n", "SMBus Block Read                 yes\n",
          "SMBus PEC                        yes\n"}) {
        EXPECT_NE(functions.find(line), std::string::npos) << line << functions;
    }
}

// What other programs see of the devices, without a word of theirs that knows of boards.
TEST(Programs, FindTheBoardsDevicesAsTheMachines)
{
    const SharedBoard board;
    const struct {
        const char *command;
        const char *out;
    } rows[] = {
        {"ls /dev | grep -c '^i2c-[0-9]*$'", "16\n"},
        {"ls -l /dev/i2c-3 | cut -d ' ' -f 1,5,6", "crw------- 89, 3\n"},
        {"find /dev -maxdepth 1 -name 'i2c-*' -type c | wc -l", "16\n"},
        {"cd /dev; stat -c '%F %t:%T %s' i2c-12 /dev/mem",
         "character special file 59:c 0\ncharacter special file 1:1 0\n"},
        {"sh -c 'test -c /dev/i2c-15 && test -r /dev/i2c-15 && ! test -e /dev/i2c-16 && echo so'",
         "so\n"},
        {"cat /sys/class/i2c-dev/i2c-4/name /sys/class/i2c-dev/i2c-4/device/name"
         " /sys/bus/i2c/devices/i2c-4/name /sys/class/i2c-adapter/i2c-4/name | uniq -c |"
         " sed 's/^ *//'",
         "4 reference bus 4\n"},
        {"cat /sys/class/i2c-dev/i2c-4/dev; readlink /sys/class/i2c-dev/i2c-4/device",
         "89:4\n../../i2c-adapter/i2c-4\n"},
        {"ls /sys/class/i2c-adapter | wc -l; mount | grep -c i2c", "16\n0\n"},
        {"sh -c 'echo /dev/i2c-1?'", "/dev/i2c-10 /dev/i2c-11 /dev/i2c-12 /dev/i2c-13 /dev/i2c-14 "
                                     "/dev/i2c-15\n"},
    };
    for (const auto &row : rows) {
        const Finished finished = board.run(row.command);
        EXPECT_EQ(finished.out, row.out) << row.command;
        EXPECT_EQ(finished.err, "") << row.command;
    }
}

TEST(Python, ReadsThroughItsIoctl)
{
    const SharedBoard board;
    const std::string program = PYTHON3 " " EXAMPLES "/read_eeprom.py ";
    const std::vector<uint8_t> bytes = pattern(64);
    board.poke("fru-eeprom", 0xff00, bytes);
    EXPECT_EQ(board.run(program + "0 0x50 0xff00 64").out, hex(bytes, "", " ") + "\n");
    const Finished absent = board.run(program + "0 0x57 0 1");
    EXPECT_EQ(absent.err, "read_eeprom.py: bus 0, address 0x57: No such device or address\n");
    EXPECT_EQ(absent.status, 1);
    EXPECT_EQ(board.run(program + "16 0x50 0 1").err,
              "read_eeprom.py: bus 16, address 0x50: No such file or directory\n");
}

} // namespace
