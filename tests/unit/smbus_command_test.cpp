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

// As a caller has them: the exact length, so that a sanitizer sees one byte more.
Bytes outgoing(size_t length)
{
    Bytes bytes = counted(length, 0);
    bytes.erase(bytes.begin());
    return bytes;
}

// Afterwards neither the bus nor the device is new to the process.
void make_known()
{
    warm_up(device.bus);
    ui2c_to_client(device.bus, device.addr, device.swi_addr, device.swi_chnl);
}

// The one locked transaction a command is.
Story transaction(unsigned direction, unsigned command, unsigned size, const Bytes &area,
                  const Bytes &reply = {}, bool locked = true)
{
    make_known();
    Story story = {device.bus};
    if (locked)
        model::take(story);
    model::smbus(story, device, direction, command, size, area, {}, reply);
    if (locked)
        model::release(story);
    return story;
}

int32_t read_word(uint8_t *buffer)
{
    uint16_t value = guard << 8 | guard;
    const int32_t result = ei2c_smbus_read_word_data(&device, 9, &value);
    buffer[0] = static_cast<uint8_t>(value >> 8);
    buffer[1] = static_cast<uint8_t>(value);
    return result;
}

struct Command {
    const char *what;
    unsigned direction, command, size;
    Bytes sent, reply,
        received; // received: how b then begins; the rest of it keeps its guard bytes
    std::function<int32_t(uint8_t *b)> run;
};
#define ROW(direction, command, size, sent, reply, received, call)                                 \
    {                                                                                              \
#call, direction, command, size, sent, reply, received,                                    \
            []([[maybe_unused]] uint8_t * b) { return call; }                                      \
    }

const Bytes none;
const Bytes zero = {0};
const Bytes five = outgoing(5);
const Bytes many = outgoing(300);
const Bytes ten = counted(10, 10); // ten bytes, and a count that says so
const Bytes full = counted(32, 32);
const Bytes cut = counted(253, 253);
constexpr auto *write_block = ei2c_smbus_write_block_data;
constexpr auto *write_i2c_block = ei2c_smbus_write_i2c_block_data;
constexpr auto *read_counted_block = qel_ei2c_smbus_read_block_data;
constexpr auto *process_call = ei2c_smbus_read_block_proc_call_data;

const Command commands[] = {
    ROW(0, 0x5a, 1, none, none, none, ei2c_smbus_write_byte(&device, 0x5a)),
    ROW(0, 7, 2, Bytes{0x9c}, none, none, ei2c_smbus_write_byte_data(&device, 7, 0x9c)),
    ROW(0, 7, 2, Bytes{0x9c}, none, none,
        ei2c_smbus_write_byte_data_without_lock(&device, 7, 0x9c)),
    ROW(0, 7, 3, Bytes({0x34, 0x12}), none, none, ei2c_smbus_write_word_data(&device, 7, 0x1234)),
    ROW(0, 7, 5, counted(5, 5), none, none, write_block(&device, 7, 5, five.data())),
    ROW(0, 7, 5, cut, none, none, write_block(&device, 7, 300, many.data())),
    ROW(0, 7, 5, cut, none, none, write_block(&device, 7, 0xffffffff, many.data())),
    ROW(0, 7, 5, zero, none, none, write_block(&device, 7, 0, nullptr)),
    ROW(0, 7, 8, counted(5, 5), none, none, write_i2c_block(&device, 7, 5, five.data())),
    ROW(0, 7, 8, cut, none, none, write_i2c_block(&device, 7, 254, many.data())),
    ROW(0, 7, 8, zero, none, none, write_i2c_block(&device, 7, 0, nullptr)),
    ROW(1, 0, 1, none, Bytes{0x81}, Bytes{0x81}, ei2c_smbus_read_byte(&device, b)),
    ROW(1, 9, 2, none, Bytes{0x81}, Bytes{0x81}, ei2c_smbus_read_byte_data(&device, 9, b)),
    ROW(1, 9, 2, none, Bytes{0x81}, Bytes{0x81},
        ei2c_smbus_read_byte_data_without_lock(&device, 9, b)),
    ROW(1, 9, 3, none, Bytes({0x34, 0x12}), Bytes({0x12, 0x34}), read_word(b)),
    ROW(1, 9, 5, none, full, full, ei2c_smbus_read_block_data(&device, 9, b, b + 1)),
    ROW(1, 9, 5, none, zero, zero, ei2c_smbus_read_block_data(&device, 9, b, b + 1)),
    ROW(1, 9, 5, none, ten, counted(4, 10), read_counted_block(&device, 9, 4, b)),
    ROW(1, 9, 5, none, ten, ten, read_counted_block(&device, 9, 0xffffffff, b)),
    ROW(1, 9, 5, none, ten, Bytes{10}, read_counted_block(&device, 9, 0, b)),
    ROW(1, 9, 5, none, counted(255, 255), counted(255, 255),
        read_counted_block(&device, 9, 300, b)),
    ROW(1, 9, 7, counted(5, 5), full, full, process_call(&device, 9, five.data(), 5, b + 1, b)),
    ROW(1, 9, 7, zero, zero, zero, process_call(&device, 9, nullptr, 0, b + 1, b)),
    ROW(1, 9, 7, cut, ten, ten, process_call(&device, 9, many.data(), 253, b + 1, b)),
    ROW(1, 9, 7, cut, ten, ten, process_call(&device, 9, many.data(), 254, b + 1, b)),
};

