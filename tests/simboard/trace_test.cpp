// qeli2c-sim trace: what it tells is what went over the wires, in every form, and a public protocol
// decoder agrees.
#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>
#include <sstream>

#include "shell.h"

namespace
{

constexpr char kBoard[] = R"({"name": "wires", "buses": [
    {"bus": 4, "speed": "400k", "devices": [
        {"name": "sw-main", "type": "pca9548", "address": "0x70", "channels": {"5": [
            {"name": "sw-riser", "type": "pca9548", "address": "0x71", "channels": {"3": [
                {"name": "eeprom", "type": "at24c512", "address": "0x50", "busy_after_write": false},
                {"name": "leds", "type": "pca9554", "address": "0x21", "inputs": "0xf0"}]}}]}}]},
    {"bus": 7, "devices": [
        {"name": "scratch", "type": "registers", "address": "0x30", "pattern": "00 7f"},
        {"name": "logic", "type": "epld-lattice", "address": "0x41"}]}]})";

// Both levels of switches, a repeated START, long and short messages, an absent address, a byte
// that is not acknowledged, quick commands; on two buses, of which one takes no time.
constexpr char kSession[] = R"(
{
    i2ctransfer -y 4 w1@0x70 0x20
    i2ctransfer -y 4 w1@0x71 0x08
    i2ctransfer -y 4 w6@0x50 0x12 0x34 1 2 3 4
    i2ctransfer -y 4 w2@0x50 0x12 0x34 r12
    i2ctransfer -y 4 w1@0x23 0
    i2ctransfer -y 4 w2@0x21 3 0x0f
    i2ctransfer -y 4 w2@0x21 1 0x5a
    i2ctransfer -y 4 w1@0x21 0 r1
    i2ctransfer -y 7 w4@0x41 0x99 0 0 0
    i2ctransfer -y 7 w40@0x30 0x80=
    i2cdump -y 7 0x30 i
    i2cdetect -y -q 7
    i2ctransfer -y 4 r1@0x71 w1@0x71 0 w1@0x23 1
    i2ctransfer -y 4 w1@0x71 0
    i2ctransfer -y 4 w1@0x70 0
} >/dev/null 2>&1
)";

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// A bus's traffic as conditions, addresses and bytes, each with A or N: "S 50 W A 12 A P".
struct Wire {
    std::string text;
    void put(const std::string &word) { text += word + " "; }
};

std::string hex(unsigned value)
{
    char text[8];
    std::snprintf(text, sizeof(text), "%02x", value);
    return text;
}

std::vector<Json::Value> records_of(const std::string &trace)
{
    std::vector<Json::Value> records;
    for (const std::string &line : lines_of(trace)) {
        std::istringstream(line) >> records.emplace_back();
    }
    return records;
}

bool is_at(const Json::Value &place, unsigned index)
{
    return !place.isNull() && place.asUInt() == index;
}

std::map<std::string, Wire> wires_of(const std::string &trace)
{
    std::map<std::string, Wire> wires;
    for (const Json::Value &record : records_of(trace)) {
        Wire &wire = wires[record["bus"].asString()];
        for (const Json::Value &message : record["messages"]) {
            if (message["outcome"] == "not-reached") {
                continue;
            }
            const bool read = message["direction"] == "read";
            const Json::Value &bytes = message["bytes"];
            wire.put(message == record["messages"][0] ? "S" : "Sr");
            wire.put(hex(message["address"].asUInt()) + (read ? " R" : " W"));
            wire.put(message["acknowledged"].asBool() ? "A" : "N");
            for (Json::ArrayIndex i = 0; i < bytes.size(); i++) {
                // The master acknowledges all it reads but the last.
                const bool refused = read ? i + 1 == bytes.size() : is_at(message["nack_at"], i);
                wire.put(hex(bytes[i].asUInt()) + (refused ? " N" : " A"));
            }
        }
        wire.put("P\n");
    }
    return wires;
}

