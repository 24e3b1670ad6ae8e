// qeli2c-sim show: what it tells of a board is what programs made of it.
#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <sstream>

#include "shell.h"

namespace
{

Json::Value parse(const std::string &text)
{
    Json::Value value;
    std::istringstream(text) >> value;
    return value;
}

TEST(Show, TellsTheStateOfEveryDevice)
{
    const Shell shell;
    const Finished finished = shell.run(R"(
        qeli2c-sim run -- sh -c '
            i2ctransfer -y 4 w1@0x57 0x30 >/dev/null; sleep 0.01
            i2ctransfer -y 4 w5@0x57 0x01 0x02 1 2 3; sleep 0.01
            i2ctransfer -y 0 w2@0x22 3 0x0f
            i2ctransfer -y 4 w1@0x70 0x21
            qeli2c-sim show --json; echo =; qeli2c-sim show; echo =; qeli2c-sim show --color always
            echo =; qeli2c-sim show --device main-eeprom; qeli2c-sim show --device nothing')");
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.err, "qeli2c-sim: the board has no device \"nothing\"\n");
    std::vector<std::string> parts(1);
    std::istringstream stream(finished.out);
    size_t longest = 0;
    for (std::string line; std::getline(stream, line);) {
        longest = std::max(longest, parts.size() == 2 || parts.size() == 4 ? line.size() : 0);
        line == "=" ? void(parts.emplace_back()) : void(parts.back() += line + "\n");
    }
    ASSERT_EQ(parts.size(), 4U);
    EXPECT_LE(longest, 80U);

    const Json::Value board = parse(parts[0]);
    const Json::Value &bus = board["buses"][4];
    EXPECT_EQ(bus["bus"], 4);
    for (const Json::Value &device : bus["devices"]) {
        if (device["name"] == "main-eeprom") {
            EXPECT_EQ(device["path"], "4/0x57");
            EXPECT_EQ(device["state"]["used"], 3);
            EXPECT_EQ(device["state"]["first"], 0x102);
        } else if (device["name"] == "sw-main") {
            EXPECT_EQ(device["open"], parse("[0, 5]"));
            EXPECT_EQ(device["opener"]["name"], "i2ctransfer");
            EXPECT_EQ(device["opener"]["alive"], false);
            EXPECT_EQ(device["channels"]["0"][0]["reachable"], true);
            EXPECT_EQ(device["channels"]["1"][0]["reachable"], false);
        }
    }
    for (const char *text :
         {"  0x57 main-eeprom           at24c512     used 3 of 65536  first 0102\n",
          "channel 0 open  channel 5 open\n", "i2ctransfer", ", ended\n", "    channel 5 (open)\n",
          "configuration 0f\n"}) {
        EXPECT_NE(parts[1].find(text), std::string::npos) << text << parts[1];
    }
    EXPECT_EQ(parts[1].find('\033'), std::string::npos);
    EXPECT_NE(parts[2].find("\033[32mchannel 5 (open)\033[0m"), std::string::npos);
    EXPECT_NE(parts[3].find("\n*\n0100: ff ff 01 02 03 ff"), std::string::npos) << parts[3];
}

TEST(Show, TellsPinsByNameAndWhatRegistersStandFor)
{
    const Shell shell;
    const Finished finished = shell.run(R"(
        qeli2c-sim run -- sh -c '
            i2cset -y 0 0x21 2 0xfe; i2cset -y 0 0x21 6 0xfc; i2cset -y 0 0x21 4 0x11
            i2cset -y 1 0x41 5 0x000a w
            qeli2c-sim show --device board-io --json; echo =
            qeli2c-sim show --device board-io; qeli2c-sim show --device power-5v
            qeli2c-sim inject unplugged --device sw-main; qeli2c-sim show
            qeli2c-sim inject --clear')");
    EXPECT_EQ(finished.err, "");
    const size_t cut = finished.out.find("\n=\n");
    const Json::Value pins = parse(finished.out.substr(0, cut))["pins"];
    ASSERT_EQ(pins.size(), 16U);
    EXPECT_EQ(pins[4], parse(R"({"pin": 4, "name": "power-button", "input": true, "level": 1})"));
    const char *const expected[] = {
        "pin 0 psu0-absent       output 0\n",
        "pin 1 psu1-absent       output 1\n",
        "pin 4 power-button      input  1\n",
        "current          0c80\n",
        "bus_v            5.00000\n",
        "power_w          16.000\n",
        "current_a        3.200\n",
        "sw-main               pca9548      unplugged\n",
        "slot0-io",
    };
    for (const char *const text : expected) {
        EXPECT_NE(finished.out.find(text, cut), std::string::npos) << text << finished.out;
    }
}

} // namespace
