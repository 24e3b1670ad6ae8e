// The requests of i2c-dev: what the kernel takes, refuses and puts on the wire.
#include <gtest/gtest.h>

#include "device.h"
#include "simboard/testing.h"

namespace
{

using simboard::testing::Board;
using simboard::testing::reference_board;
using Lines = std::vector<std::string>;

TEST(Request, LimitsOfAddressAndSettings)
{
    Board board(reference_board());
    const Device bus(7);
    const struct {
        unsigned long request;
        unsigned long argument;
        int result;
    } rows[] = {
        {I2C_SLAVE, 0x7f, 0},
        {I2C_SLAVE, 0x80, -EINVAL},
        {I2C_SLAVE_FORCE, 0x80, -EINVAL},
        {I2C_TENBIT, 1, 0},
        {I2C_SLAVE, 0x80, 0},
        {I2C_SLAVE, 0x3ff, 0},
        {I2C_SLAVE, 0x400, -EINVAL},
        {I2C_TENBIT, 0, 0},
        {I2C_PEC, 5, 0},
        {I2C_PEC, 0, 0},
        {I2C_RETRIES, 3, 0},
        {I2C_RETRIES, 0x80000000UL, -EINVAL},
        {I2C_TIMEOUT, 100, 0},
        {I2C_TIMEOUT, 0x80000000UL, -EINVAL},
        {I2C_FUNCS, 0, -EFAULT},
        {I2C_RDWR, 0, -EFAULT},
        {I2C_SMBUS, 0, -EFAULT},
        {0x0704 + 0x0a, 0, -ENOTTY}, // within the range, but no request
        {0x5401, 0, -ENOTTY},        // a terminal's
    };
    for (const auto &row : rows) {
        EXPECT_EQ(bus.request(row.request, row.argument), row.result)
            << std::hex << row.request << " " << row.argument;
    }
    EXPECT_TRUE(board.trace(7).empty());
}

TEST(Request, FunctionsCoverEveryTransaction)
{
    Board board(reference_board());
    const Device bus(7);
    unsigned long functions = 0;
    ASSERT_EQ(ioctl(bus.fd(), I2C_FUNCS, &functions), 0);
    const unsigned long needed = I2C_FUNC_I2C | I2C_FUNC_SMBUS_EMUL |
                                 I2C_FUNC_SMBUS_READ_BLOCK_DATA | I2C_FUNC_SMBUS_BLOCK_PROC_CALL |
                                 I2C_FUNC_SMBUS_PEC;
    EXPECT_EQ(functions & needed, needed);
}

TEST(CombinedTransfer, MessageCountAndLengthLimits)
{
    Board board(reference_board());
    const Device bus(7);
    Bytes big(8193, 0x11);
    const auto messages = [&](size_t count, uint16_t length) {
        return bus.transfer(std::vector<i2c_msg>(count, i2c_msg{0x30, 0, length, big.data()}));
    };
    EXPECT_EQ(messages(42, 1), 42);
    EXPECT_EQ(messages(43, 1), -EINVAL);
    EXPECT_EQ(messages(0, 0), -EINVAL);
    EXPECT_EQ(messages(1, 8192), 1);
    EXPECT_EQ(messages(1, 8193), -EINVAL);
    EXPECT_EQ(messages(42, 8192), 42);
    EXPECT_EQ(messages(1, 0), 1); // the address alone

    i2c_rdwr_ioctl_data none = {nullptr, 1};
    EXPECT_EQ(bus.request(I2C_RDWR, reinterpret_cast<unsigned long>(&none)), -EINVAL);
    EXPECT_EQ(bus.transfer({{0x30, 0, 1, nullptr}}), -EFAULT);
    EXPECT_EQ(bus.transfer({{0x30, 0, 0, nullptr}}), 1);
    EXPECT_EQ(bus.transfer({{0x30, 0, 1, nullptr}, {0x30, 0, 8193, big.data()}}), -EFAULT);
    EXPECT_EQ(bus.transfer({{0x30, 0, 8193, big.data()}, {0x30, 0, 1, nullptr}}), -EINVAL);
    EXPECT_EQ(board.totals(7).transfers, 5U); // what was refused never reached the wire
}

TEST(CombinedTransfer, FailureLeavesReadBuffersAlone)
{
    Board board(reference_board());
    const Device bus(7);
    Bytes pointer = {0};
    Bytes bytes = {0xde, 0xad};
    EXPECT_EQ(bus.transfer({{0x30, 0, 1, pointer.data()},
                            {0x30, I2C_M_RD, 2, bytes.data()},
                            {0x31, 0, 1, pointer.data()}}),
              -ENXIO);
    EXPECT_EQ(bytes, (Bytes{0xde, 0xad}));
    EXPECT_EQ(board.wire(7), (Lines{"W 0x30 00", "R 0x30 00 00", "W 0x31 NACK", "P ENXIO"}));
    EXPECT_EQ(bus.transfer({{0x31, I2C_M_RD, 2, bytes.data()}}), -ENXIO);
}

TEST(CombinedTransfer, ErrnoStaysOnSuccess)
{
    Board board(reference_board());
    const Device bus(7);
    Bytes byte = {0};
    i2c_msg message = {0x30, 0, 1, byte.data()};
    i2c_rdwr_ioctl_data data = {&message, 1};
    errno = EDOM;
    EXPECT_EQ(ioctl(bus.fd(), I2C_RDWR, &data), 1);
    EXPECT_EQ(ioctl(bus.fd(), I2C_SLAVE, 0x30), 0);
    EXPECT_EQ(errno, EDOM);
}

TEST(CombinedTransfer, ReceivedLength)
{
    Board board(reference_board());
    const Device bus(7);
    board.poke("scratch-registers", 0, {2, 0x0a, 0x0b, 0x0c});
    const auto receive = [&](uint8_t extra, uint16_t length, uint16_t flags, uint8_t from) {
        Bytes pointer = {from};
        Bytes bytes(64);
        bytes[0] = extra;
        const int result =
            bus.transfer({{0x30, 0, 1, pointer.data()}, {0x30, flags, length, bytes.data()}});
        return result < 0 ? std::make_pair(result, Bytes()) : std::make_pair(result, bytes);
    };
    const uint16_t flags = I2C_M_RD | I2C_M_RECV_LEN;
    EXPECT_EQ(receive(0, 33, flags, 0).first, -EINVAL);
    EXPECT_EQ(receive(1, 32, flags, 0).first, -EINVAL);
    EXPECT_EQ(receive(1, 33, I2C_M_RECV_LEN, 0).first, -EINVAL);
    const auto [result, bytes] = receive(2, 34, flags, 0);
    EXPECT_EQ(result, 2);
    EXPECT_EQ(Bytes(bytes.begin(), bytes.begin() + 5), (Bytes{2, 0x0a, 0x0b, 0x0c, 0}));
    EXPECT_EQ(board.wire(7).at(1), "R 0x30 02 0a 0b 0c");
    EXPECT_EQ(receive(1, 33, flags, 10).first, -EPROTO); // a count of 0
    board.poke("scratch-registers", 20, {33});
    EXPECT_EQ(receive(1, 33, flags, 20).first, -EPROTO);
}

TEST(CombinedTransfer, ProtocolMangling)
{
    Board board(reference_board());
    const Device bus(7);
    Bytes bytes = {0x10, 0x21, 0x32};
    EXPECT_EQ(bus.transfer({{0x30, 0, 2, bytes.data()}, {0x30, I2C_M_NOSTART, 1, &bytes[2]}}), 2);
    EXPECT_EQ(board.peek("scratch-registers", 0x10, 2), (Bytes{0x21, 0x32}));
    EXPECT_EQ(bus.transfer({{0x31, I2C_M_IGNORE_NAK, 1, bytes.data()}}), 1);
    Bytes ones = {0};
    EXPECT_EQ(bus.transfer({{0x31, I2C_M_IGNORE_NAK | I2C_M_RD, 1, ones.data()}}), 1);
    EXPECT_EQ(ones, Bytes{0xff}); // nobody pulls the line down
    // A STOP in the middle makes the EEPROM write what a repeated START would have dropped.
    Bytes page = {0, 0, 0x5a};
    EXPECT_EQ(bus.transfer({{0x50, I2C_M_STOP, 3, page.data()}, {0x30, 0, 1, bytes.data()}}), 2);
    EXPECT_EQ(board.peek("scratch-eeprom", 0), 0x5a);
    EXPECT_EQ(bus.transfer({{0x30, I2C_M_TEN, 1, bytes.data()}}), -ENXIO);
}

TEST(Smbus, ArgumentRules)
{
    Board board(reference_board());
    const Device bus(7);
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x30), 0);
    i2c_smbus_data block33 = {};
    block33.block[0] = 33;
    const struct {
        uint8_t read_write;
        uint32_t size;
        i2c_smbus_data *data;
        int result;
    } rows[] = {
        {I2C_SMBUS_WRITE, 9, &block33, -EINVAL},
        {2, I2C_SMBUS_BYTE_DATA, &block33, -EINVAL},
        {I2C_SMBUS_WRITE, I2C_SMBUS_QUICK, nullptr, 0},
        {I2C_SMBUS_WRITE, I2C_SMBUS_BYTE, nullptr, 0},
        {I2C_SMBUS_READ, I2C_SMBUS_BYTE, nullptr, -EINVAL},
        {I2C_SMBUS_WRITE, I2C_SMBUS_BYTE_DATA, nullptr, -EINVAL},
        {I2C_SMBUS_WRITE, I2C_SMBUS_BLOCK_DATA, &block33, -EINVAL},
        {I2C_SMBUS_WRITE, I2C_SMBUS_BLOCK_PROC_CALL, &block33, -EINVAL},
        {I2C_SMBUS_READ, I2C_SMBUS_I2C_BLOCK_DATA, &block33, -EINVAL},
        {I2C_SMBUS_WRITE, I2C_SMBUS_I2C_BLOCK_DATA, &block33, -EINVAL},
        {I2C_SMBUS_WRITE, I2C_SMBUS_I2C_BLOCK_BROKEN, &block33, -EINVAL},
        {I2C_SMBUS_READ, I2C_SMBUS_BLOCK_DATA, &block33, -EPROTO}, // register 0 counts 0 bytes
    };
    for (const auto &row : rows) {
        EXPECT_EQ(bus.smbus(row.read_write, 0, row.size, row.data), row.result)
            << int{row.read_write} << " " << row.size;
    }
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x31), 0);
    EXPECT_EQ(bus.smbus(I2C_SMBUS_READ, 0, I2C_SMBUS_QUICK, nullptr), -ENXIO);
}

