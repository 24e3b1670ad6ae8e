// Driver for the PCA9535, 16 pins: the registers are byte pairs, port 0 in the low byte of each
// word.
#include "bus/report.h"
#include "drivers/expander.h"

namespace
{

constexpr char kLogTag[] = "pca9535";
constexpr uint8_t kInputPort = 0;
constexpr uint8_t kOutputPort = 2;
constexpr uint8_t kConfiguration = 6;

using Pca9535 = Expander<uint16_t, ei2c_smbus_read_word_data, ei2c_smbus_write_word_data,
                         kOutputPort, kConfiguration>;

} // namespace

int32_t pca9535_gpio_direction_input(const ei2c_client *eclient, uint32_t pin)
{
    return Pca9535::set_input(eclient, Pca9535::bit(pin));
}

int32_t pca9535_gpio_direction_output(const ei2c_client *eclient, uint32_t pin, int value)
{
    return Pca9535::set_output(eclient, Pca9535::bit(pin), Pca9535::all(value));
}

int32_t pca9535_gpio_get_value(const ei2c_client *eclient, uint32_t pin, uint32_t *val)
{
    uint16_t word = 0;
    const int32_t ret = ei2c_smbus_read_word_data(eclient, kInputPort, &word);
    QEL_REQUIRE(val, -1);
    if (ret < 0)
        return 0;
    *val = (word & Pca9535::bit(pin)) != 0 ? 1 : 0;
    return ret;
}

int32_t pca9535_gpio_set_value(const ei2c_client *eclient, uint32_t pin, int value)
{
    return Pca9535::set_level(eclient, Pca9535::bit(pin), Pca9535::all(value));
}

int32_t pca9535_gpio_word_direction_input(const ei2c_client *eclient, uint16_t mask)
{
    return Pca9535::set_input(eclient, mask);
}

int32_t pca9535_gpio_word_direction_output(const ei2c_client *eclient, uint16_t mask,
                                           uint16_t value)
{
    return Pca9535::set_output(eclient, mask, value);
}

int32_t pca9535_gpio_word_get_value(const ei2c_client *eclient, uint16_t mask, uint32_t *val)
{
    uint16_t word = 0;
    const int32_t ret = ei2c_smbus_read_word_data(eclient, kInputPort, &word);
    QEL_REQUIRE(val, -1);
    if (ret < 0)
        return ret;
    *val = word & mask;
    return ret;
}

int32_t pca9535_gpio_word_set_value(const ei2c_client *eclient, uint16_t mask, uint16_t value)
{
    return Pca9535::set_level(eclient, mask, value);
}

int32_t pca9535_gpio_word_get_output_value(const ei2c_client *client, uint16_t mask, uint32_t *val)
{
    QEL_REQUIRE(client, -1);
    QEL_REQUIRE(val, -1);
    uint16_t word = 0;
    const int32_t ret = ei2c_smbus_read_word_data(client, kOutputPort, &word);
    if (ret < 0)
        return 0;
    *val = word & mask;
    return ret;
}

// The second names, among the shorthands.
extern "C" int32_t ei2c_pca9535_set_word_value(const ei2c_client *eclient, uint16_t mask,
                                               uint16_t value)
    __attribute__((alias("pca9535_gpio_word_set_value")));
extern "C" int32_t ei2c_pca9535_set_value(const ei2c_client *eclient, uint32_t pin, int value)
    __attribute__((alias("pca9535_gpio_direction_output")));
