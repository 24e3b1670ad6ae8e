// What surrounds the chips: as described, changed while programs run, and harmless to look for.
#include <algorithm>

#include "model.h"
#include "simboard/chip_kind.h"

namespace
{

using simboard::BoardDescription;
using simboard::Chip;
using simboard::DescriptionError;
using simboard::testing::Board;
using simboard::testing::reference_board;

std::string mistakes_of(const std::string &keys)
{
    std::vector<DescriptionError> errors;
    simboard::parse_board_description(
        R"({"name": "b", "buses": [{"bus": 0, "devices": [{"name": "d", "address": "0x20", )" +
            keys + "}]}]}",
        errors);
    std::string text;
    for (const DescriptionError &error : errors) {
        text += error.key + ": " + error.message + "\n";
    }
    return text;
}

TEST(Surroundings, MistakesInTheirDescription)
{
    const struct {
        const char *keys, *key, *reason;
    } rows[] = {
        {R"("type": "pca9535", "inputs": "0x10000")", ".inputs: ", "from 0 to 65535"},
        {R"("type": "pca9554", "inputs": 256)", ".inputs: ", "from 0 to 255"},
        {R"("type": "pca9554", "voltage_mv": 1)", ".voltage_mv: ", "a pca9554 has no"},
        {R"("type": "tpa626", "voltage_mv": 36001)", ".voltage_mv: ", "0 to 36000"},
        {R"("type": "tpa626", "voltage_mv": -1)", ".voltage_mv: ", "0 to 36000"},
        {R"("type": "tpa626", "current_ma": "-1000001")", ".current_ma: ", "from -1000000"},
        {R"("type": "tpa626", "current_ma": "-")", ".current_ma: ", "must be a number"},
        {R"("type": "tpa626", "shunt_uohm": 0)", ".shunt_uohm: ", "microohms"},
        {R"("type": "tpa626", "shunt_uohm": 1.5)", ".shunt_uohm: ", "must be a number"},
        {R"("type": "epld-anlogic-ef2", "id": "0x1000000")", ".id: ", "16777215"},
        {R"("type": "mctp", "eid": 255)", ".eid: ", "254"},
        {R"("type": "mctp", "response_length": 1)", ".response_length: ", "unknown key"},
        {R"("type": "tpa626", "pattern": "00")", ".pattern: ", "no memory"},
        {R"("type": "retimer", "pattern": "0")", ".pattern: ", "hexadecimal"},
        {R"("type": "retimer", "pattern": "0x00")", ".pattern: ", "hexadecimal"},
        {R"("type": "retimer", "pattern": "")", ".pattern: ", "hexadecimal"},
        {R"("type": "retimer", "pattern": 7)", ".pattern: ", "hexadecimal"},
        {R"("type": "retimer", "pins": [])", ".pins: ", "no pins"},
        {R"("type": "pca9554", "pins": "a")", ".pins: ", "list of at most 8"},
        {R"("type": "pca9554", "pins": ["a","b","c","d","e","f","g","h","i"])", ".pins: ", "8"},
        {R"("type": "pca9554", "pins": ["a", "b", "a"])", ".pins[2]: ", "already"},
        {R"("type": "pca9554", "pins": ["1a"])", ".pins[0]: ", "start with a letter"},
        {R"("type": "pca9554", "pins": [7])", ".pins[0]: ", "start with a letter"},
    };
    for (const auto &row : rows) {
        const std::string text = mistakes_of(row.keys);
        EXPECT_NE(text.find(row.key), std::string::npos) << row.keys << "\n" << text;
        EXPECT_NE(text.find(row.reason), std::string::npos) << row.keys << "\n" << text;
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << row.keys << "\n" << text;
    }
}

TEST(Surroundings, AreReadFromTheDescription)
{
    Board board(R"({"name": "b", "buses": [
        {"bus": 3, "status": "0xfffeffff", "devices": [
            {"name": "io", "type": "pca9554", "address": 32, "pins": ["up", "", "down"]},
            {"name": "power", "type": "tpa626", "address": 64, "current_ma": "-0x10"},
            {"name": "retimer", "type": "retimer", "address": 24, "pattern": "A1 b2c3"},
            {"name": "lattice", "type": "epld-lattice", "address": 65, "id": 4294967295}]},
        {"bus": 15, "status": 65536}]})");
    EXPECT_EQ(board.description().devices[0].pins, (std::vector<std::string>{"up", "", "down"}));
    EXPECT_EQ(board.stimulus("io", "inputs"), 0xff);
    EXPECT_EQ(board.stimulus("power", "current_ma"), -16);
    EXPECT_EQ(board.stimulus("power", "voltage_mv"), 12000);
    EXPECT_EQ(board.stimulus("lattice", "id"), 0xffffffff);
    EXPECT_EQ(board.peek("retimer", 252, 4), (Bytes{0xa1, 0xb2, 0xc3, 0xa1}));
    const uint32_t first = 0x1e78a088;
    for (int round = 0; round < 2; round++) {
        EXPECT_EQ(board.physical(first + 3 * 0x80), 0xfffeffffU);
        EXPECT_EQ(board.physical(first + 15 * 0x80), 0x10000U);
        EXPECT_EQ(board.physical(first + 4 * 0x80), 0U);
        board.set_physical(first + 3 * 0x80, 1);
        board.set_physical(first + 4 * 0x80, 1);
        board.set_stimulus("power", "voltage_mv", 1);
        board.poke("retimer", 0, {0});
        board.reset();
        EXPECT_EQ(board.stimulus("power", "voltage_mv"), 12000);
        EXPECT_EQ(board.peek("retimer"), 0xa1);
    }
}