struct Transaction {
    const char *name;
    bool pec;
    uint8_t read_write;
    uint32_t size;
    Bytes registers; // from 0x10 on when it starts
    Bytes data;      // handed in
    int result;
    Bytes expected; // handed out, as far as it is told
    Lines wire;
};

// All to device 0x30 with command 0x10. Packet error codes were computed apart from this project,
// over address, command and data bytes.
const Transaction TRANSACTIONS[] = {
    {"quick write", 0, 0, I2C_SMBUS_QUICK, {}, {}, 0, {}, {"W 0x30", "P"}},
    {"quick read", 0, 1, I2C_SMBUS_QUICK, {}, {}, 0, {}, {"R 0x30", "P"}},
    {"quick carries no PEC", 1, 0, I2C_SMBUS_QUICK, {}, {}, 0, {}, {"W 0x30", "P"}},

    {"send byte", 0, 0, I2C_SMBUS_BYTE, {}, {}, 0, {}, {"W 0x30 10", "P"}},
    {"send byte", 1, 0, I2C_SMBUS_BYTE, {}, {}, 0, {}, {"W 0x30 10 85", "P"}},
    {"write byte", 0, 0, I2C_SMBUS_BYTE_DATA, {}, {0xab}, 0, {}, {"W 0x30 10 ab", "P"}},
    {"write byte", 1, 0, I2C_SMBUS_BYTE_DATA, {}, {0xab}, 0, {}, {"W 0x30 10 ab ca", "P"}},
    {"write word", 0, 0, I2C_SMBUS_WORD_DATA, {}, {0xcd, 0xab}, 0, {}, {"W 0x30 10 cd ab", "P"}},
    {"write word", 1, 0, I2C_SMBUS_WORD_DATA, {}, {0xcd, 0xab}, 0, {}, {"W 0x30 10 cd ab ab", "P"}},

    {"read byte", 0, 1, I2C_SMBUS_BYTE_DATA, {3}, {}, 0, {3}, {"W 0x30 10", "R 0x30 03", "P"}},
    {"read byte",
     1,
     1,
     I2C_SMBUS_BYTE_DATA,
     {3, 0x1e},
     {},
     0,
     {3},
     {"W 0x30 10", "R 0x30 03 1e", "P"}},
    {"read byte, wrong PEC",
     1,
     1,
     I2C_SMBUS_BYTE_DATA,
     {3, 0x1f},
     {0x55},
     -EBADMSG,
     {0x55},
     {"W 0x30 10", "R 0x30 03 1f", "P EBADMSG"}},
    {"read word",
     0,
     1,
     I2C_SMBUS_WORD_DATA,
     {3, 0x61},
     {},
     0,
     {3, 0x61},
     {"W 0x30 10", "R 0x30 03 61", "P"}},
    {"read word",
     1,
     1,
     I2C_SMBUS_WORD_DATA,
     {3, 0x61, 0x7a},
     {},
     0,
     {3, 0x61},
     {"W 0x30 10", "R 0x30 03 61 7a", "P"}},
    {"process call",
     0,
     0,
     I2C_SMBUS_PROC_CALL,
     {0, 0, 0x62, 0x63},
     {0xcd, 0xab},
     0,
     {0x62, 0x63},
     {"W 0x30 10 cd ab", "R 0x30 62 63", "P"}},
    {"process call",
     1,
     0,
     I2C_SMBUS_PROC_CALL,
     {0, 0, 0x62, 0x63, 0xfb},
     {0xcd, 0xab},
     0,
     {0x62, 0x63},
     {"W 0x30 10 cd ab", "R 0x30 62 63 fb", "P"}},

    {"write block",
     0,
     0,
     I2C_SMBUS_BLOCK_DATA,
     {},
     {2, 0x71, 0x72},
     0,
     {},
     {"W 0x30 10 02 71 72", "P"}},
    {"write block",
     1,
     0,
     I2C_SMBUS_BLOCK_DATA,
     {},
     {2, 0x71, 0x72},
     0,
     {},
     {"W 0x30 10 02 71 72 f3", "P"}},
    {"write empty block", 0, 0, I2C_SMBUS_BLOCK_DATA, {}, {0}, 0, {}, {"W 0x30 10 00", "P"}},
    {"read block",
     0,
     1,
     I2C_SMBUS_BLOCK_DATA,
     {3, 0x61, 0x62, 0x63},
     {},
     0,
     {3, 0x61, 0x62, 0x63},
     {"W 0x30 10", "R 0x30 03 61 62 63", "P"}},
    {"read block",
     1,
     1,
     I2C_SMBUS_BLOCK_DATA,
     {3, 0x61, 0x62, 0x63, 0xd1},
     {},
     0,
     {3, 0x61, 0x62, 0x63},
     {"W 0x30 10", "R 0x30 03 61 62 63 d1", "P"}},
    {"read block counting 33",
     0,
     1,
     I2C_SMBUS_BLOCK_DATA,
     {33},
     {7},
     -EPROTO,
     {7},
     {"W 0x30 10", "R 0x30 21", "P EPROTO"}},
    {"block process call",
     0,
     0,
     I2C_SMBUS_BLOCK_PROC_CALL,
     {0, 0, 1, 0x77},
     {1, 2},
     0,
     {1, 0x77},
     {"W 0x30 10 01 02", "R 0x30 01 77", "P"}},
    {"block process call",
     1,
     0,
     I2C_SMBUS_BLOCK_PROC_CALL,
     {0, 0, 1, 0x77, 0xcd},
     {1, 2},
     0,
     {1, 0x77},
     {"W 0x30 10 01 02", "R 0x30 01 77 cd", "P"}},

    {"write I2C block",
     0,
     0,
     I2C_SMBUS_I2C_BLOCK_DATA,
     {},
     {2, 0x71, 0x72},
     0,
     {},
     {"W 0x30 10 71 72", "P"}},
    {"I2C block carries no PEC",
     1,
     0,
     I2C_SMBUS_I2C_BLOCK_DATA,
     {},
     {2, 0x71, 0x72},
     0,
     {},
     {"W 0x30 10 71 72", "P"}},
    {"read I2C block",
     0,
     1,
     I2C_SMBUS_I2C_BLOCK_DATA,
     {9, 8, 7},
     {2},
     0,
     {2, 9, 8},
     {"W 0x30 10", "R 0x30 09 08", "P"}},
    {"old write I2C block",
     0,
     0,
     I2C_SMBUS_I2C_BLOCK_BROKEN,
     {},
     {2, 0x71, 0x72},
     0,
     {},
     {"W 0x30 10 71 72", "P"}},
};