bool takes_the_bus(const Command &row)
{
    return std::string(row.what).find("without_lock") == std::string::npos;
}

TEST(Command, SendsItsAreaAndHandsBackTheDevicesAnswer)
{
    for (const Command &row : commands) {
        SCOPED_TRACE(row.what);
        const Story story = transaction(row.direction, row.command, row.size, row.sent, row.reply,
                                        takes_the_bus(row));
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
    make_known();
    for (const Command &row : commands) {
        SCOPED_TRACE(row.what);
        const auto transfer = [&](Story &story, int, const Fault &fault) {
            return model::smbus(story, device, row.direction, row.command, row.size, row.sent,
                                fault, row.reply);
        };
        Story story = {device.bus};
        if (takes_the_bus(row))
            model::take(story);
        const auto outcome =
            model::switched_loop(story, device, std::vector<model::Try>(4, {false, false, 1}),
                                 "ui2c_smbus_xfer", transfer);
        if (takes_the_bus(row))
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
    make_known();
    for (const uint32_t length : {4U, 300U, 0U}) {
        const uint32_t sent = std::min(length, 253U);
        Bytes response(8, guard);
        uint32_t read = 99;
        Story story = transaction(0, 9, 5, counted(sent, sent), {}, false);
        story.script += read_mctp(61, 3, 0, {7, 8, 9});
        EXPECT_PLAY(3,
                    ei2c_smbus_wtrd_block_data(&device, 61, 9, length,
                                               length == 0 ? nullptr : many.data(), response.data(),
                                               &read, 0),
                    story.script);
        EXPECT_EQ(read, 3U);
        EXPECT_EQ(response, Bytes({7, 8, 9, guard, guard, guard, guard, guard}));
    }
    uint32_t read = 99;
    EXPECT_PLAY(0, ei2c_smbus_wtrd_block_data(&device, 61, 9, 1, many.data(), nullptr, &read, 1),
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
    make_known();
    for (const auto &row : rows) {
        SCOPED_TRACE(printed("write %u read %u", row.write, row.read));
        const auto written = static_cast<uint16_t>(std::min(row.write, 253U));
        const auto read = static_cast<uint16_t>(std::min(row.read, 253U));
        Bytes first(many.begin(), many.begin() + written);
        first.resize(written + 1U); // the traced byte: 0 in an empty send buffer
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
                    ei2c_smbus_read_i2c_block_data(&device, row.write,
                                                   row.write == 0 ? nullptr : many.data(), row.read,
                                                   row.read == 0 ? nullptr : buffer.data()),
                    story.script);
        EXPECT_EQ(buffer, expected);
        EXPECT_EQ(allocations(), 0U);
    }
}

TEST(WriteThenReadI2c, ReportsAMissingBufferAfterTheTransfer)
{
    make_known();
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