// "4 ENXIO W 23 NACK" for every transfer.
std::vector<std::string> told_by_json(const std::string &trace)
{
    std::vector<std::string> told;
    for (const Json::Value &record : records_of(trace)) {
        const Json::Value &error = record["error"];
        std::string line =
            record["bus"].asString() + (error.isNull() ? " ok" : " " + error.asString());
        for (const Json::Value &message : record["messages"]) {
            line +=
                (message["direction"] == "read" ? " R " : " W ") + hex(message["address"].asUInt());
            line += message["outcome"] == "not-reached" ? " not reached" : "";
            line += message["acknowledged"] == false ? " NACK" : "";
            const Json::Value &bytes = message["bytes"];
            for (Json::ArrayIndex i = 0; i < bytes.size(); i++) {
                line +=
                    " " + hex(bytes[i].asUInt()) + (is_at(message["nack_at"], i) ? " NACK" : "");
            }
        }
        told.push_back(line);
    }
    return told;
}

// The same from columns of text, in which messages and bytes go on below.
std::vector<std::string> told_by_text(const std::string &trace)
{
    std::vector<std::string> told;
    for (const std::string &line : lines_of(trace)) {
        EXPECT_LE(line.size(), 80U) << line;
        if (line.substr(0, 3) == "bus") {
            continue;
        }
        std::string messages = line.substr(39);
        if (line[2] != ' ') {
            std::istringstream columns(line.substr(0, 4) + line.substr(32, 7));
            std::string bus;
            std::string result;
            columns >> bus >> result;
            told.push_back(bus + " " + result);
        } else {
            messages.erase(0, messages.find_first_not_of(' '));
        }
        told.back() += messages[0] == '!' ? "" : " " + messages;
    }
    return told;
}

// What sigrok's decoder makes of SCL and SDA of a bus.
std::string decode(const Shell &shell, const std::string &file, const std::string &bus)
{
    const Finished decoded = shell.run("cd ${0%/*}\nsigrok-cli -I vcd:compress=1000 -i " + file +
                                       " -P i2c:scl=SCL" + bus + ":sda=SDA" + bus +
                                       " -A i2c=start:repeat-start:stop:ack:nack:address-read:"
                                       "address-write:data-read:data-write");
    EXPECT_EQ(decoded.status, 0) << decoded.err;
    Wire wire;
    for (const std::string &line : lines_of(decoded.out)) {
        const std::string what = line.substr(line.find(": ") + 2);
        if (what == "Write" || what == "Read") { // told with the address again
            continue;
        }
        std::string value = what.substr(what.rfind(' ') + 1);
        std::transform(value.begin(), value.end(), value.begin(), ::tolower);
        const bool is_address = what.compare(0, 8, "Address ") == 0;
        wire.put(what == "Start"          ? "S"
                 : what == "Start repeat" ? "Sr"
                 : what == "Stop"         ? "P\n"
                 : what == "ACK"          ? "A"
                 : what == "NACK"         ? "N"
                 : is_address             ? value + (what[8] == 'r' ? " R" : " W")
                                          : value);
    }
    return wire.text;
}

// A shell that stands in a directory with the board's file.
struct Bench {
    Shell shell;
    Bench()
    {
        shell.write_file("board.json", kBoard);
        shell.write_file("session", kSession);
    }
    Finished run(const std::string &command) const { return shell.run("cd ${0%/*}\n" + command); }
};

constexpr char kPlain[] = "--times none --no-ids";