TEST(Smbus, EveryTransactionOnTheWire)
{
    Board board(reference_board());
    const Device bus(7);
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x30), 0);
    for (const Transaction &row : TRANSACTIONS) {
        SCOPED_TRACE(std::string(row.name) + (row.pec ? " with PEC" : ""));
        board.reset();
        board.poke("scratch-registers", 0x10, row.registers);
        ASSERT_EQ(bus.request(I2C_PEC, row.pec ? 1 : 0), 0);
        i2c_smbus_data data = {};
        std::copy(row.data.begin(), row.data.end(), data.block);
        EXPECT_EQ(bus.smbus(row.read_write, 0x10, row.size, &data), row.result);
        EXPECT_EQ(Bytes(data.block, data.block + row.expected.size()), row.expected);
        EXPECT_EQ(board.wire(7), row.wire);
    }
}

TEST(Smbus, OldReadI2cBlockAsksForAllThirtyTwo)
{
    Board board(reference_board());
    const Device bus(7);
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x30), 0);
    i2c_smbus_data data = {};
    ASSERT_EQ(bus.smbus(1, 0, I2C_SMBUS_I2C_BLOCK_BROKEN, &data), 0);
    EXPECT_EQ(data.block[0], 32);
    EXPECT_EQ(board.trace(7).back().messages.at(1).length, 32);
}

TEST(Smbus, ReceiveByteTakesWhatThePointerIsOn)
{
    Board board(reference_board());
    const Device bus(7);
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x30), 0);
    board.poke("scratch-registers", 0, {3, 0xe9});
    i2c_smbus_data data = {};
    ASSERT_EQ(bus.request(I2C_PEC, 1), 0);
    ASSERT_EQ(bus.smbus(1, 0, I2C_SMBUS_BYTE, &data), 0);
    EXPECT_EQ(data.byte, 3);
    EXPECT_EQ(board.wire(7), (Lines{"R 0x30 03 e9", "P"}));
}

} // namespace
