// The SMBus commands: what each sends, what it hands back, what it refuses, and that it writes
// nothing else.
#include "tests/unit/transfer_model.h"

#include <gtest/gtest.h>

using namespace scripted;
using model::Fault;
using model::Story;

namespace
{

const ei2c_client device = {7, 0x2a, QELI2C_CLIENT_PEC, 0, 0, "node"};
constexpr uint8_t guard = 0xee;

Bytes counted(size_t count, size_t shown_as, uint8_t first = 1)
{
    Bytes area = {static_cast<uint8_t>(shown_as)};
    for (size_t i = 0; i < count; ++i)
        area.push_back(static_cast<uint8_t>(first + i));
    return area;
}

Bytes outgoing(
    size_t length) // as a caller has them: the exact length, so that a sanitizer sees one byte more
{
    Bytes bytes = counted(length, 0);
    bytes.erase(bytes.begin());
    return bytes;
}

// The one locked transaction a command is, on a bus that is ready.
Story transaction(unsigned direction, unsigned command, unsigned size, const Bytes &area,
                  const Bytes &reply = {}, bool locked = true)
{
    warm_up(device.bus);
    ui2c_to_client(device.bus, device.addr, device.swi_addr, device.swi_chnl);
    Story story = {device.bus};
    if (locked)
        model::take(story);
    model::smbus(story, device, direction, command, size, area, {}, reply);
    if (locked)
        model::release(story);
    return story;
}

TEST(Command, SendsItsAreaAndNothingElse)
{
    const Bytes long_block = outgoing(300);
    const Bytes block = outgoing(5);
    const struct {
        const char *what;
        unsigned command, size;
        Bytes area;
        std::function<int32_t()> run;
        bool locked = true;
    } rows[] = {
        {"write_byte", 0x5a, 1, {}, [] { return ei2c_smbus_write_byte(&device, 0x5a); }},
        {"write_byte_data",
         7,
         2,
         {0x9c},
         [] { return ei2c_smbus_write_byte_data(&device, 7, 0x9c); }},
        {"write_byte_data_without_lock",
         7,
         2,
         {0x9c},
         [] { return ei2c_smbus_write_byte_data_without_lock(&device, 7, 0x9c); },
         false},
        {"write_word_data",
         7,
         3,
         {0x34, 0x12},
         [] { return ei2c_smbus_write_word_data(&device, 7, 0x1234); }},
        {"write_block_data", 7, 5, counted(5, 5),
         [&] { return ei2c_smbus_write_block_data(&device, 7, 5, block.data()); }},
        {"write_block_data, 300 bytes", 7, 5, counted(253, 253),
         [&] { return ei2c_smbus_write_block_data(&device, 7, 300, long_block.data()); }},
        {"write_block_data, length of all ones", 7, 5, counted(253, 253),
         [&] { return ei2c_smbus_write_block_data(&device, 7, 0xffffffff, long_block.data()); }},
        {"write_block_data, nothing",
         7,
         5,
         {0},
         [] { return ei2c_smbus_write_block_data(&device, 7, 0, nullptr); }},
        {"write_i2c_block_data", 7, 8, counted(5, 5),
         [&] { return ei2c_smbus_write_i2c_block_data(&device, 7, 5, block.data()); }},
        {"write_i2c_block_data, 254 bytes", 7, 8, counted(253, 253),
         [&] { return ei2c_smbus_write_i2c_block_data(&device, 7, 254, long_block.data()); }},
        {"write_i2c_block_data, nothing",
         7,
         8,
         {0},
         [] { return ei2c_smbus_write_i2c_block_data(&device, 7, 0, nullptr); }},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        const Story story = transaction(0, row.command, row.size, row.area, {}, row.locked);
        EXPECT_PLAY(0, row.run(), story.script);
        EXPECT_EQ(allocations(), 0U);
    }
}

// A command that reads into a buffer of the test, as rows below run it.
struct Reading {
    const char *what;
    unsigned command, size;
    Bytes sent, reply;
    std::function<int32_t(uint8_t *)> run;
    Bytes received; // what the buffer then starts with; the rest keeps its guard bytes
    bool locked = true;
};

std::vector<Reading> readings()
{
    static const Bytes request = outgoing(300);
    static uint8_t count;
    const auto block = [](uint8_t *buffer) {
        count = guard;
        const int32_t result = ei2c_smbus_read_block_data(&device, 9, &count, buffer + 1);
        buffer[0] = count;
        return result;
    };
    const auto call = [](uint32_t length, uint8_t *buffer) {
        count = guard;
        const int32_t result = ei2c_smbus_read_block_proc_call_data(
            &device, 9, length == 0 ? nullptr : request.data(), length, buffer + 1, &count);
        buffer[0] = count;
        return result;
    };
    const auto word = [](uint8_t *buffer) {
        uint16_t value = 0xeeee;
        const int32_t result = ei2c_smbus_read_word_data(&device, 9, &value);
        buffer[0] = static_cast<uint8_t>(value >> 8);
        buffer[1] = static_cast<uint8_t>(value);
        return result;
    };
    return {
        {"read_byte",
         0,
         1,
         {},
         {0x81},
         [](uint8_t *b) { return ei2c_smbus_read_byte(&device, b); },
         {0x81}},
        {"read_byte_data",
         9,
         2,
         {},
         {0x81, 7},
         [](uint8_t *b) { return ei2c_smbus_read_byte_data(&device, 9, b); },
         {0x81}},
        {"read_byte_data_without_lock",
         9,
         2,
         {},
         {0x81, 7},
         [](uint8_t *b) { return ei2c_smbus_read_byte_data_without_lock(&device, 9, b); },
         {0x81},
         false},
        {"read_word_data", 9, 3, {}, {0x34, 0x12}, word, {0x12, 0x34}},
        {"read_block_data", 9, 5, {}, counted(32, 32), block, counted(32, 32)},
        {"read_block_data, nothing", 9, 5, {}, {0, 1, 2}, block, {0}},
        {"qel_read_block_data, more than wanted",
         9,
         5,
         {},
         counted(10, 10),
         [](uint8_t *b) { return qel_ei2c_smbus_read_block_data(&device, 9, 4, b); },
         counted(4, 10)},
        {"qel_read_block_data, less than wanted",
         9,
         5,
         {},
         counted(10, 2),
         [](uint8_t *b) { return qel_ei2c_smbus_read_block_data(&device, 9, 0xffffffff, b); },
         counted(2, 2)},
        {"qel_read_block_data, count of 255",
         9,
         5,
         {},
         counted(255, 255),
         [](uint8_t *b) { return qel_ei2c_smbus_read_block_data(&device, 9, 300, b); },
         counted(255, 255)},
        {"qel_read_block_data, none wanted",
         9,
         5,
         {},
         counted(10, 10),
         [](uint8_t *b) { return qel_ei2c_smbus_read_block_data(&device, 9, 0, b); },
         {10}},
        {"read_block_proc_call_data", 9, 7, counted(3, 3), counted(32, 32, 0x60),
         [call](uint8_t *b) { return call(3, b); }, counted(32, 32, 0x60)},
        {"read_block_proc_call_data, nothing both ways",
         9,
         7,
         {0},
         {0, 9},
         [call](uint8_t *b) { return call(0, b); },
         {0}},
        {"read_block_proc_call_data, 253 bytes sent",
         9,
         7,
         counted(253, 253),
         {1, 9},
         [call](uint8_t *b) { return call(253, b); },
         {1, 9}},
        {"read_block_proc_call_data, 254 bytes cut",
         9,
         7,
         counted(253, 253),
         {1, 9},
         [call](uint8_t *b) { return call(254, b); },
         {1, 9}},
    };
}

TEST(Command, HandsBackWhatTheDeviceSent)
{
    for (const Reading &row : readings()) {
        SCOPED_TRACE(row.what);
        const Story story = transaction(1, row.command, row.size, row.sent, row.reply, row.locked);
        Bytes expected(320, guard);
        std::copy(row.received.begin(), row.received.end(), expected.begin());
        Bytes buffer(320, guard);
        EXPECT_PLAY(0, row.run(buffer.data()), story.script);
        EXPECT_EQ(buffer, expected);
        EXPECT_EQ(allocations(), 0U);
    }
}

TEST(Command, ThatFailsLeavesTheBufferAlone)
{
    for (const Reading &row : readings()) {
        SCOPED_TRACE(row.what);
        warm_up(device.bus);
        Story story = {device.bus};
        if (row.locked)
            model::take(story);
        const auto outcome = model::switched_loop(
            story, device, std::vector<model::Try>(4, {false, false, 1, false, false}),
            "ui2c_smbus_xfer", [&](Story &s, int, const Fault &fault) {
                return model::smbus(s, device, 1, row.command, row.size, row.sent, fault,
                                    row.reply);
            });
        if (row.locked)
            model::release(story);
        Bytes buffer(320, guard);
        EXPECT_PLAY(outcome.result, row.run(buffer.data()), story.script);
        EXPECT_EQ(errno, outcome.error);
        EXPECT_EQ(buffer, Bytes(320, guard));
    }
}

TEST(BlockCount, AboveThirtyTwoIsRefused)
{
    for (const unsigned count : {33U, 255U}) {
        Bytes values(300, guard);
        uint8_t length = guard;
        const auto line = [&](const char *function) {
            return Event{
                printed("Runtime_DbgOut 135 [libi2c_qelifc][%s #] read smbus data error, length "
                        "= %u, cmd = 0x9\n",
                        function, count)};
        };
        Story read = transaction(1, 9, 5, {}, counted(200, count));
        read.script += line("ei2c_smbus_read_block_data");
        EXPECT_PLAY(-1, ei2c_smbus_read_block_data(&device, 9, &length, values.data()),
                    read.script);
        Story call = transaction(1, 9, 7, {0}, counted(200, count));
        call.script += line("ei2c_smbus_read_block_proc_call_data");
        EXPECT_PLAY(
            -1,
            ei2c_smbus_read_block_proc_call_data(&device, 9, nullptr, 0, values.data(), &length),
            call.script);
        EXPECT_EQ(length, guard);
        EXPECT_EQ(values, Bytes(300, guard));
    }
}

TEST(Command, ReportsAMissingBufferOnceThereIsSomethingToPutThere)
{
    const auto check = [](Story story, const char *function, const char *argument) {
        return story.script += argument_check("libi2c_qelifc", function, argument);
    };
    uint8_t length = guard;
    const auto read = [&] { return ei2c_smbus_read_block_data(&device, 9, &length, nullptr); };
    const auto call = [&] {
        return ei2c_smbus_read_block_proc_call_data(&device, 9, nullptr, 0, nullptr, &length);
    };
    EXPECT_PLAY(-1, read(),
                check(transaction(1, 9, 5, {}, {2, 1, 2}), "ei2c_smbus_read_block_data", "values"));
    EXPECT_PLAY(-1, call(),
                check(transaction(1, 9, 7, {0}, {2, 1, 2}), "ei2c_smbus_read_block_proc_call_data",
                      "read_buf"));
    EXPECT_EQ(length, guard);
    EXPECT_PLAY(0, read(), transaction(1, 9, 5, {}, {0}).script);
    EXPECT_EQ(length, 0);
    EXPECT_PLAY(0, call(), transaction(1, 9, 7, {0}, {0}).script);
    EXPECT_PLAY(-1, qel_ei2c_smbus_read_block_data(&device, 9, 0, nullptr),
                check(transaction(1, 9, 5, {}, {0}), "qel_ei2c_smbus_read_block_data",
                      "values")); // the count byte always goes there
}

TEST(WriteThenReadMctp, SendsABlockAndHandsTheResponseThrough)
{
    warm_up(device.bus);
    const Bytes request = outgoing(300);
    for (const auto &[length, cut] : {std::pair(4U, 4U), {300U, 253U}, {0U, 0U}}) {
        Bytes response(8, guard);
        uint32_t read = 99;
        Story story = transaction(0, 9, 5, counted(cut, cut), {}, false);
        story.script += read_mctp(61, 3, 0, {7, 8, 9});
        const uint32_t sent = length;
        EXPECT_PLAY(3,
                    ei2c_smbus_wtrd_block_data(&device, 61, 9, sent,
                                               sent == 0 ? nullptr : request.data(),
                                               response.data(), &read, 0),
                    story.script);
        EXPECT_EQ(read, 3U);
        EXPECT_EQ(response, Bytes({7, 8, 9, guard, guard, guard, guard, guard}));
    }
    uint32_t read = 99;
    EXPECT_PLAY(0, ei2c_smbus_wtrd_block_data(&device, 61, 9, 1, request.data(), nullptr, &read, 1),
                transaction(0, 9, 5, {1, 1}, {}, false).script);
    EXPECT_EQ(read, 0U);
}

TEST(WriteThenReadI2c, IsOneCombinedTransferWithTheClientsFlags)
{
    const struct {
        uint32_t write, read;
        bool fails;
    } rows[] = {{2, 3, false},
                {0, 3, false},
                {2, 0, false},
                {253, 253, false},
                {2, 3, true},
                {254, 300, false},
                {0xffffffff, 0xffffffff, false}};
    warm_up(device.bus);
    const Bytes request = outgoing(300);
    for (const auto &row : rows) {
        SCOPED_TRACE(printed("write %u read %u", row.write, row.read));
        const auto written = static_cast<uint16_t>(std::min(row.write, 253U));
        const auto read = static_cast<uint16_t>(std::min(row.read, 253U));
        Bytes sent = request;
        sent.resize(written);
        Bytes first = sent;
        first.resize(sent.size() + 1); // the traced byte: 0 in an empty send buffer
        i2c_msg msgs[] = {{0x2a, QELI2C_CLIENT_PEC, written, first.data()},
                          {0x2a, QELI2C_CLIENT_PEC | I2C_M_RD, read, nullptr}};
        const auto model = [&](Story &story, int, const Fault &fault) {
            return model::rdwr(story, 0x2a, msgs, 2, fault, Bytes(read, 0x66));
        };
        Story story = {device.bus};
        model::take(story);
        const auto outcome = model::switched_loop(
            story, device,
            std::vector<model::Try>(row.fails ? 4 : 1, {false, false, row.fails, false, false}),
            "ui2c_rdwr_xfer", model);
        model::release(story);
        Bytes expected(320, guard);
        if (!row.fails)
            std::fill_n(expected.begin(), read, 0x66);
        Bytes buffer(320, guard);
        EXPECT_PLAY(outcome.result,
                    ei2c_smbus_read_i2c_block_data(
                        &device, row.write, row.write == 0 ? nullptr : request.data(), row.read,
                        row.read == 0 ? nullptr : buffer.data()),
                    story.script);
        EXPECT_EQ(buffer, expected);
        EXPECT_EQ(allocations(), 0U);
    }
}

TEST(WriteThenReadI2c, ReportsAMissingBufferAfterTheTransfer)
{
    warm_up(device.bus);
    uint8_t offset = 4;
    i2c_msg msgs[] = {{0x2a, QELI2C_CLIENT_PEC, 1, &offset},
                      {0x2a, QELI2C_CLIENT_PEC | I2C_M_RD, 2, nullptr}};
    Story story = {device.bus};
    model::take(story);
    model::rdwr(story, 0x2a, msgs, 2, {}, {1, 2});
    model::release(story);
    story.script += argument_check("libi2c_qelifc", "ei2c_smbus_read_i2c_block_data", "read_buf");
    EXPECT_PLAY(-1, ei2c_smbus_read_i2c_block_data(&device, 1, &offset, 2, nullptr), story.script);
}

} // namespace
