// Register reads of EPLDs on subcards, and the table of such EPLDs, which has no entries.
#include "bus/report.h"
#include "qeli2c.h"

struct card_epld {
    uint32_t reserved[8];
};

namespace
{

constexpr char kLogTag[] = "epld_subcard";
constexpr uint32_t kEntries = 0;
card_epld table[1] = {};

} // namespace

int32_t epld_card_epld_read(const ei2c_client *client, uint8_t ucReg, uint8_t *buf, uint16_t wLen)
{
    QEL_REQUIRE(client, -1);
    QEL_REQUIRE(buf, -1);
    i2c_msg messages[2] = {{client->addr, 0, 1, &ucReg}, {client->addr, I2C_M_RD, wLen, buf}};
    return ei2c_rdwr_xfer(client, messages, 2) == 2 ? 0 : -1;
}

int32_t card_epld_read(void)
{
    return -1;
}

uint32_t card_epld_cnt(void)
{
    return kEntries;
}

card_epld *card_epld_dev(uint32_t dwIndex)
{
    return dwIndex < card_epld_cnt() ? &table[dwIndex] : nullptr;
}
