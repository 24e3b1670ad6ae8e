// Shorthands that make pins of a PCA9535 inputs before reading them.
#include "qeli2c.h"

int32_t ei2c_pca9535_get_word_value(const ei2c_client *eclient, uint16_t mask, uint32_t *val)
{
    const int32_t ret = pca9535_gpio_word_direction_input(eclient, mask);
    return ret != 0 ? ret : pca9535_gpio_word_get_value(eclient, mask, val);
}

int32_t ei2c_pca9535_get_value(const ei2c_client *eclient, uint32_t pin, uint32_t *val)
{
    const int32_t ret = pca9535_gpio_direction_input(eclient, pin);
    return ret != 0 ? ret : pca9535_gpio_get_value(eclient, pin, val);
}

int32_t ei2c_pca9535_get_output_value(const ei2c_client *eclient, uint32_t pin, uint32_t *val)
{
    if (pin > 16)
        return -1;
    // The mask leaves pin 15 out: its level is always given as 0.
    return pca9535_gpio_word_get_output_value(eclient, static_cast<uint16_t>((1U << pin) & 0x7FFF),
                                              val);
}
