// What people type: numbers, device paths and raw messages; each table row is one thing typed.
#include "tools/qeli2c/device_path.h"
#include "tools/qeli2c/failure.h"
#include "tools/qeli2c/messages.h"
#include "tools/qeli2c/number.h"

#include <gtest/gtest.h>

using namespace tool;

namespace
{

// The message of the usage error that `attempt` ends in; empty when it does not.
template <typename Attempt>
std::string refusal(Attempt attempt)
{
    try {
        attempt();
    } catch (const Failure &failure) {
        EXPECT_EQ(failure.status, EXIT_USAGE);
        return failure.message;
    }
    return "";
}

TEST(Number, IsReadInThreeBases)
{
    const struct {
        const char *text;
        std::optional<uint32_t> value;
    } rows[] = {
        {"0", 0},
        {"010", 10},
        {"255", 255},
        {"0x1F", 0x1f},
        {"0Xff", 0xff},
        {"0b101", 5},
        {"0xffffffff", 0xffffffff},
        {"4294967295", 4294967295},
        {"4294967296", {}},
        {"0x100000000", {}},
        {"", {}},
        {"0x", {}},
        {"0b", {}},
        {"0b2", {}},
        {"-1", {}},
        {"+1", {}},
        {" 1", {}},
        {"1 ", {}},
        {"12z", {}},
        {"ff", {}},
        {"0x-1", {}},
    };
    for (const auto &row : rows)
        EXPECT_EQ(parse_number(row.text), row.value) << "'" << row.text << "'";
}

TEST(DevicePath, NamesUpToTwoSwitches)
{
    const struct {
        const char *text;
        const char *canonical;
        uint32_t swi_addr, swi_chnl;
    } rows[] = {
        {"4/0x50", "4/0x50", 0, 0},
        {"0xf/119", "15/0x77", 0, 0},
        {"0/0x71.0/0x08", "0/0x71.0/0x08", 0x71, 0},
        {"4/0x70.7/0b1010000", "4/0x70.7/0x50", 0x70, 7},
        {"4/0x70.5/0x71.3/0x50", "4/0x70.5/0x71.3/0x50", 0x00700071, 0x00050003},
    };
    for (const auto &row : rows) {
        const DevicePath path = parse_device_path(row.text);
        EXPECT_EQ(to_string(path), row.canonical);
        const ei2c_client client = to_client(path);
        EXPECT_EQ(client.bus, path.bus) << row.text;
        EXPECT_EQ(client.addr, path.address) << row.text;
        EXPECT_EQ(client.swi_addr, row.swi_addr) << row.text;
        EXPECT_EQ(client.swi_chnl, row.swi_chnl) << row.text;
        EXPECT_EQ(client.flags, 0) << row.text;
    }
}

TEST(DevicePath, IsRefusedWithTheReason)
{
    const struct {
        const char *text, *reason;
    } rows[] = {
        {"16/0x50", "bus 16 is out of range: 0 to 15"},
        {"x/0x50", "bus 'x' is not a number"},
        {"4", "a bus, not a device"},
        {"", "bus '' is not a number"},
        {"4/", "address '' is not a number"},
        {"4//0x50", "has no channel"},
        {"4/0x80", "address 0x80 is out of range"},
        {"4/0x07", "address 0x07 is out of range"},
        {"4/0x78", "address 0x78 is out of range"},
        {"4/0x70.8/0x50", "channel of switch 0x70: 8 is out of range: 0 to 7"},
        {"4/0x70./0x50", "channel of switch 0x70: '' is not a number"},
        {"4/0x80.1/0x50", "switch address 0x80 is out of range"},
        {"4/0x70/0x50", "has no channel"},
        {"4/0x70.5", "ends at a switch channel"},
        {"4/0x70.5/0x71.3/0x72.1/0x50", "at most two switches"},
        {"4/0x50 ", "is not a number"},
    };
    for (const auto &row : rows) {
        const std::string message = refusal([&row] { parse_device_path(row.text); });
        EXPECT_NE(message.find(row.reason), std::string::npos) << row.text << ": " << message;
        EXPECT_NE(message.find(std::string("'") + row.text + "'"), std::string::npos) << message;
    }
}

// "w1020 r3": what a list of messages amounts to.
std::string summary(const std::vector<Message> &messages)
{
    std::string text;
    for (const Message &message : messages) {
        text += text.empty() ? "" : " ";
        if (message.read)
            text += "r" + std::to_string(message.bytes.size());
        else
            text += "w";
        for (const uint8_t byte : message.bytes)
            text += message.read ? "" : hex(byte, 2).substr(2);
    }
    return text;
}

TEST(Messages, AreWritesWithBytesAndReadsWithLengths)
{
    const struct {
        std::vector<std::string> words;
        const char *summary;
    } rows[] = {
        {{"r4"}, "r4"},
        {{"r0x10"}, "r16"},
        {{"r8192"}, "r8192"},
        {{"w", "0x10", "32"}, "w1020"},
        {{"w2", "0x10", "0b1", "r4"}, "w1001 r4"},
        {{"w", "1", "w", "2", "r1", "r2", "w1", "3"}, "w01 w02 r1 r2 w03"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(summary(parse_messages(row.words)), row.summary);
    EXPECT_EQ(parse_messages(std::vector<std::string>(42, "r1")).size(), 42U);
}

TEST(Messages, AreRefusedWithTheReason)
{
    const struct {
        std::vector<std::string> words;
        const char *reason;
    } rows[] = {
        {{}, "no message"},
        {{"0x10"}, "'0x10' is no message"},
        {{"r4", "0x10"}, "'0x10' is no message"},
        {{"r"}, "needs a length"},
        {{"r0"}, "length of message 'r0': 0 is out of range"},
        {{"r8193"}, "out of range"},
        {{"rx"}, "is not a number"},
        {{"w"}, "'w' has no bytes"},
        {{"w", "r4"}, "'w' has no bytes"},
        {{"w3", "1", "2"}, "'w3' is followed by 2 bytes"},
        {{"w1", "1", "2", "r1"}, "'w1' is followed by 2 bytes"},
        {{"w", "0x100"}, "byte 0x100 is out of range"},
        {{"w", "zz"}, "byte 'zz' is not a number"},
        {std::vector<std::string>(43, "r1"), "43 messages"},
    };
    for (const auto &row : rows) {
        const std::string message = refusal([&row] { parse_messages(row.words); });
        EXPECT_NE(message.find(row.reason), std::string::npos) << row.reason << ": " << message;
    }
}

} // namespace
