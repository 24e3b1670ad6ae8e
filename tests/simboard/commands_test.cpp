// What qeli2c-sim shows and changes of boards that stand.
#include <gtest/gtest.h>

#include <functional>

#include "shell.h"
#include "simboard/board.h"
#include "simboard/view.h"

namespace
{

struct Row {
    const char *command;
    int status;
    const char *out; // null: not looked at
    const char *err = "";
};

// Two boards; "lab" is the one of $QELI2C_SIM.
class StandingBoards : public testing::Test
{
protected:
    StandingBoards()
    {
        environment_ = shell_.run("qeli2c-sim start other >/dev/null; qeli2c-sim start lab").out;
    }
    ~StandingBoards() override
    {
        EXPECT_EQ(shell_.run("qeli2c-sim stop lab; qeli2c-sim stop other").err, "");
    }

    Finished run(const std::string &command) const { return shell_.run(environment_ + command); }

    void expect(const std::vector<Row> &rows) const
    {
        for (const Row &row : rows) {
            const Finished finished = run(row.command);
            EXPECT_EQ(finished.status, row.status) << row.command;
            if (row.out != nullptr) {
                EXPECT_EQ(finished.out, row.out) << row.command;
            }
            EXPECT_EQ(finished.err.substr(0, finished.err.find(" (see ")), row.err) << row.command;
        }
    }