TEST(Surroundings, OnlyOfTheirChipAndWithinTheirRange)
{
    Board board(reference_board());
    EXPECT_THROW(board.stimulus("power-12v", "inputs"), std::runtime_error);
    EXPECT_THROW(board.stimulus("nobody", "inputs"), std::runtime_error);
    EXPECT_THROW(board.set_stimulus("power-12v", "voltage_mv", 36001), std::runtime_error);
    EXPECT_THROW(board.set_stimulus("board-leds", "inputs", -1), std::runtime_error);
    EXPECT_THROW(board.set_pin("board-leds", 8, true), std::runtime_error);
    EXPECT_EQ(board.stimulus("power-12v", "voltage_mv"), 12000);
    EXPECT_EQ(simboard::list_stimuli(simboard::find_chip(board.view(), "power-12v")),
              (std::vector<std::string>{"voltage_mv", "current_ma", "shunt_uohm"}));
}

TEST(Surroundings, EveryKindOfChipIsOnTheReferenceBoardAtEachDepth)
{
    Board board(reference_board());
    const auto &devices = board.description().devices;
    for (const char *type :
         {"pca9535", "pca9554", "tpa626", "retimer", "epld-lattice", "epld-pango",
          "epld-anlogic-ef2", "epld-anlogic-ef3", "epld-subcard", "mctp"}) {
        bool seen[3] = {};
        for (const auto &device : devices) {
            size_t depth = 0;
            for (int at = device.parent; at >= 0; at = devices[static_cast<size_t>(at)].parent) {
                depth++;
            }
            seen[depth] = seen[depth] || device.type == type;
        }
        EXPECT_TRUE(seen[0] && seen[1] && seen[2]) << type;
    }
}

// A scan asks every address with a quick write or by reading a byte.
TEST(Probing, ChangesNothingInAnyChip)
{
    Board board(R"({"name": "b", "buses": [{"bus": 0, "devices": [
        {"name": "d0", "type": "pca9535", "address": "0x20", "inputs": "0x1234"},
        {"name": "d1", "type": "pca9554", "address": "0x21", "inputs": "0x56"},
        {"name": "d2", "type": "tpa626", "address": "0x22"},
        {"name": "d3", "type": "retimer", "address": "0x23", "pattern": "01 02"},
        {"name": "d4", "type": "epld-lattice", "address": "0x24"},
        {"name": "d5", "type": "epld-pango", "address": "0x25"},
        {"name": "d6", "type": "epld-anlogic-ef2", "address": "0x26"},
        {"name": "d7", "type": "epld-anlogic-ef3", "address": "0x27"},
        {"name": "d8", "type": "epld-subcard", "address": "0x28", "pattern": "03"},
        {"name": "d9", "type": "mctp", "address": "0x29"}]}]})");
    board.set_stimulus("d9", "response_length", 2);
    const Device bus(0);
    const auto memories = [&board] {
        std::vector<Bytes> all;
        for (const auto &device : board.description().devices) {
            const Chip &chip = simboard::find_chip(board.view(), device.name);
            all.push_back(board.peek(device.name, 0, chip.memory_size));
        }
        return all;
    };
    const std::vector<Bytes> before = memories();
    for (uint8_t address = 0x20; address < 0x2a; address++) {
        SCOPED_TRACE(address);
        ASSERT_EQ(bus.request(I2C_SLAVE, address), 0);
        i2c_smbus_data data = {};
        EXPECT_EQ(bus.smbus(I2C_SMBUS_WRITE, 0, I2C_SMBUS_QUICK, nullptr), 0);
        EXPECT_EQ(bus.smbus(I2C_SMBUS_READ, 0, I2C_SMBUS_QUICK, nullptr), 0);
        EXPECT_EQ(bus.smbus(I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE, &data), 0);
        EXPECT_EQ(bus.smbus(I2C_SMBUS_WRITE, 0, I2C_SMBUS_QUICK, nullptr), 0);
    }
    EXPECT_EQ(memories(), before);
    EXPECT_EQ(board.wrongs(), "");
}

} // namespace