TEST(Trace, AProtocolDecoderSeesWhatTextAndJsonTell)
{
    const Bench bench;
    const Finished run =
        bench.run("qeli2c-sim run --board board.json --trace live.vcd -- sh -c '. ./session\n"
                  "qeli2c-sim trace --vcd dump.vcd\n"
                  "qeli2c-sim trace --device eeprom --vcd eeprom.vcd\n"
                  "qeli2c-sim trace --times none --no-ids --output text\n"
                  "qeli2c-sim trace --json'");
    ASSERT_EQ(run.err, "");
    ASSERT_EQ(run.status, 0);
    std::map<std::string, Wire> wires = wires_of(run.out);
    ASSERT_EQ(wires.size(), 2U);
    EXPECT_NE(wires["4"].text.find("S 50 W A 12 A 34 A Sr 50 R A 01 A 02 A 03 A 04 A ff A"),
              std::string::npos);
    EXPECT_NE(wires["4"].text.find("S 71 R A 08 N Sr 71 W A 00 A Sr 23 W N P"), std::string::npos);
    EXPECT_NE(wires["7"].text.find("S 41 W A 99 N P"), std::string::npos);
    for (const auto &[bus, wire] : wires) {
        EXPECT_EQ(decode(bench.shell, "dump.vcd", bus), wire.text);
        EXPECT_EQ(decode(bench.shell, "live.vcd", bus), wire.text);
    }
    EXPECT_EQ(told_by_text(bench.run("cat text").out), told_by_json(run.out));

    const char *const stacked = "sigrok-cli -I vcd:compress=1000 -P i2c:scl=SCL4:sda=SDA4,";
    EXPECT_EQ(bench.run(stacked + std::string("tca6408a -A tca6408a=value -i dump.vcd")).out,
              "tca6408a-1: Configuration: 0F\ntca6408a-1: Outputs set: 5A\n"
              "tca6408a-1: State of inputs: 50\n");
    EXPECT_EQ(bench
                  .run(stacked + std::string("eeprom24xx:chip=onsemi_cat24c256 -i eeprom.vcd "
                                             "-A eeprom24xx=page-write:seq-random-read"))
                  .out,
              "eeprom24xx-1: Page write (addr=1234, 4 bytes): 01 02 03 04\n"
              "eeprom24xx-1: Sequential random read (addr=1234, 12 bytes): "
              "01 02 03 04 FF FF FF FF FF FF FF FF\n");
}

TEST(Trace, IsTheSameToTheByteInEveryRun)
{
    const Bench bench;
    bench.shell.write_file("plan", R"({"steps": [
        {"fault": "address-nack", "device": "scratch", "probability": 0.3}]})");
    const struct {
        const char *seed;
        const char *file;
    } runs[] = {{"7", "a.txt"}, {"7", "b.txt"}, {"8", "c.txt"}, {"7", "a.json"}, {"7", "b.json"}};
    for (const auto &run : runs) {
        const Finished finished = bench.run(
            std::string("qeli2c-sim run --board board.json --plan plan --seed ") + run.seed + " " +
            kPlain + " --trace " + run.file + " -- i2cdump -y 7 0x30 b >/dev/null");
        EXPECT_EQ(finished.err, "");
        EXPECT_EQ(finished.status, 0);
    }
    const Finished compared = bench.run("cmp a.txt b.txt && cmp a.json b.json && wc -l <a.json\n"
                                        "grep -c ENXIO a.txt; cmp -s a.txt c.txt || echo differs");
    std::istringstream counts(compared.out);
    unsigned transfers = 0;
    unsigned failed = 0;
    std::string other;
    counts >> transfers >> failed >> other;
    EXPECT_GE(transfers, 256U) << compared.out << compared.err;
    EXPECT_GT(failed, 10U);
    EXPECT_LT(failed, transfers);
    EXPECT_EQ(other, "differs");
}

TEST(Trace, ShowsOnlyWhatIsAskedFor)
{
    const Bench bench;
    const struct {
        const char *arguments;
        const char *told;
        int status;
    } rows[] = {
        {"--bus 4 --failed --output /dev/stdout",
         "4 ENXIO W 23 NACK\n4 ENXIO R 71 08 W 71 00 W 23 NACK\n", 0},
        {"--device leds", "4 ok W 21 03 0f\n4 ok W 21 01 5a\n4 ok W 21 00 R 21 50\n", 0},
        {"--bus 4 --address 0x21 --last 1", "4 ok W 21 00 R 21 50\n", 0},
        {"--last 1 --bus 7 --bus 4", "4 ok W 70 00\n", 0},
        {"--pid 1", "", 0},
        {"--since 1000000", "", 0},
        {"--device nothing", "", 1},
        {"--bus 9", "", 1},
        {"--bus x", "", 2},
        {"--vcd x --json", "", 2},
        {"--vcd /nonexistent/x", "", 1},
        {"--times never", "", 2},
    };
    std::string commands = "eval \"$(qeli2c-sim start --board board.json wires)\"\n. ./session\n";
    ASSERT_EQ(bench.run(commands).status, 0);
    for (const auto &row : rows) {
        const Finished finished =
            bench.run("qeli2c-sim trace wires " + std::string(kPlain) + " " + row.arguments);
        std::string told;
        for (const std::string &line : told_by_text(finished.out)) {
            told += line + "\n";
        }
        EXPECT_EQ(told, row.told) << row.arguments;
        EXPECT_EQ(finished.status, row.status) << row.arguments;
        EXPECT_EQ(lines_of(finished.err).size(), row.status == 0 ? 0U : 1U) << finished.err;
    }
    EXPECT_EQ(bench.run("qeli2c-sim stop wires").status, 0);
}

