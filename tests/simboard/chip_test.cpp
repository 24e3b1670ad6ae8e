// Chip models against what their datasheets say happens on the wires.
#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>

#include "device.h"
#include "simboard/testing.h"

namespace
{

using simboard::testing::Board;
using simboard::testing::reference_board;

constexpr uint16_t kEeprom = 0x50;      // bus 0: busy after a write
constexpr uint16_t kReadyEeprom = 0x50; // bus 7: never busy

Bytes run(uint8_t first, size_t count)
{
    Bytes bytes(count);
    for (size_t i = 0; i < count; i++) {
        bytes[i] = static_cast<uint8_t>(first + i);
    }
    return bytes;
}

Bytes at(uint16_t word_address, const Bytes &data)
{
    Bytes bytes(2 + data.size());
    bytes[0] = static_cast<uint8_t>(word_address >> 8);
    bytes[1] = static_cast<uint8_t>(word_address);
    std::copy(data.begin(), data.end(), bytes.begin() + 2);
    return bytes;
}

TEST(At24c512, WritesWrapWithinThePage)
{
    Board board(reference_board());
    const Device bus(7);
    ASSERT_EQ(bus.write(kReadyEeprom, at(0x12fe, {1, 2, 3, 4})), 1);
    EXPECT_EQ(board.peek("scratch-eeprom", 0x12fe, 3), (Bytes{1, 2, 0xff}));
    EXPECT_EQ(board.peek("scratch-eeprom", 0x1280, 3), (Bytes{3, 4, 0xff}));

    // More than a page: the last 128 bytes stay, each where it fell.
    ASSERT_EQ(bus.write(kReadyEeprom, at(0x2000, run(0, 130))), 1);
    EXPECT_EQ(board.peek("scratch-eeprom", 0x2000, 3), (Bytes{128, 129, 2}));
    EXPECT_EQ(board.peek("scratch-eeprom", 0x2080), 0xff);
}

TEST(At24c512, ReadsRollOverTheWholeChip)
{
    Board board(reference_board());
    const Device bus(7);
    board.poke("scratch-eeprom", 0xfffe, {7, 8});
    board.poke("scratch-eeprom", 0, {9, 10});
    Bytes bytes(3);
    ASSERT_EQ(bus.write_read(kReadyEeprom, at(0xfffe, {}), bytes), 2);
    EXPECT_EQ(bytes, (Bytes{7, 8, 9}));
    Bytes next(1); // the address counter goes on where the last read ended
    ASSERT_EQ(bus.read(kReadyEeprom, next), 1);
    EXPECT_EQ(next, Bytes{10});
}

TEST(At24c512, OnlyDataFollowedByStopIsWritten)
{
    Board board(reference_board());
    const Device bus(7);
    Bytes write = at(0x100, {0xaa});
    Bytes byte(1);
    EXPECT_EQ(bus.write_read(kReadyEeprom, write, byte), 2); // a repeated START follows the data
    EXPECT_EQ(board.peek("scratch-eeprom", 0x100), 0xff);
    Bytes other = {0};
    EXPECT_EQ(bus.transfer({{kReadyEeprom, 0, 3, write.data()}, {0x30, 0, 1, other.data()}}), 2);
    EXPECT_EQ(board.peek("scratch-eeprom", 0x100), 0xff);
    EXPECT_EQ(bus.write(kReadyEeprom, {0x01}), 1); // half an address
    EXPECT_EQ(bus.write(kReadyEeprom, at(0x100, {0xbb})), 1);
    EXPECT_EQ(board.peek("scratch-eeprom", 0x100), 0xbb);
}

uint64_t now_ns()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

TEST(At24c512, DoesNotAnswerDuringItsWriteCycle)
{
    Board board(reference_board());
    const Device bus(0);
    ASSERT_EQ(bus.write(kEeprom, at(0, {})), 1); // an address alone starts no cycle
    const uint64_t before = now_ns();
    ASSERT_EQ(bus.write(kEeprom, at(0, {1})), 1);
    int result;
    int refused = 0;
    while ((result = bus.write(kEeprom, at(1, {}))) == -ENXIO) {
        refused++;
    }
    const uint64_t cycle = now_ns() - before;
    EXPECT_EQ(result, 1);
    EXPECT_GE(cycle, 5'000'000U);
    EXPECT_EQ(board.totals(0).address_nacks, static_cast<uint64_t>(refused));

    const Device ready(7);
    EXPECT_EQ(ready.write(kReadyEeprom, at(0, {1})), 1);
    EXPECT_EQ(ready.write(kReadyEeprom, at(1, {2})), 1);
}

TEST(Registers, PointerMovesOnAndWraps)
{
    Board board(reference_board());
    const Device bus(7);
    ASSERT_EQ(bus.write(0x30, {0xfe, 1, 2, 3}), 1);
    EXPECT_EQ(board.peek("scratch-registers", 0xfe, 2), (Bytes{1, 2}));
    EXPECT_EQ(board.peek("scratch-registers", 0), 3);
    Bytes bytes(3);
    ASSERT_EQ(bus.write_read(0x30, {0xfe}, bytes), 2);
    EXPECT_EQ(bytes, (Bytes{1, 2, 3}));
    Bytes next(1);
    board.poke("scratch-registers", 1, {0x42});
    ASSERT_EQ(bus.read(0x30, next), 1);
    EXPECT_EQ(next, Bytes{0x42});
}

TEST(Pca9548, ChannelsOpenAtStop)
{
    Board board(reference_board());
    const Device bus(4);
    Bytes open = {0x20};
    Bytes pointer = {0};
    EXPECT_EQ(bus.transfer({{0x70, 0, 1, open.data()}, {0x21, 0, 1, pointer.data()}}), -ENXIO);
    EXPECT_EQ(board.peek("sw-main"), 0x20); // STOP came all the same
    EXPECT_EQ(bus.write(0x21, {0}), 1);

    EXPECT_EQ(bus.write(0x70, {0x01, 0x02, 0x04}), 1); // the last byte counts
    EXPECT_EQ(board.peek("sw-main"), 0x04);
    Bytes control(2);
    EXPECT_EQ(bus.read(0x70, control), 1);
    EXPECT_EQ(control, (Bytes{0x04, 0x04}));
    EXPECT_EQ(bus.write(0x21, {0}), -ENXIO);
}

TEST(Pca9548, NestedDevicesNeedEverySwitchInFrontOpen)
{
    Board board(reference_board());
    const Device bus(4);
    const auto reach = [&](uint8_t main, uint8_t riser) {
        board.poke("sw-main", 0, {main});
        board.poke("sw-riser", 0, {riser});
        return bus.write(0x50, at(0, {}));
    };
    EXPECT_EQ(reach(0x20, 0x08), 1);
    EXPECT_EQ(reach(0x20, 0x00), -ENXIO);
    EXPECT_EQ(reach(0x00, 0x08), -ENXIO);
    EXPECT_EQ(reach(0x10, 0x08), -ENXIO);
    EXPECT_EQ(reach(0x20, 0x10), -ENXIO);
    EXPECT_EQ(reach(0xff, 0xff), 1);
}

TEST(Segment, SixSwitchesDeep)
{
    std::string device = R"({"name":"end","type":"registers","address":"0x20"})";
    for (int address = 0x75; address >= 0x70; address--) {
        device = R"({"name":"s)" + std::to_string(address) + R"(","type":"pca9548","address":)" +
                 std::to_string(address) + R"(,"channels":{"7":[)" + device + "]}}";
    }
    Board board(R"({"name":"deep","buses":[{"bus":3,"devices":[)" + device + "]}]}");
    const Device bus(3);
    for (uint16_t address = 0x70; address <= 0x75; address++) {
        EXPECT_EQ(bus.write(0x20, {0}), -ENXIO);
        ASSERT_EQ(bus.write(address, {0x80}), 1);
    }
    EXPECT_EQ(bus.write(0x20, {5, 0x99}), 1);
    EXPECT_EQ(board.peek("end", 5), 0x99);
    EXPECT_EQ(board.trace(3).back().path.size(), 6U);
}

TEST(Segment, TwoDevicesAtOneAddressBothListenAndTheirBitsAreAnded)
{
    Board board(reference_board());
    const Device bus(5);
    board.poke("sw-optics", 0, {0x05});
    EXPECT_EQ(bus.write(0x50, {0x10, 0x77}), 1);
    EXPECT_EQ(board.peek("optic0", 0x10), 0x77);
    EXPECT_EQ(board.peek("optic2", 0x10), 0x77);
    EXPECT_EQ(board.peek("optic1", 0x10), 0);

    board.poke("optic0", 0x11, {0xf3});
    board.poke("optic2", 0x11, {0x3e});
    Bytes byte(1);
    EXPECT_EQ(bus.write_read(0x50, {0x11}, byte), 2);
    EXPECT_EQ(byte, Bytes{0xf3 & 0x3e});
    EXPECT_EQ(board.totals(5).conflicts, 2U);
    EXPECT_EQ(board.wrongs(), "2 transfers that two devices answered at once\n");
}

TEST(WireTime, ATransferTakesAsLongAsItsBits)
{
    // START, 9 bits a byte, repeated START, STOP.
    struct Row {
        const char *speed;
        uint64_t bit_ns;
    };
    for (const Row &row : {Row{"100k", 10'000}, Row{"400k", 2'500}}) {
        SCOPED_TRACE(row.speed);
        Board board(reference_board(), row.speed);
        const Device bus(7);
        Bytes bytes(20);
        const uint64_t before = now_ns();
        ASSERT_EQ(bus.write_read(0x30, {0}, bytes), 2);
        const uint64_t elapsed = now_ns() - before;
        const uint64_t expected = (1 + 9 * 2 + 1 + 9 * 21 + 1) * row.bit_ns;
        EXPECT_GE(elapsed, expected);
        const auto record = board.trace(7).back();
        EXPECT_EQ(record.end_ns - record.start_ns, expected);
    }
}

} // namespace
