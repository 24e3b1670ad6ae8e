// The status bit of a bus controller, read from its register without any bus traffic.
#include "bus/cancellation.h"
#include "bus/report.h"
#include "qeli2c.h"

namespace
{
constexpr char kLogTag[] = "libi2c_qelifc";
constexpr uint32_t kHighestBus = 15;
constexpr uint32_t kFirstRegister = 0x1E78A088;
} // namespace

int32_t i2c_bus_status_check(uint32_t busNo, uint8_t *status)
{
    QEL_REQUIRE(status, -1);
    if (busNo > kHighestBus) {
        QEL_ERROR(130, "busNo: %u, is invalid value!\n", busNo);
        return -1;
    }
    const uint32_t address = kFirstRegister + (busNo << 7);
    uint32_t data = 0;
    const CancellationPutOff put_off;
    if (mmap_read32(address, &data) != 0) {
        QEL_ERROR(130, "mmap read  error, regAddr: 0x%x\n", address);
        return -1;
    }
    *status = (data >> 16) & 1;
    QEL_RUNTIME("regAddr: 0x%x, regData: 0x%x, status: 0x%x\n", address, data, *status);
    return 0;
}
