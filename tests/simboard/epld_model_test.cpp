// The EPLD models: configuration ports of four kinds, and the registers behind them.
#include "model.h"

namespace
{

using simboard::testing::Board;

constexpr uint16_t kAddress = 0x41;

std::string epld(const std::string &kind)
{
    return board_with(R"({"name": "epld", "type": "epld-)" + kind + R"(", "address": "0x41"})");
}

TEST(EpldModel, RefusesTheOpcodesOfOtherVendors)
{
    const struct {
        const char *kind;
        Bytes known; // before any mode is set
    } rows[] = {
        {"lattice", {0x26, 0x3c, 0x74, 0xc0, 0xc6, 0xe0, 0xf0, 0xff}},
        {"pango", {0xa1}},
        {"anlogic-ef2", {0x01}},
        {"anlogic-ef3", {0x51}},
    };
    for (const auto &row : rows) {
        Board board(epld(row.kind));
        const Device bus(0);
        Bytes known;
        for (unsigned opcode = 0; opcode < 256; opcode++) {
            const bool is_user_page = opcode >> 4 == 8;
            const int result = bus.write(kAddress, {static_cast<uint8_t>(opcode)});
            if (is_user_page) {
                EXPECT_EQ(result, 1) << row.kind << opcode;
            } else if (result == 1) {
                known.push_back(static_cast<uint8_t>(opcode));
            } else {
                EXPECT_EQ(result, -EIO) << row.kind << opcode;
            }
        }
        EXPECT_EQ(known, row.known) << row.kind;
        EXPECT_EQ(board.wrongs(), "");
    }
}

TEST(EpldModel, RefusesAtTheOpcode)
{
    Board board(epld("pango"));
    Bytes id(4);
    EXPECT_EQ(Device(0).write_read(kAddress, {0xe0, 0, 0, 0}, id), -EIO);
    EXPECT_EQ(board.wire(0), (std::vector<std::string>{"W 0x41 e0 NACK", "P EIO"}));
}

TEST(EpldModel, LatticeCommands)
{
    Board board(epld("lattice"));
    const Device bus(0);
    follow(bus, kAddress,
           {
               {"identification", {0xe0, 0, 0, 0}, {0x01, 0x2b, 0xa0, 0x43}},
               {"nothing behind it", {0xe0, 0, 0, 0}, {0x01, 0x2b, 0xa0, 0x43, 0xff, 0xff}},
               {"operands missing", {0xe0, 0, 0}, {0xff, 0xff}},
               {"operands too many", {0xe0, 0, 0, 0, 0}, {}, EIO},
               {"user code", {0xc0, 0, 0, 0}, {0, 0, 0, 0}},
               {"status: done", {0x3c, 0, 0, 0}, {0, 0, 1, 0}},
               {"not busy", {0xf0, 0, 0, 0}, {0}},
               {"enable, transparent", {0x74, 0x08, 0}, {}},
               {"status: done, enabled", {0x3c, 0, 0, 0}, {0, 0, 3, 0}},
               {"disable", {0x26, 0, 0}, {}},
               {"status: done", {0x3c, 0, 0, 0}, {0, 0, 1, 0}},
               {"no operation", {0xff, 0xff, 0xff, 0xff}, {}},
               {"STOP ends a command", {0xe0, 0, 0, 0}, {}},
               {"so nothing is driven", {}, {0xff, 0xff}},
           });
    board.set_stimulus("epld", "id", 0x012b9043);
    follow(bus, kAddress, {{"another part", {0xe0, 0, 0, 0}, {0x01, 0x2b, 0x90, 0x43}}});
}

TEST(EpldModel, PangoAndEf3Identification)
{
    Board pango(board_with(
        R"({"name": "epld", "type": "epld-pango", "address": "0x41", "id": "0x8040c012"})"));
    follow(Device(0), kAddress,
           {{"identification", {0xa1, 0, 0, 0}, {0x80, 0x40, 0xc0, 0x12}},
            {"operands missing", {0xa1}, {0xff, 0xff}}});

    Board ef3(epld("anlogic-ef3"));
    const Device bus(0);
    follow(bus, kAddress,
           {{"identification", {0x51}, {0xfc, 0x33, 0x00, 0x00}},
            {"takes no operand", {0x51, 0}, {}, EIO}});
    ef3.set_stimulus("epld", "id", 0xfc340000);
    follow(bus, kAddress, {{"another part", {0x51}, {0xfc, 0x34, 0, 0}}});
}

TEST(EpldModel, Ef2ShiftsToItsFlashInSpiMode)
{
    Board board(epld("anlogic-ef2"));
    const Device bus(0);
    follow(bus, kAddress,
           {
               {"nothing to shift through yet", {0x02, 0x9f, 0, 0, 0, 0}, {}, EIO},
               {"nor to read", {0x00, 0, 0, 0}, {0}, EIO},
               {"SPI mode", {0x01, 0xf0}, {}},
               {"read identification", {0x02, 0x9f, 0, 0, 0, 0}, {}},
               {"what came back", {0x00, 0, 0, 0}, {0xff, 0xc8, 0x42, 0x13}},
               {"again, and further", {0x00, 0, 0, 0}, {0xff, 0xc8, 0x42, 0x13, 0xff, 0xff}},
               {"operands missing", {0x00, 0}, {0xff, 0xff}},
               {"write enable", {0x02, 0x06}, {}},
               {"read status", {0x02, 0x05, 0, 0}, {}},
               {"enabled", {0x00, 0, 0, 0}, {0xff, 0x02, 0x02, 0xff}},
               {"a write disable with a byte too many", {0x02, 0x04, 0}, {}},
               {"read status", {0x02, 0x05, 0}, {}},
               {"still enabled", {0x00, 0, 0, 0}, {0xff, 0x02}},
               {"write disable", {0x02, 0x04}, {}},
               {"read status", {0x02, 0x05, 0}, {}},
               {"disabled", {0x00, 0, 0, 0}, {0xff, 0x00}},
               {"another mode", {0x01, 0x00}, {}},
               {"closes the way again", {0x02, 0x9f}, {}, EIO},
           });
    // More than is kept of what comes back.
    Bytes long_shift(400, 0);
    long_shift[0] = 0x02;
    long_shift[1] = 0x05;
    Bytes back(300);
    follow(bus, kAddress, {{"SPI mode", {0x01, 0xf0}, {}}, {"long", long_shift, {}}});
    ASSERT_EQ(bus.write_read(kAddress, {0x00, 0, 0, 0}, back), 2);
    EXPECT_EQ(back[255], 0x00);
    EXPECT_EQ(back[256], 0xff);

    board.set_stimulus("epld", "id", 0xef4013);
    follow(bus, kAddress,
           {{"another flash", {0x02, 0x9f, 0, 0, 0}, {}},
            {"", {0x00, 0, 0, 0}, {0xff, 0xef, 0x40, 0x13}}});
}

TEST(EpldModel, UserRegistersOfEveryKind)
{
    for (const char *kind : {"lattice", "pango", "anlogic-ef2", "anlogic-ef3"}) {
        SCOPED_TRACE(kind);
        Board board(epld(kind));
        const Device bus(0);
        board.poke("epld", 0x123, {0xaa, 0xbb});
        follow(bus, kAddress,
               {
                   {"read", {0x81, 0x23}, {0xaa, 0xbb, 0}},
                   {"write", {0x8f, 0xff, 1, 2}, {}},
                   {"wraps", {0x8f, 0xff}, {1, 2}},
                   {"half an address", {0x81}, {0xff}},
                   {"ends at STOP", {0x81, 0x23}, {}},
                   {"", {}, {0xff}},
               });
        EXPECT_EQ(board.peek("epld", 0), 2);
        EXPECT_EQ(board.peek("epld", 0xfff), 1);
    }
}

} // namespace
