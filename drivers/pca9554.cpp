// Driver for the PCA9554, 8 pins.
#include "bus/report.h"
#include "drivers/expander.h"

namespace
{

constexpr char kLogTag[] = "pca9554";
constexpr uint8_t kInputPort = 0;
constexpr uint8_t kOutputPort = 1;
constexpr uint8_t kConfiguration = 3;

using Pca9554 = Expander<uint8_t, ei2c_smbus_read_byte_data, ei2c_smbus_write_byte_data,
                         kOutputPort, kConfiguration>;

} // namespace

int32_t pca9554_gpio_direction_input(const ei2c_client *eclient, uint32_t pin)
{
    return Pca9554::set_input(eclient, Pca9554::bit(pin));
}

int32_t pca9554_gpio_direction_output(const ei2c_client *eclient, uint32_t pin, int value)
{
    return Pca9554::set_output(eclient, Pca9554::bit(pin), Pca9554::all(value));
}

int32_t pca9554_gpio_get_value(const ei2c_client *eclient, uint32_t pin, uint32_t *val)
{
    uint8_t byte = 0;
    const int32_t ret = ei2c_smbus_read_byte_data(eclient, kInputPort, &byte);
    QEL_REQUIRE(val, -1);
    if (ret < 0)
        return 0;
    *val = (byte & Pca9554::bit(pin)) != 0 ? 1 : 0;
    return ret;
}

int32_t pca9554_gpio_set_value(const ei2c_client *eclient, uint32_t pin, int value)
{
    return Pca9554::set_level(eclient, Pca9554::bit(pin), Pca9554::all(value));
}

int32_t pca9554_gpio_byte_direction_input(const ei2c_client *eclient, uint8_t mask)
{
    return Pca9554::set_input(eclient, mask);
}

int32_t pca9554_gpio_byte_direction_output(const ei2c_client *eclient, uint8_t mask, uint8_t value)
{
    return Pca9554::set_output(eclient, mask, value);
}

int32_t pca9554_gpio_byte_get_value(const ei2c_client *eclient, uint8_t mask, uint8_t *val)
{
    uint8_t byte = 0;
    const int32_t ret = ei2c_smbus_read_byte_data(eclient, kInputPort, &byte);
    QEL_REQUIRE(val, -1);
    if (ret < 0)
        return 0;
    *val = byte & mask;
    return ret;
}

int32_t pca9554_gpio_byte_set_value(const ei2c_client *eclient, uint8_t mask, uint8_t value)
{
    return Pca9554::set_level(eclient, mask, value);
}
