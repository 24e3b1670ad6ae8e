// The expander models against the PCA9535's and PCA9554's datasheets.
#include "model.h"

namespace
{

using simboard::testing::Board;

constexpr uint16_t kAddress = 0x21;
const std::string PCA9535 =
    board_with(R"({"name": "io", "type": "pca9535", "address": "0x21", "inputs": "0x3cc5"})");
const std::string PCA9554 =
    board_with(R"({"name": "io", "type": "pca9554", "address": "0x21", "inputs": "0x35"})");

TEST(Pca9535Model, RegistersAndTheirPairs)
{
    Board board(PCA9535);
    follow(Device(0), kAddress,
           {
               {"inputs at power-on", {0}, {0xc5, 0x3c}},
               {"outputs at power-on", {2}, {0xff, 0xff}},
               {"polarity at power-on", {4}, {0, 0}},
               {"configuration at power-on", {6}, {0xff, 0xff}},
               {"writing stays within the pair", {3, 0x11, 0x22, 0x33}, {}},
               {"so does reading", {2}, {0x22, 0x33, 0x22}},
               {"reading goes on where it stood", {}, {0x33, 0x22}},
               {"a command alone sets the register", {7}, {}},
               {"which stays set", {}, {0xff, 0xff, 0xff}},
               {"three bits of the command count", {0xfa, 0x5a}, {}},
               {"here register 2", {2}, {0x5a, 0x33}},
               {"inputs take no writes", {0, 0, 0}, {}},
               {"and stay as they are", {0}, {0xc5, 0x3c}},
           });
}

TEST(Pca9535Model, InputsShowTheLevelsAtThePins)
{
    Board board(PCA9535);
    const Device bus(0);
    follow(bus, kAddress,
           {
               {"pins 4 to 11 drive", {6, 0x0f, 0xf0}, {}},
               {"these levels", {2, 0xa0, 0x0a}, {}},
               {"and read back so", {0}, {0xa5, 0x3a}},
               {"a new level shows at once", {2, 0x50}, {}},
               {"", {0}, {0x55, 0x3a}},
               {"polarity inverts what is read", {4, 0xff, 0x0f}, {}},
               {"", {0}, {0xaa, 0x35}},
               {"of the inputs alone", {2}, {0x50, 0x0a}},
               {"", {4, 0, 0}, {}},
           });
    board.set_pin("io", 0, false);
    board.set_pin("io", 4, false); // driven: what stands at it from outside loses
    board.set_pin("io", 15, true);
    follow(bus, kAddress, {{"levels from outside", {0}, {0x54, 0xba}}});
    EXPECT_EQ(board.stimulus("io", "inputs"), 0xbcc4);
    EXPECT_EQ(board.peek("io", 0, 2), (Bytes{0x54, 0xba}));
    board.poke("io", 6, {0xff});
    EXPECT_EQ(board.peek("io", 0), 0xc4);

    board.reset();
    follow(bus, kAddress, {{"reset", {0}, {0xc5, 0x3c}}, {"", {6}, {0xff, 0xff}}});
}

TEST(Pca9554Model, RegistersOfOneByte)
{
    Board board(PCA9554);
    const Device bus(0);
    follow(bus, kAddress,
           {
               {"input at power-on", {0}, {0x35, 0x35}},
               {"output at power-on", {1}, {0xff}},
               {"polarity at power-on", {2}, {0}},
               {"configuration at power-on", {3}, {0xff}},
               {"the last of several bytes stays", {1, 0x11, 0xa2}, {}},
               {"reading repeats", {1}, {0xa2, 0xa2, 0xa2}},
               {"the register stays set", {}, {0xa2}},
               {"two bits of the command count", {0x07, 0x0f}, {}},
               {"upper pins drive", {0}, {0xa5}},
               {"polarity", {2, 0xf0}, {}},
               {"", {0}, {0x55}},
               {"inputs take no writes", {0, 0xff}, {}},
               {"", {0}, {0x55}},
           });
    board.set_stimulus("io", "inputs", 0x0a);
    follow(bus, kAddress, {{"levels from outside", {0}, {0x5a}}});
}

} // namespace
