// The chip drivers on stand-ins that others wrote: a temperature sensor with 16-bit registers of
// the power monitor's shape, and an 8-bit expander with the registers of the PCA9554. Pins and
// temperature are driven from outside the machine.
#include <cmath>

#include "cases.h"
#include "link.h"
#include "wire.h"

namespace board
{

namespace
{

constexpr const char *pins_name[] = {"pins-root", "pins-near", "pins-far"};
constexpr const char *monitor_name[] = {"monitor-root", "monitor-near", "monitor-far"};

size_t index(Level level)
{
    return static_cast<size_t>(level);
}

void about(Check &check, const std::string &what, float got, double wanted)
{
    if (std::fabs(static_cast<double>(got) - wanted) > 0.0005)
        fail(check, what + ": " + std::to_string(got) + " instead of " + std::to_string(wanted));
}

// Both coefficients are 1, so the value is the raw register by 1000.
tpa626_info described(Level level, uint16_t config, uint16_t calibration)
{
    tpa626_info info = {};
    info.client = device(Chip::monitor, level);
    info.wConfig = config;
    info.wCalibration = calibration;
    info.fPowerCoef1 = 25;
    info.fPowerCoef2 = 1;
    info.fVoltCoef1 = 1.25F;
    info.fVoltCoef2 = 1;
    return info;
}

void voltage(Check &check, Level level)
{
    const ei2c_client monitor = device(Chip::monitor, level);
    wire::set_registers(monitor, 2, {0x25, 0x80});
    float value = -1;
    equal(check, "result of the preset call", TPA626_GetVolt(&monitor, &value), 0);
    about(check, "volts", value, 12.0);
    wire::set_registers(monitor, 2, {0x0A, 0x28});
    const tpa626_info info = described(level, 0, 0);
    equal(check, "result of the described call", TPA626_GetVoltByInfo(&info, &value), 0);
    about(check, "volts by description", value, 3.25);
}

void power(Check &check, Level level)
{
    const ei2c_client monitor = device(Chip::monitor, level);
    wire::set_registers(monitor, 3, {0x01, 0x90});
    float value = -1;
    equal(check, "result of the preset call", TPA626_GetPower(&monitor, 1, &value), 0);
    about(check, "watts", value, 10.0);
    wire::set_registers(monitor, 3, {0x04, 0x00});
    const tpa626_info info = described(level, 0, 0);
    equal(check, "result of the described call", TPA626_GetPowerByInfo(&info, &value), 0);
    about(check, "watts by description", value, 25.6);
}

// The sensor's pointer register has two bits, so the calibration (register 5) lands in its
// configuration (register 1), of which it keeps the first byte that arrives.
void calibration_order(Check &check, Level level)
{
    const ei2c_client monitor = device(Chip::monitor, level);
    const tpa626_info info = described(level, 0, 0x7814);
    float value = -1;
    wire::set_registers(monitor, 1, {0});
    equal(check, "result", TPA626_GetVoltByInfo(&info, &value), 0);
    equal(check, "first byte of the calibration", wire::registers(monitor, 1, 1), {0x14});
    wire::set_registers(monitor, 1, {0});
}

// The measured value comes from outside: 25.5 degrees are 0x1980, most significant byte first.
void outside_value(Check &check, Level level)
{
    const ei2c_client monitor = device(Chip::monitor, level);
    uint16_t word = 0;
    wire::set_registers(monitor, 1, {0});
    for (const auto &[milli, wanted] : {std::pair{25500, 0x8019}, std::pair{-10000, 0x00F6}}) {
        link::set_property(monitor_name[index(level)], "temperature", milli);
        equal(check, "result", ei2c_smbus_read_word_data(&monitor, 0, &word), 0);
        equal(check, "word, low byte first", word, wanted);
    }
}

void drive_pins(Level level, uint8_t levels)
{
    for (unsigned pin = 0; pin < 8; pin++)
        (void)link::machine(std::string("set_irq_in /machine/peripheral/") +
                            pins_name[index(level)] + " unnamed-gpio-in " + std::to_string(pin) +
                            " " + std::to_string(levels >> pin & 1));
}

void inputs(Check &check, Level level)
{
    const ei2c_client pins = device(Chip::pins, level);
    equal(check, "all pins made inputs", pca9554_gpio_byte_direction_input(&pins, 0xFF), 0);
    equal(check, "configuration register", wire::registers(pins, 3, 1), {0xFF});
    for (const uint8_t levels : {uint8_t{0xA5}, uint8_t{0x3C}}) {
        drive_pins(level, levels);
        uint8_t byte = 0;
        equal(check, "result", pca9554_gpio_byte_get_value(&pins, 0xFF, &byte), 0);
        equal(check, "levels of all pins", byte, levels);
        equal(check, "result with a mask", pca9554_gpio_byte_get_value(&pins, 0x0F, &byte), 0);
        equal(check, "levels of the low pins", byte, levels & 0x0F);
        for (uint32_t pin = 0; pin < 8; pin++) {
            uint32_t value = 2;
            equal(check, "result", pca9554_gpio_get_value(&pins, pin, &value), 0);
            equal(check, "level of pin " + std::to_string(pin), value, levels >> pin & 1);
        }
    }
    drive_pins(level, 0);
}

void outputs(Check &check, Level level)
{
    const ei2c_client pins = device(Chip::pins, level);
    wire::set_registers(pins, 3, {0xFF});
    equal(check, "four pins made outputs", pca9554_gpio_byte_direction_output(&pins, 0xF0, 0), 0);
    equal(check, "configuration register", wire::registers(pins, 3, 1), {0x0F});
    equal(check, "two of them set", pca9554_gpio_byte_set_value(&pins, 0x60, 0xFF), 0);
    equal(check, "output register", wire::registers(pins, 1, 1), {0x60});
    equal(check, "a third one set", pca9554_gpio_set_value(&pins, 7, 1), 0);
    equal(check, "output register then", wire::registers(pins, 1, 1), {0xE0});
    equal(check, "one cleared", pca9554_gpio_direction_output(&pins, 5, 0), 0);
    equal(check, "output register at last", wire::registers(pins, 1, 1), {0xC0});
    equal(check, "one pin made an input", pca9554_gpio_direction_input(&pins, 4), 0);
    equal(check, "configuration register at last", wire::registers(pins, 3, 1), {0x1F});
    equal(check, "all pins made inputs", pca9554_gpio_byte_direction_input(&pins, 0xFF), 0);
}

constexpr struct {
    const char *name;
    void (*run)(Check &, Level);
} rows[] = {
    {"monitor/voltage", voltage},
    {"monitor/power", power},
    {"monitor/calibration-order", calibration_order},
    {"monitor/outside-value", outside_value},
    {"pins/inputs-driven-from-outside", inputs},
    {"pins/outputs", outputs},
};

} // namespace

void add_driver_cases(Cases &cases)
{
    for (const auto &row : rows)
        for (const Level level : all_levels)
            cases.push_back({std::string(row.name) + "/" + name_of(level),
                             [&row, level](Check &check) { row.run(check, level); }});
}

} // namespace board
