// Switch driver for the PCA9548: one control register, written and read as a plain byte; bit n
// opens channel n.
#include "bus/report.h"
#include "qeli2c.h"

namespace
{
constexpr char kLogTag[] = "ui2c_swi";
constexpr uint32_t kHighestChannel = 7;
} // namespace

int32_t ui2c_swi_select(ui2c_switch *swi, uint32_t channel)
{
    QEL_REQUIRE_AS("pca9548_select", swi, -1);
    if (channel > kHighestChannel)
        return QELI2C_NO_DEVICE_FILE;
    return ui2c_raw_write_byte(swi->adapter, swi->addr, static_cast<uint8_t>(1U << channel));
}

int32_t ui2c_swi_deselect(ui2c_switch *swi, uint32_t /*channel*/)
{
    QEL_REQUIRE_AS("pca9548_deselect", swi, -1);
    return ui2c_raw_write_byte(swi->adapter, swi->addr, 0);
}

int32_t ui2c_swi_status(ui2c_switch *swi, uint8_t *val)
{
    QEL_REQUIRE(swi, -1);
    QEL_REQUIRE(val, -1);
    return ui2c_raw_read_byte(swi->adapter, swi->addr, val);
}