    Shell shell_;
    std::string environment_;
};

TEST_F(StandingBoards, PeekShowsWhatPokeAndProgramsChange)
{
    expect({
        {"qeli2c-sim peek board-io.power-button", 0, "1\n"},
        {"qeli2c-sim poke board-io.power-button 0; qeli2c-sim peek board-io.inputs", 0, "65514\n"},
        {"i2cget -y 0 0x21 0", 0, "0xea\n"},
        {"qeli2c-sim peek -n other board-io.4", 0, "1\n"},
        {"qeli2c-sim poke board-io.15 0; qeli2c-sim peek board-io 0 2", 0, "0xea 0x7f\n"},
        {"qeli2c-sim poke power-5v.voltage_mv 0xfa0; i2cget -y 1 0x41 2 w", 0, "0x800c\n"},
        {"qeli2c-sim poke power-5v.current_ma -7; qeli2c-sim peek power-5v.current_ma", 0, "-7\n"},
        {"qeli2c-sim poke fru-eeprom 0xfffe 0xa 11; i2ctransfer -y 0 w2@0x50 0xff 0xfe r2", 0,
         "0x0a 0x0b\n"},
        {"i2cset -y 7 0x30 0x11 0x5a; qeli2c-sim peek scratch-registers 16 17", 0,
         "0x0010: 00 5a 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n0x0020: 00\n"},
        {"qeli2c-sim peek --json power-5v.current_ma | tr -d ' \\n'", 0,
         "{\"device\":\"power-5v\",\"quantity\":\"current_ma\",\"value\":-7}"},
        {"qeli2c-sim reset; qeli2c-sim peek power-5v | head -2; qeli2c-sim peek fru-eeprom 0xfffe",
         0, "voltage_mv 5000\ncurrent_ma 3200\n0xff\n"},
    });
}

TEST_F(StandingBoards, MistypedPeeksAndPokesChangeNothing)
{
    expect({
        {"qeli2c-sim peek nobody", 1, "", "qeli2c-sim: the board has no device \"nobody\"\n"},
        {"qeli2c-sim peek fru-eeprom.inputs", 1, "",
         "qeli2c-sim: fru-eeprom (at24c512) has no \"inputs\"\n"},
        {"qeli2c-sim peek board-leds.8", 1, "",
         "qeli2c-sim: board-leds (pca9554) has no \"8\"; it has inputs, pins 0 to 7 and their "
         "names\n"},
        {"qeli2c-sim peek fru-eeprom 65536", 2, "",
         "qeli2c-sim: offset 65536 is out of range: 0 to 65535"},
        {"qeli2c-sim poke power-12v.voltage_mv 36001", 1, "",
         "qeli2c-sim: power-12v.voltage_mv: 36001 is not from 0 to 36000\n"},
        {"qeli2c-sim poke power-12v.voltage_mv 5 6", 2, "",
         "qeli2c-sim: power-12v.voltage_mv takes one value"},
        {"qeli2c-sim poke board-io.3 2", 2, "", "qeli2c-sim: the level at a pin is 0 or 1"},
        {"qeli2c-sim poke scratch-registers 0xff 1 2", 2, "",
         "qeli2c-sim: scratch-registers has 256 bytes, and these go beyond them"},
        {"qeli2c-sim poke scratch-registers 0 0x100", 2, "",
         "qeli2c-sim: byte 0x100 is out of range: 0x00 to 0xff"},
        {"qeli2c-sim peek -n nowhere fru-eeprom", 1, "",
         "qeli2c-sim: there is no board \"nowhere\"\n"},
        {"qeli2c-sim peek power-12v.voltage_mv; qeli2c-sim peek scratch-registers 255", 0,
         "12000\n0x00\n"},
    });
}

TEST_F(StandingBoards, ImagesGoInAndComeOutWhole)
{
    expect({
        {"cd $QELI2C_SIM_DIR/..; head -c 65536 /dev/urandom >a; qeli2c-sim load fru-eeprom a;"
         " qeli2c-sim save fru-eeprom | cmp - a && qeli2c-sim save fru-eeprom b && cmp a b;"
         " i2ctransfer -y 0 w2@0x50 0x12 0x34 r4 >c;"
         " od -An -tx1 -j 4660 -N 4 a | sed 's/^ /0x/; s/ / 0x/g' | cmp - c",
         0, ""},
        {"printf hi | qeli2c-sim load clock-eeprom --offset 0xfffe;"
         " qeli2c-sim peek clock-eeprom 0xfffd 3",
         0, "0xff 0x68 0x69\n"},
        {"printf long | qeli2c-sim load clock-eeprom --offset 0xfffd", 1, "",
         "qeli2c-sim: the image is longer than the 3 bytes of clock-eeprom; nothing was loaded\n"},
        {"qeli2c-sim load clock-eeprom </dev/null", 1, "",
         "qeli2c-sim: the image is empty; nothing was loaded\n"},
        {"qeli2c-sim load clock-eeprom /nonexistent", 1, "",
         "qeli2c-sim: /nonexistent: No such file or directory\n"},
        {"qeli2c-sim save clock-eeprom /dev/full", 1, "",
         "qeli2c-sim: /dev/full: No space left on device\n"},
        {"qeli2c-sim peek clock-eeprom 0xfffd 3", 0, "0xff 0x68 0x69\n"},
    });
}

TEST_F(StandingBoards, StatusTellsThemApartAndWhoIsAtThem)
{
    expect({
        {"qeli2c-sim status | awk 'NR > 1 {print $1, $2, $5, $6, $7, $8}'", 0,
         "lab reference 0 0 0 good\n"
         "other reference 0 0 0 good\n"},
        {"i2cset -y 2 0x70 4; qeli2c-sim status lab | grep -v -e ^age -e ^dir", 0,
         "name       lab\nboard      reference\n"
         "transfers  1, 0 failed; nothing wrong was seen\n"
         "open       bus 2, sw-fan, channel 2, by nobody alive\n"},
        {"qeli2c-sim status --json lab | grep -c -e '\"channels\": . 2 .' -e '\"switch\": "
         "\"sw-fan\"'",
         0, "2\n"},
        {"qeli2c-sim status nowhere", 1, "", "qeli2c-sim: there is no board \"nowhere\"\n"},
        {"find $QELI2C_SIM_DIR/* -perm /077 -not -type l", 0, ""}, // nobody else's business
        {"qeli2c-sim verify; qeli2c-sim verify other", 0,
         "the board is sound\nthe board is sound\n"},
    });
}

TEST_F(StandingBoards, VerifyNoticesWhatCannotBe)
{
    using simboard::State;
    simboard::BoardView view = simboard::open_board(simboard::named_board_directory("lab"));
    State &state = *view.state;
    ASSERT_EQ(run("i2cset -y 7 0x30 0x11 0x5a; i2cget -y 7 0x30 0x11").status, 0);
    const auto own = [&state]() -> simboard::Counters & {
        uint32_t i = 1;
        while (state.processes[i].by_bus[7].transfers == 0) {
            i++;
        }
        return state.processes[i].by_bus[7];
    };
    const struct {
        const char *finding;
        std::function<void(int)> change; // by 1, and back by -1
    } rows[] = {
        {"bus 7: the counters do not add up to the transfers of its trace",
         [&](int by) { own().transfers += static_cast<uint64_t>(by); }},
        {"bus 7: its trace does not end with the last transfer",
         [&](int by) {
             state.buses[7].state.records += static_cast<uint64_t>(by);
             own().transfers += static_cast<uint64_t>(by);
         }},
        {"bus 7: slot 1 of its trace is out of order",
         [&](int by) { state.traces[7][1].number += static_cast<uint64_t>(by); }},
        {"bus 7: its journal was left by somebody who let go",
         [&](int by) {
             state.journals[7].lines[0].offset = sizeof(simboard::Header) / 128 * 128 + 128;
             state.journals[7].count += static_cast<uint32_t>(by);
         }},
        {"bus 7: line 0 of its journal is of nowhere",
         [&](int by) {
             state.journals[7].lines[0].offset = state.header.size;
             state.journals[7].count += static_cast<uint32_t>(by);
         }},
        {"scratch-registers: takes part in a transfer that nobody makes",
         [&](int by) {
             auto &touched = simboard::find_chip(view, "scratch-registers").state.touched;
             touched = static_cast<uint8_t>(touched + by);
         }},
        {"layout: scratch-registers is not as described",
         [&](int by) {
             auto &address = simboard::find_chip(view, "scratch-registers").address;
             address = static_cast<uint8_t>(address + by);
         }},
    };
    for (const auto &row : rows) {
        row.change(1);
        const Finished finished = run("qeli2c-sim verify");
        row.change(-1);
        EXPECT_EQ(finished.status, 1) << row.finding;
        EXPECT_EQ(finished.out, std::string(row.finding) + "\n");
        if (std::string(row.finding).find("let go") != std::string::npos) {
            state.journals[7].count = 0; // verify has made what it found final
        }
        EXPECT_EQ(run("qeli2c-sim verify").out, "the board is sound\n") << row.finding;
    }
    simboard::close_board(view);
}

TEST(Check, TellsEveryMistakeOfEveryFile)
{
    const Shell shell;
    const std::string good = shell.write_file("good.json", R"({"name":"b","buses":[{"bus":0}]})");
    const std::string bad = shell.write_file("bad.json", "{\n\"name\": 5,\n\"busses\": []\n}\n");
    const Finished both = shell.run("qeli2c-sim check " + good + " " + bad);
    EXPECT_EQ(both.out, good + ": good: board \"b\", 1 buses, 0 devices\n" + bad +
                            ":1: buses: is missing\n" + bad +
                            ":2: name: must be a text that is not empty\n" + bad +
                            ":3: busses: unknown key\n");
    EXPECT_EQ(both.status, 1);
    EXPECT_EQ(shell.run("qeli2c-sim check - <" + good).status, 0);
    EXPECT_EQ(shell.run("qeli2c-sim check --json " + bad + " | grep -c '\"line\": [123]'").out,
              "3\n");
    EXPECT_EQ(shell.run("qeli2c-sim check /nonexistent").out,
              "/nonexistent: cannot be read: No such file or directory\n");
}

} // namespace
