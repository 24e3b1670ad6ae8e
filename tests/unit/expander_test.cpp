// The two GPIO expanders: the register accesses of every call, in order, and where each of them
// stops.
#include "tests/unit/device_calls.h"

#include <functional>

using namespace calls;
using scripted::printed;

namespace
{

constexpr unsigned write = I2C_SMBUS_WRITE;
constexpr unsigned read = I2C_SMBUS_READ;

struct Access {
    unsigned read_write, command, value;
};
using Accesses = std::vector<Access>;

// An expander is known by the SMBus size code of its registers.
constexpr unsigned pca9535 = I2C_SMBUS_WORD_DATA;
constexpr unsigned pca9554 = I2C_SMBUS_BYTE_DATA;

Exchange access(unsigned chip, const ei2c_client &target, const Access &access, int result = 0)
{
    Bytes data = {static_cast<uint8_t>(access.value & 0xff)};
    if (chip == pca9535)
        data.push_back(static_cast<uint8_t>(access.value >> 8));
    return smbus(target, access.read_write, access.command, chip, data, result);
}

const Script no_device = scripted::argument_check("ui2c_ioctls", "ei2c_smbus_xfer", "eclient");

struct Change {
    std::function<int32_t(const ei2c_client *)> call;
    Accesses accesses;
};

template <class... Arguments>
Change change(Accesses accesses, int32_t (*function)(const ei2c_client *, Arguments...),
              std::type_identity_t<Arguments>... arguments)
{
    return {[=](const ei2c_client *client) { return function(client, arguments...); },
            std::move(accesses)};
}

// With every access succeeding, and with each of them failing or giving a positive result.
void check_changes(unsigned chip, const std::vector<Change> &changes)
{
    const ei2c_client target = device();
    for (size_t row = 0; row < changes.size(); ++row) {
        SCOPED_TRACE(printed("row %zu", row));
        const Change &change = changes[row];
        Script so_far;
        for (const Access &step : change.accesses) {
            for (const int result : {-104, 5})
                EXPECT_RUN(result, change.call(&target),
                           so_far + access(chip, target, step, result));
            so_far += access(chip, target, step).script;
        }
        EXPECT_RUN(0, change.call(&target), so_far);
        EXPECT_RUN(-1, change.call(nullptr), no_device);
    }
}

TEST(Pca9535, ChangesRegistersInThisOrder)
{
    check_changes(
        pca9535,
        {change({{read, 6, 0x0100}, {write, 6, 0x0120}}, pca9535_gpio_direction_input, 5),
         change({{read, 6, 0x0001}, {write, 6, 0x8001}}, pca9535_gpio_direction_input, 15),
         change({{read, 6, 0x1234}, {write, 6, 0x1234}}, pca9535_gpio_direction_input, 16),
         change({{read, 6, 0x1234}, {write, 6, 0x1234}}, pca9535_gpio_direction_input, 32),
         change({{read, 2, 0}, {write, 2, 8}, {read, 6, 0xffff}, {write, 6, 0xfff7}},
                pca9535_gpio_direction_output, 3, 1),
         change({{read, 2, 0xffff}, {write, 2, 0x7fff}, {read, 6, 0x8000}, {write, 6, 0}},
                pca9535_gpio_direction_output, 15, 0),
         change({{read, 2, 0x55aa}, {write, 2, 0x55aa}, {read, 6, 0xffff}, {write, 6, 0xffff}},
                pca9535_gpio_direction_output, 31, 1),
         change({{read, 2, 0x0011}, {write, 2, 0x0111}, {read, 6, 0xffff}, {write, 6, 0xfeff}},
                ei2c_pca9535_set_value, 8, -1),
         change({{read, 2, 0x8000}, {write, 2, 0x8001}}, pca9535_gpio_set_value, 0, 0x100),
         change({{read, 2, 0xffff}, {write, 2, 0xefff}}, pca9535_gpio_set_value, 12, 0),
         change({{read, 2, 0xffff}, {write, 2, 0xffff}}, pca9535_gpio_set_value, 17, 0),
         change({{read, 6, 0x8001}, {write, 6, 0x8ff1}}, pca9535_gpio_word_direction_input, 0x0ff0),
         change({{read, 2, 0xffff}, {write, 2, 0xff5f}, {read, 6, 0xffff}, {write, 6, 0xff0f}},
                pca9535_gpio_word_direction_output, 0x00f0, 0x0050),
         change({{read, 2, 0xabcd}, {write, 2, 0x12cd}}, pca9535_gpio_word_set_value, 0xff00,
                0x1234),
         change({{read, 2, 0}, {write, 2, 0x000f}}, ei2c_pca9535_set_word_value, 0x000f, 0xffff)});
}

TEST(Pca9554, ChangesRegistersInThisOrder)
{
    check_changes(
        pca9554,
        {change({{read, 3, 0x01}, {write, 3, 0x21}}, pca9554_gpio_direction_input, 5),
         change({{read, 3, 0x12}, {write, 3, 0x12}}, pca9554_gpio_direction_input, 8),
         change({{read, 3, 0x12}, {write, 3, 0x12}}, pca9554_gpio_direction_input, 39),
         change({{read, 1, 0xff}, {write, 1, 0x7f}, {read, 3, 0xff}, {write, 3, 0x7f}},
                pca9554_gpio_direction_output, 7, 0),
         change({{read, 1, 0x80}, {write, 1, 0x84}, {read, 3, 0x04}, {write, 3, 0}},
                pca9554_gpio_direction_output, 2, -5),
         change({{read, 1, 0x5a}, {write, 1, 0x5a}, {read, 3, 0xff}, {write, 3, 0xff}},
                pca9554_gpio_direction_output, 8, 1),
         change({{read, 1, 0x80}, {write, 1, 0x81}}, pca9554_gpio_set_value, 0, 1),
         change({{read, 1, 0xff}, {write, 1, 0xbf}}, pca9554_gpio_set_value, 6, 0),
         change({{read, 3, 0x81}, {write, 3, 0xbd}}, pca9554_gpio_byte_direction_input, 0x3c),
         change({{read, 1, 0x0a}, {write, 1, 0x5a}, {read, 3, 0xff}, {write, 3, 0x0f}},
                pca9554_gpio_byte_direction_output, 0xf0, 0x5f),
         change({{read, 1, 0xf0}, {write, 1, 0xf1}}, pca9554_gpio_byte_set_value, 0x03, 0x01)});
}

// A call that changes pins perhaps, reads a register and gives a value; and what it makes of a
// failed read and of a null pointer.
struct Reading {
    std::function<int32_t(const ei2c_client *, uint8_t *)> call;
    size_t value_size;
    Access last;
    uint32_t value;
    int32_t failed;
    Script null_value; // the check that comes after the read
    Accesses before;
};

template <class Argument, class Value>
Reading reading(const Access &last, uint32_t value, int32_t failed, const Script &null_value,
                int32_t (*function)(const ei2c_client *, Argument, Value *),
                std::type_identity_t<Argument> argument, const Accesses &before = {})
{
    return {[=](const ei2c_client *client, uint8_t *val) {
                return function(client, argument, static_cast<Value *>(static_cast<void *>(val)));
            },
            sizeof(Value),
            last,
            value,
            failed,
            null_value,
            before};
}

void check_readings(unsigned chip, const std::vector<Reading> &readings)
{
    const ei2c_client target = device();
    for (size_t row = 0; row < readings.size(); ++row) {
        SCOPED_TRACE(printed("row %zu", row));
        const Reading &reading = readings[row];
        Buffer value(reading.value_size), untouched(reading.value_size);
        Script before;
        for (const Access &step : reading.before) {
            for (const int result : {-104, 5})
                EXPECT_RUN(result, reading.call(&target, untouched.data()),
                           before + access(chip, target, step, result));
            before += access(chip, target, step).script;
        }
        for (const int result : {-104, 0, 5}) {
            const Script script = before + access(chip, target, reading.last, result);
            EXPECT_RUN(result < 0 ? reading.failed : result,
                       reading.call(&target, result < 0 ? untouched.data() : value.data()), script);
            if (!reading.null_value.empty()) {
                EXPECT_RUN(-1, reading.call(&target, nullptr), script + reading.null_value);
            }
        }
        const auto *bytes = reinterpret_cast<const uint8_t *>(&reading.value); // of a little-endian
        EXPECT_EQ(value.bytes(), Bytes(bytes, bytes + reading.value_size));
        EXPECT_TRUE(untouched.untouched());
    }
}

TEST(Pca9535, ReadsPins)
{
    const Script pin = scripted::argument_check("pca9535", "pca9535_gpio_get_value", "val");
    const Script word = scripted::argument_check("pca9535", "pca9535_gpio_word_get_value", "val");
    check_readings(
        pca9535,
        {reading({read, 0, 0x0200}, 1, 0, pin, pca9535_gpio_get_value, 9),
         reading({read, 0, 0xfdff}, 0, 0, pin, pca9535_gpio_get_value, 9),
         reading({read, 0, 0x8000}, 1, 0, pin, pca9535_gpio_get_value, 15),
         reading({read, 0, 0xffff}, 0, 0, pin, pca9535_gpio_get_value, 16),
         reading({read, 0, 0xffff}, 0, 0, pin, pca9535_gpio_get_value, 41),
         reading({read, 0, 0xabcd}, 0xa00d, -104, word, pca9535_gpio_word_get_value, 0xf00f),
         reading({read, 2, 0xabcd}, 0x0bc0, 0, {}, pca9535_gpio_word_get_output_value, 0x0ff0),
         reading({read, 2, 0x0008}, 8, 0, {}, ei2c_pca9535_get_output_value, 3),
         reading({read, 2, 0xffff}, 0x4000, 0, {}, ei2c_pca9535_get_output_value, 14),
         reading({read, 2, 0xffff}, 0, 0, {}, ei2c_pca9535_get_output_value, 15),
         reading({read, 2, 0xffff}, 0, 0, {}, ei2c_pca9535_get_output_value, 16),
         reading({read, 0, 4}, 1, 0, pin, ei2c_pca9535_get_value, 2, {{read, 6, 0}, {write, 6, 4}}),
         reading({read, 0, 0x0280}, 0x0200, -104, word, ei2c_pca9535_get_word_value, 0x0300,
                 {{read, 6, 0x8001}, {write, 6, 0x8301}})});
    Buffer value(4);
    for (const uint32_t number : {17U, 32U, 0xffffffffU})
        EXPECT_RUN(
            -1, ei2c_pca9535_get_output_value(
                    nullptr, number, static_cast<uint32_t *>(static_cast<void *>(value.data()))));
    EXPECT_TRUE(value.untouched());
}

TEST(Pca9554, ReadsPins)
{
    const Script pin = scripted::argument_check("pca9554", "pca9554_gpio_get_value", "val");
    const Script byte = scripted::argument_check("pca9554", "pca9554_gpio_byte_get_value", "val");
    check_readings(pca9554,
                   {reading({read, 0, 0x80}, 1, 0, pin, pca9554_gpio_get_value, 7),
                    reading({read, 0, 0xfe}, 0, 0, pin, pca9554_gpio_get_value, 0),
                    reading({read, 0, 0xff}, 0, 0, pin, pca9554_gpio_get_value, 8),
                    reading({read, 0, 0xff}, 0, 0, pin, pca9554_gpio_get_value, 32),
                    reading({read, 0, 0xff}, 0x0c, 0, byte, pca9554_gpio_byte_get_value, 0x0c),
                    reading({read, 0, 0x18}, 0x10, 0, byte, pca9554_gpio_byte_get_value, 0xf1)});
}

TEST(Expanders, LeaveANullDeviceToTheFirstAccess)
{
    uint32_t value = 7;
    uint8_t byte = 7;
    EXPECT_RUN(0, pca9535_gpio_get_value(nullptr, 1, &value), no_device);
    EXPECT_RUN(-1, pca9535_gpio_word_get_value(nullptr, 1, &value), no_device);
    EXPECT_RUN(0, pca9554_gpio_get_value(nullptr, 1, &value), no_device);
    EXPECT_RUN(0, pca9554_gpio_byte_get_value(nullptr, 1, &byte), no_device);
    EXPECT_EQ(value, 7U);
    EXPECT_EQ(byte, 7);
}

TEST(Pca9535, SecondNamesAreTheSameEntries)
{
    decltype(&pca9535_gpio_word_set_value) volatile words[] = {pca9535_gpio_word_set_value,
                                                               ei2c_pca9535_set_word_value};
    decltype(&pca9535_gpio_direction_output) volatile pins[] = {pca9535_gpio_direction_output,
                                                                ei2c_pca9535_set_value};
    EXPECT_EQ(words[0], words[1]);
    EXPECT_EQ(pins[0], pins[1]);
}

} // namespace