TEST(Trace, FollowsUntilInterruptedOrTheBoardIsGone)
{
    const Bench bench;
    const Finished finished = bench.run(R"shell(
        eval "$(qeli2c-sim start --board board.json wires)"
        LD_PRELOAD= qeli2c-sim trace --follow --json -o first & first=$!
        LD_PRELOAD= qeli2c-sim trace --follow --json -o second & second=$!
        . ./session
        until [ "$(wc -l <first)" = "$(qeli2c-sim trace --json | wc -l)" ]; do sleep 0.01; done
        kill -INT $first
        wait $first && echo interrupted
        qeli2c-sim trace --json | cmp - first
        qeli2c-sim stop wires
        wait $second && echo stopped
        cmp first second
    )shell");
    EXPECT_EQ(finished.err, "");
    EXPECT_EQ(finished.out, "interrupted\nstopped\n");
    EXPECT_EQ(finished.status, 0);
}

TEST(Trace, HasEveryTransferOfABurstWhoeverElseIsStuckOverIt)
{
    const Bench bench;
    bench.shell.write_file("burst.py", R"(
import fcntl, os
device = os.open("/dev/i2c-7", os.O_RDWR)
fcntl.ioctl(device, 0x0703, 0x30)
for i in range(15000):
    os.write(device, bytes(2))
)");
    for (const std::string file : {"a.json", "a.txt", "a.vcd"}) {
        const Finished finished =
            bench.run("qeli2c-sim run --board board.json --trace " + file + R"( -- sh -c '
                rm -f stuck; qeli2c-sim trace --follow -o stuck & stuck=$!
                until [ -s stuck ]; do i2cget -y 7 0x30 0; sleep 0.01; done >/dev/null
                kill -STOP $stuck
                )" PYTHON3 " burst.py & " PYTHON3 R"( burst.py; wait %2; kill -KILL $stuck'
                grep -c " W 30 00 00$\|\"bytes\":.0,0" )" +
                      file);
        EXPECT_EQ(finished.err, "");
        EXPECT_EQ(finished.out, file == "a.vcd" ? "0\n" : "30000\n");
    }
}

TEST(Trace, SaysWhatItNoLongerHolds)
{
    const Bench bench;
    const Finished finished = bench.run(R"(
        qeli2c-sim run --board board.json -- sh -c '
            i=0; while [ $i -lt 20 ]; do i2cdump -y 7 0x30 b >/dev/null; i=$((i + 1)); done
            qeli2c-sim trace --json; qeli2c-sim trace | sed -n 2p; qeli2c-sim trace --vcd x')");
    const std::vector<std::string> lines = lines_of(finished.out);
    ASSERT_GT(lines.size(), 100U);
    const Json::Value lost = records_of(lines[0])[0];
    const Json::Value first = records_of(lines[1])[0];
    EXPECT_EQ(lost["type"], "lost");
    EXPECT_GT(lost["count"].asUInt(), 0U);
    EXPECT_EQ(first["number"].asUInt(), lost["count"].asUInt() + 1);
    EXPECT_EQ(lines.back(),
              "# bus 7: " + lost["count"].asString() + " transfers are no longer in the trace");
    EXPECT_EQ(finished.err, "qeli2c-sim: bus 7: " + lost["count"].asString() +
                                " transfers are missing in the trace\n");
}

} // namespace
