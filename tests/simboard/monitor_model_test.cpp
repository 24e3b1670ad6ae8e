// The power monitor model against the TPA626's datasheet.
#include "model.h"

namespace
{

using simboard::testing::Board;

constexpr uint16_t kAddress = 0x40;

// The datasheet's typical application: 11.98 V and 10 A over 2 milliohms, 1 mA a count.
const std::string MONITOR = board_with(R"({"name": "power", "type": "tpa626", "address": "0x40",
    "voltage_mv": 11980, "current_ma": 10000, "shunt_uohm": 2000})");

Bytes word(uint16_t value)
{
    return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

Step writes(uint8_t number, uint16_t value)
{
    return {"write", {number, static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}, {}};
}

Step reads(const char *what, uint8_t number, uint16_t value)
{
    return {what, {number}, word(value)};
}

TEST(Tpa626Model, TypicalApplicationOfTheDatasheet)
{
    Board board(MONITOR);
    follow(Device(0), kAddress,
           {
               reads("configuration at power-on", 0, 0x4127),
               reads("shunt voltage", 1, 0x1f40),
               reads("bus voltage", 2, 0x2570),
               reads("no power before calibration", 3, 0),
               reads("no current before calibration", 4, 0),
               reads("manufacturer", 0xfe, 0x5449),
               reads("die", 0xff, 0x2260),
               writes(5, 0x0a00),
               reads("power", 3, 0x12b8),
               reads("current", 4, 0x2710),
               {"the pointer stays", {}, {0x27, 0x10}},
               {"one byte of a word", {}, {0x27}},
               {"a word and no more", {}, {0x27, 0x10, 0xff, 0xff}},
           });
    EXPECT_EQ(board.peek("power", 2 * 3, 4), (Bytes{0x12, 0xb8, 0x27, 0x10}));
}

TEST(Tpa626Model, MeasuresWhatIsAppliedWithinItsRange)
{
    Board board(MONITOR);
    const Device bus(0);
    const struct {
        int64_t millivolts, milliamperes, microohms;
        uint16_t calibration, shunt, voltage, current, power, flags;
    } rows[] = {
        {0, 0, 2000, 0x0a00, 0, 0, 0, 0, 0x0008},
        {12000, -10000, 2000, 0x0a00, 0xe0c0, 0x2580, 0xd8f0, 0x12c0, 0x0008},
        {12000, 8500, 1000, 0x1400, 0x0d48, 0x2580, 0x2134, 0x0ff0, 0x0008},
        {36000, 1, 2000, 0x0a00, 1, 0x7080, 1, 1, 0x0008}, // 2 uV are nearest to 2.5
        {1, 0, 2000, 0x0a00, 0, 1, 0, 0, 0x0008},          // 1 mV is nearest to 1.25
        // Beyond the shunt's 82 mV, then beyond what the registers hold.
        {5000, -50000, 2000, 0x0a00, 0x8000, 0x0fa0, 0x8000, 0x2000, 0x000c},
        {900, 40000, 500, 0x2800, 0x1f40, 0x02d0, 0x7fff, 0x05a0, 0x000c},
        {36000, 20000, 2000, 0x7fff, 0x3e80, 0x7080, 0x7fff, 0xffff, 0x000c},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        board.set_stimulus("power", "voltage_mv", row.millivolts);
        board.set_stimulus("power", "current_ma", row.milliamperes);
        board.set_stimulus("power", "shunt_uohm", row.microohms);
        follow(bus, kAddress,
               {writes(5, row.calibration), reads("shunt", 1, row.shunt),
                reads("voltage", 2, row.voltage), reads("power", 3, row.power),
                reads("current", 4, row.current), reads("flags", 6, row.flags)});
    }
}

TEST(Tpa626Model, MeasuresAsItsModeSays)
{
    Board board(MONITOR);
    const Device bus(0);
    const struct {
        const char *what;
        uint16_t configuration;
        uint16_t shunt, voltage;             // as the mode is set, at 10 A and 11.98 V
        uint16_t later_shunt, later_voltage; // at 5 A and 6 V
    } rows[] = {
        {"continuous", 0x4127, 0x1f40, 0x2570, 0x0fa0, 0x12c0},
        {"continuous shunt", 0x4125, 0x1f40, 0, 0x0fa0, 0},
        {"continuous bus", 0x4126, 0, 0x2570, 0, 0x12c0},
        {"triggered", 0x4123, 0x1f40, 0x2570, 0x1f40, 0x2570},
        {"triggered shunt", 0x4121, 0x1f40, 0, 0x1f40, 0},
        {"triggered bus", 0x4122, 0, 0x2570, 0, 0x2570},
        {"powered down", 0x4120, 0, 0, 0, 0},
        {"powered down too", 0x4124, 0, 0, 0, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        board.reset();
        board.set_stimulus("power", "current_ma", 0);
        board.set_stimulus("power", "voltage_mv", 0);
        follow(bus, kAddress, {writes(0, 0x4120)});
        board.set_stimulus("power", "current_ma", 10000);
        board.set_stimulus("power", "voltage_mv", 11980);
        follow(bus, kAddress,
               {writes(0, row.configuration), reads("shunt", 1, row.shunt),
                reads("bus", 2, row.voltage), reads("configuration", 0, row.configuration)});
        board.set_stimulus("power", "current_ma", 5000);
        board.set_stimulus("power", "voltage_mv", 6000);
        follow(
            bus, kAddress,
            {reads("shunt later", 1, row.later_shunt), reads("bus later", 2, row.later_voltage)});
    }
}

TEST(Tpa626Model, WhatCanBeWritten)
{
    Board board(MONITOR);
    follow(Device(0), kAddress,
           {
               writes(0, 0x7fff),
               reads("bits 14 to 12 are fixed", 0, 0x4fff),
               writes(5, 0xffff),
               reads("bit 15 is not there", 5, 0x7fff),
               writes(7, 0xa55a),
               reads("alert limit", 7, 0xa55a),
               writes(1, 0x1234),
               reads("results are read only", 1, 0x1f40),
               writes(0xfe, 0),
               reads("so is the identity", 0xfe, 0x5449),
               {"half a word changes nothing", {7, 0x11}, {}},
               reads("alert limit", 7, 0xa55a),
               {"a second word is dropped", {7, 0x11, 0x22, 0x33, 0x44}, {}},
               reads("alert limit", 7, 0x1122),
               writes(0, 0x8000),
               reads("reset: configuration", 0, 0x4127),
               reads("reset: calibration", 5, 0),
               reads("reset: alert limit", 7, 0),
               reads("there is no register 8", 8, 0),
           });
}

TEST(Tpa626Model, AlertsCompareTheEnabledQuantity)
{
    Board board(MONITOR);
    const Device bus(0);
    // 11.98 V: 0x2570, 20 mV: 0x1f40, power 0x12b8.
    const struct {
        uint16_t mask, limit, reads;
    } rows[] = {
        {0x8000, 0x1f3f, 0x8018}, {0x8000, 0x1f40, 0x8008}, // shunt over
        {0x4000, 0x1f41, 0x4018}, {0x4000, 0xffff, 0x4008}, // shunt under, limits are signed
        {0x2000, 0x256f, 0x2018}, {0x2000, 0x2570, 0x2008}, // bus over
        {0x1000, 0x2571, 0x1018}, {0x1000, 0x2570, 0x1008}, // bus under
        {0x0800, 0x12b7, 0x0818}, {0x0800, 0x12b8, 0x0808}, // power over
        {0xa000, 0x2000, 0xa008},                           // the shunt's counts, and is below
        {0x0000, 0x0000, 0x0008}, {0x0402, 0x0000, 0x040a},
    };
    follow(bus, kAddress, {writes(5, 0x0a00)});
    for (const auto &row : rows) {
        SCOPED_TRACE(&row - rows);
        follow(bus, kAddress,
               {writes(7, row.limit), writes(6, row.mask), reads("flags", 6, row.reads)});
    }

    // Latched: the flag stays when the fault has gone, until it has been read.
    follow(bus, kAddress, {writes(7, 0x2000), writes(6, 0x2001)});
    board.set_stimulus("power", "voltage_mv", 5000);
    follow(bus, kAddress, {reads("latched", 6, 0x2019), reads("read before", 6, 0x2009)});

    // Triggered: ready once after each conversion.
    follow(bus, kAddress,
           {writes(0, 0x4123), reads("ready", 6, 0x2009), reads("read before", 6, 0x2001)});
}

} // namespace
