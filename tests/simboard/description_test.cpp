// Board files: what is read from them, and what is said about their mistakes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "simboard/description.h"
#include "simboard/testing.h"

namespace
{

using simboard::BoardDescription;
using simboard::DescriptionError;

std::string report(const std::string &text)
{
    std::vector<DescriptionError> errors;
    simboard::parse_board_description(text, errors);
    std::string lines;
    for (const DescriptionError &error : errors) {
        lines += simboard::to_string("b", error) + "\n";
    }
    return lines;
}

TEST(Description, ReferenceBoardHasDevicesOfEachTypeAtEachDepth)
{
    std::vector<DescriptionError> errors;
    const BoardDescription board =
        simboard::load_board_description(simboard::testing::reference_board(), errors);
    ASSERT_TRUE(errors.empty()) << simboard::to_string("", errors[0]);
    EXPECT_EQ(board.buses.size(), 16U);
    bool seen[3][3] = {};
    const std::vector<std::string> types = {"pca9548", "registers", "at24c512"};
    for (const auto &device : board.devices) {
        size_t depth = 0;
        for (int at = device.parent; at >= 0; at = board.devices[static_cast<size_t>(at)].parent) {
            depth++;
        }
        ASSERT_LE(depth, 2U);
        for (size_t type = 0; type < types.size(); type++) {
            seen[type][depth] = seen[type][depth] || device.type == types[type];
        }
    }
    for (size_t depth = 0; depth < 3; depth++) {
        EXPECT_TRUE(seen[1][depth] && seen[2][depth]) << depth;
    }
    EXPECT_TRUE(seen[0][0] && seen[0][1]);
}

TEST(Description, ReadsEveryKey)
{
    std::vector<DescriptionError> errors;
    const BoardDescription board = simboard::parse_board_description(R"({
  "name": "full", "speed": "100k",
  "buses": [
    { "bus": "0x2", "speed": "instant" },
    { "bus": 4, "devices": [
      { "name": "s", "type": "pca9548", "address": 112, "channels": { "5": [
        { "name": "e", "type": "at24c512", "address": "0x50", "busy_after_write": false } ] } },
      { "name": "r", "type": "registers", "address": "33" } ] } ] })",
                                                                     errors);
    ASSERT_TRUE(errors.empty()) << simboard::to_string("", errors[0]);
    EXPECT_EQ(board.name, "full");
    EXPECT_EQ(board.buses, (std::vector<uint32_t>{2, 4}));
    EXPECT_EQ(board.bit_ns, (std::vector<uint32_t>{0, 10'000}));
    ASSERT_EQ(board.devices.size(), 3U);
    EXPECT_EQ(board.devices[0].address, 0x70);
    EXPECT_EQ(board.devices[1].parent, 0);
    EXPECT_EQ(board.devices[1].channel, 5U);
    EXPECT_FALSE(board.devices[1].busy_after_write);
    EXPECT_EQ(board.devices[2].address, 33);
    EXPECT_EQ(board.devices[2].parent, -1);
    EXPECT_EQ(board.devices[2].line, 8U);
}

TEST(Description, TheExampleOfTheManualIsOne)
{
    std::string text;
    ASSERT_TRUE(simboard::read_text_file(BOARD_FILE_MANUAL, text));
    const size_t start = text.find("```json\n") + 8;
    const std::string example = text.substr(start, text.find("```", start) - start);
    std::vector<DescriptionError> errors;
    const BoardDescription board = simboard::parse_board_description(example, errors);
    ASSERT_TRUE(errors.empty()) << simboard::to_string("", errors[0]);
    EXPECT_EQ(board.devices.size(), 6U);
}

// A board of one bus with these devices, each row of them on a line of its own from line 2 on.
std::string with_devices(const std::string &devices)
{
    return "{\"name\":\"t\",\"buses\":[{\"bus\":0,\"devices\":[\n" + devices + "\n]}]}";
}

TEST(Description, TellsEveryMistakeWithLineAndKey)
{
    const std::string first = R"({"name":"a","type":"registers","address":"0x20"},)"
                              "\n";
    const std::string sw = R"({"name":"s","type":"pca9548","address":"0x70","channels":{)"
                           "\n";
    const struct {
        std::string text;
        const char *report;
    } rows[] = {
        {"{\n\"name\": \"x\",\n}", "b:3: not valid JSON: Missing '}' or object member name\n"},
        {"", "b:1: not valid JSON: Syntax error: value, object or array expected.\n"},
        {"{\"name\":\"x\",\n\"name\":\"y\",\"buses\":[{\"bus\":1},\n{\"bus\":2,\n\"bus\":2,\"a\\\"]"
         "\":0}]}",
         "b:2: name: is there twice\n"
         "b:4: buses[1].bus: is there twice\n"
         "b:4: buses[1].a\"]: unknown key\n"},
        {"[]", "b:1: must be an object\n"},
        {"{}", "b:1: name: is missing\nb:1: buses: is missing\n"},
        {"{\"name\":3,\n\"buses\":[],\n\"color\":1,\n\"speed\":\"fast\"}",
         "b:1: name: must be a text that is not empty\n"
         "b:2: buses: must be a list of at least one bus\n"
         "b:3: color: unknown key\n"
         "b:4: speed: must be \"instant\", \"100k\" or \"400k\"\n"},
        {"{\"name\":\"x\",\"buses\":[\n{\"bus\":16},\n{\"bus\":3},\n{\"bus\":3},\n7,\n"
         "{\"bus\":-1},\n{\"bus\":\"5x\"},\n{\"bus\":1.5},\n{\"devices\":{}}]}",
         "b:2: buses[0].bus: must be a number from 0 to 15\n"
         "b:4: buses[2].bus: bus 3 is already described\n"
         "b:5: buses[3]: must be an object\n"
         "b:6: buses[4].bus: must be a number from 0 to 15\n"
         "b:7: buses[5].bus: must be a number from 0 to 15\n"
         "b:8: buses[6].bus: must be a number from 0 to 15\n"
         "b:9: buses[7].bus: is missing\n"
         "b:9: buses[7].devices: must be a list of devices\n"},
        {with_devices(
             first +
             "{\"name\":\"9x\",\"type\":\"registers\",\n\"address\":\"0x80\"},\n{\"name\":\"\"}"),
         "b:3: buses[0].devices[1].name: must start with a letter and hold letters, digits, '-', "
         "'_' "
         "and '.', at most 63\n"
         "b:4: buses[0].devices[1].address: must be a number from 0x08 to 0x77, a 7-bit address\n"
         "b:5: buses[0].devices[2].name: must be a text that is not empty\n"
         "b:5: buses[0].devices[2].type: is missing\n"
         "b:5: buses[0].devices[2].address: is missing\n"},
        {with_devices(first + R"({"name":"a","type":"at24c512",)"
                              "\n"
                              R"("address":32})"),
         "b:3: buses[0].devices[1].name: \"a\" is already taken (line 2)\n"
         "b:4: buses[0].devices[1].address: 0x20 is already the address of \"a\" (line 2) on this "
         "segment\n"},
        {with_devices(first + sw +
                      R"("0":[{"name":"b","type":"registers","address":"0x20"}],)"
                      "\n"
                      R"("7":[{"name":"c","type":"registers","address":"0x70"}]}})"),
         "b:4: buses[0].devices[1].channels.0[0].address: 0x20 is also the address of \"a\" (line "
         "2), "
         "upstream on the same path\n"
         "b:5: buses[0].devices[1].channels.7[0].address: 0x70 is also the address of \"s\" (line "
         "3), "
         "upstream on the same path\n"},
        {with_devices(sw + R"("0":[{"name":"b","type":"registers","address":"0x20"}]}},)"
                           "\n"
                           R"({"name":"a","type":"registers","address":"0x20"})"),
         "b:4: buses[0].devices[1].address: 0x20 is also the address of \"b\" (line 3), downstream "
         "of "
         "this segment\n"},
        {with_devices(sw + R"("8":[],)"
                           "\n"
                           R"("x":[],)"
                           "\n"
                           R"("1":{}}})"),
         "b:3: buses[0].devices[0].channels.8: a channel is a number from 0 to 7\n"
         "b:4: buses[0].devices[0].channels.x: a channel is a number from 0 to 7\n"
         "b:5: buses[0].devices[0].channels.1: must be a list of devices\n"},
        {with_devices(R"({"name":"a","type":"registers","address":"0x20","channels":{},)"
                      "\n"
                      R"("busy_after_write":true},)"
                      "\n"
                      R"({"name":"e","type":"at24c512","address":"0x50","busy_after_write":1})"),
         "b:2: buses[0].devices[0].channels: only a pca9548 has channels\n"
         "b:3: buses[0].devices[0].busy_after_write: only an at24c512 is busy after a write\n"
         "b:4: buses[0].devices[1].busy_after_write: must be true or false\n"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(report(row.text), row.report) << row.text;
    }
}

TEST(Description, AnUnknownTypeIsToldWithTheKnownOnes)
{
    const std::string told = report(with_devices(R"({"name":"a","type":"lamp","address":"0x20"})"));
    EXPECT_EQ(told.compare(0, 41, "b:2: buses[0].devices[0].type: must be \"p"), 0) << told;
    for (const char *type : {"\"pca9548\"", "\"registers\"", "\"at24c512\""}) {
        EXPECT_NE(told.find(type), std::string::npos) << type;
    }
}

TEST(Description, SameAddressOnSiblingChannelsIsNoMistake)
{
    EXPECT_EQ(report(with_devices(
                  R"({"name":"s","type":"pca9548","address":"0x70","channels":{
                     "0":[{"name":"b","type":"registers","address":"0x20"}],
                     "1":[{"name":"c","type":"registers","address":"0x20"}]}})")),
              "");
}

TEST(Description, RoomIsLimited)
{
    std::string devices;
    for (int channel = 0; channel < 8; channel++) {
        devices += channel == 0 ? "\"" : ",\"";
        devices += std::to_string(channel) + "\":[";
        for (int i = 0; i < 16; i++) {
            devices += (i == 0 ? "" : ",") + std::string(R"({"name":"d)") +
                       std::to_string(channel * 16 + i) + R"(","type":"registers","address":)" +
                       std::to_string(0x20 + i) + "}";
        }
        devices += "]";
    }
    // 128 devices and their switch are one too many.
    EXPECT_NE(report(with_devices(R"({"name":"s","type":"pca9548","address":"0x70","channels":{)" +
                                  devices + "}}"))
                  .find("too many devices"),
              std::string::npos);
}

TEST(Description, NestingWithoutEndIsRefused)
{
    EXPECT_NE(report(std::string(100'000, '[')).find("not valid JSON"), std::string::npos);
}

TEST(Description, FilesThatCannotBeRead)
{
    const struct {
        const char *path;
        const char *report;
    } rows[] = {
        {"/nonexistent/board.json",
         "/nonexistent/board.json: cannot be read: No such file or directory"},
        {"/dev", "/dev: cannot be read: Is a directory"},
    };
    for (const auto &row : rows) {
        std::vector<DescriptionError> errors;
        simboard::load_board_description(row.path, errors);
        ASSERT_EQ(errors.size(), 1U);
        EXPECT_EQ(simboard::to_string(row.path, errors[0]), row.report);
    }
}

} // namespace
