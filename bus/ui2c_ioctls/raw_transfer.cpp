// One i2c-dev request each: the only place that talks to the kernel's I2C interface.
#include <linux/i2c-dev.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "bus/ui2c_ioctls/core.h"

namespace
{

// Writes of 0xB0 to this register are put on record.
constexpr uint32_t kAuditedBus = 4;
constexpr uint16_t kAuditedAddr = 0x60;
constexpr uint8_t kAuditedRegister = 0x57;
constexpr uint8_t kAuditedValue = 0xB0;

// 0 when the device file is ready for reading, or for writing too when asked, within a second.
int32_t wait_ready(int32_t fd, bool for_writing)
{
    if (fd >= FD_SETSIZE) {
        errno = EINVAL;
        return -1;
    }
    fd_set readable;
    fd_set writable;
    (void)qel_memset_s(&readable, sizeof(readable), 0, sizeof(readable));
    FD_SET(fd, &readable);
    if (for_writing) {
        (void)qel_memset_s(&writable, sizeof(writable), 0, sizeof(writable));
        FD_SET(fd, &writable);
    }
    timeval timeout = {1, 0};
    const int ready =
        sigwrap_select(fd + 1, &readable, for_writing ? &writable : nullptr, nullptr, &timeout);
    if (ready == 0)
        errno = ETIMEDOUT;
    return ready > 0 ? 0 : -1;
}

void audit_rdwr(const ui2c_adapter &adapter, uint16_t addr, const i2c_msg *msgs, int32_t num)
{
    if (adapter.bus != kAuditedBus || addr != kAuditedAddr || num != 1 || msgs[0].flags != 0 ||
        msgs[0].len < 2 || msgs[0].buf == nullptr)
        return;
    const uint8_t *bytes = msgs[0].buf;
    const bool one_byte_offset = bytes[0] == kAuditedRegister && bytes[1] == kAuditedValue;
    const bool two_byte_offset = msgs[0].len >= 3 && bytes[0] == 0 &&
                                 bytes[1] == kAuditedRegister && bytes[2] == kAuditedValue;
    if (one_byte_offset || two_byte_offset)
        _ssp_info(64, kLogTag, __LINE__, "ui2c_rdwr_xfer", "[%d] bus=%d, addr=%x flag=%d", getpid(),
                  static_cast<int>(adapter.bus), addr, msgs[0].flags);
}

void audit_smbus(const ui2c_adapter &adapter, uint16_t addr, char read_write, uint8_t command,
                 int32_t size, const uint8_t *data)
{
    if (adapter.bus != kAuditedBus || addr != kAuditedAddr || command != kAuditedRegister ||
        read_write != I2C_SMBUS_WRITE || data == nullptr)
        return;
    const int bus = static_cast<int>(adapter.bus);
    if ((size == I2C_SMBUS_BYTE_DATA || size == I2C_SMBUS_WORD_DATA) && data[0] == kAuditedValue) {
        const unsigned high = size == I2C_SMBUS_WORD_DATA ? data[1] : 0;
        const unsigned value = high << 8 | data[0];
        _ssp_info(64, kLogTag, __LINE__, "ui2c_smbus_xfer",
                  "[%d] bus=%d, addr=%x r/w=%d cmd=%x data=%x", getpid(), bus, addr, read_write,
                  command, value);
    } else if (size == I2C_SMBUS_BLOCK_DATA && data[0] != 0 && data[1] == kAuditedValue) {
        _ssp_info(64, kLogTag, __LINE__, "ui2c_smbus_xfer",
                  "[%d] bus=%d, addr=%x r/w=%d cmd=%x len=%x", getpid(), bus, addr, read_write,
                  command, data[0]);
    }
}

} // namespace

int32_t ui2c_rdwr_xfer(ui2c_adapter *adapter, uint16_t addr, i2c_msg *msgs, int32_t num)
{
    QEL_REQUIRE(msgs, -1);
    if (adapter == nullptr)
        return ui2c_adapter_fd(adapter);
    const int bus = static_cast<int>(adapter->bus);
    QEL_RUNTIME("ui2c_rdwr_xfer() bus=%d, addr=%x num=%d chl/offset=%d start\n", bus, addr, num,
                msgs[0].buf == nullptr ? -1 : msgs[0].buf[0]);
    audit_rdwr(*adapter, addr, msgs, num);

    const int32_t fd = ui2c_adapter_fd(adapter);
    if (fd < 0) {
        QEL_ERROR_ERRNO(132, "fd = %d, errno = %d, %s\n", fd);
        return QELI2C_NO_DEVICE_FILE;
    }
    int32_t ret = ioctl(fd, I2C_SLAVE_FORCE, static_cast<unsigned long>(addr));
    if (ret < 0) {
        QEL_ERROR_ERRNO(132, "I2C_SLAVE_FORCE ioctl = %d, errno = %d, %s\n", ret);
    } else {
        errno = 0;
        if (wait_ready(fd, true) < 0)
            return -1;
        i2c_rdwr_ioctl_data request = {};
        request.msgs = msgs;
        request.nmsgs = static_cast<uint32_t>(num) & 0xFF;
        ret = ioctl(fd, I2C_RDWR, &request);
        if (ret < 0)
            QEL_RUNTIME_ERRNO("I2C_RDWR ioctl = %d, errno = %d, %s\n", ret);
    }
    QEL_RUNTIME("ui2c_rdwr_xfer() bus=%d, addr=%x stop\n", bus, addr);
    return ret;
}

int32_t ui2c_raw_read_byte(ui2c_adapter *adap, uint16_t addr, uint8_t *value)
{
    QEL_REQUIRE(adap, -1);
    QEL_REQUIRE(value, -1);
    uint8_t byte = 0;
    i2c_msg message = {addr, I2C_M_RD, 1, &byte};
    const int32_t ret = ui2c_rdwr_xfer(adap, addr, &message, 1);
    if (ret < 0)
        QEL_ERROR_ERRNO(132, "ui2c_rdwr_xfer = %d, errno = %d, %s\n", ret);
    else
        *value = byte;
    return ret;
}

int32_t ui2c_raw_write_byte(ui2c_adapter *adapter, uint16_t addr, uint8_t value)
{
    i2c_msg message = {addr, 0, 1, &value};
    const int32_t ret = ui2c_rdwr_xfer(adapter, addr, &message, 1);
    if (ret < 0)
        QEL_RUNTIME_ERRNO("ui2c_rdwr_xfer = %d, errno = %d, %s\n", ret);
    return ret;
}

int32_t ui2c_smbus_xfer(ui2c_adapter *adapter, uint16_t addr, uint16_t flags, char read_write,
                        uint8_t command, int32_t size, uint8_t *data)
{
    if (adapter == nullptr)
        return ui2c_adapter_fd(adapter);
    const int bus = static_cast<int>(adapter->bus);
    QEL_RUNTIME("ui2c_smbus_xfer() bus=%d, addr=%x, r/w=%d cmd=%d start\n", bus, addr, read_write,
                command);
    audit_smbus(*adapter, addr, read_write, command, size, data);

    const int32_t fd = ui2c_adapter_fd(adapter);
    if (fd < 0) {
        QEL_ERROR_ERRNO(132, "fd = %d, errno = %d, %s\n", fd);
        return QELI2C_NO_DEVICE_FILE;
    }
    // Set on every call: the descriptor is shared, and the device before may have wanted it
    // otherwise.
    const unsigned long pec = (flags & QELI2C_CLIENT_PEC) != 0 ? 1 : 0;
    int32_t ret = ioctl(fd, I2C_SLAVE, static_cast<unsigned long>(addr));
    if (ret >= 0)
        ret = ioctl(fd, I2C_PEC, pec);
    if (ret >= 0) {
        errno = 0;
        if (wait_ready(fd, false) < 0) {
            QEL_ERROR_TEXT(132, "Error waiting for bus to be readable");
            return -1;
        }
        const bool both_ways = size == I2C_SMBUS_BLOCK_PROC_CALL;
        // Not by an initialiser, of which the compiler makes a slow string instruction.
        alignas(i2c_smbus_data) uint8_t area[QELI2C_SMBUS_AREA];
        (void)qel_memset_s(area, sizeof(area), 0, sizeof(area));
        if (data != nullptr && (read_write == I2C_SMBUS_WRITE || both_ways))
            (void)qel_memcpy_s(area, sizeof(area), data, QELI2C_SMBUS_AREA);
        i2c_smbus_ioctl_data request = {};
        request.read_write = static_cast<uint8_t>(read_write);
        request.command = command;
        request.size = static_cast<uint32_t>(size) & 0x7FFFFFFF;
        request.data = static_cast<i2c_smbus_data *>(static_cast<void *>(area));
        ret = ioctl(fd, I2C_SMBUS, &request);
        if (ret >= 0 && data != nullptr && (read_write == I2C_SMBUS_READ || both_ways))
            (void)qel_memcpy_s(data, QELI2C_SMBUS_AREA, area, sizeof(area));
    }
    QEL_RUNTIME("ui2c_smbus_xfer() bus=%d, addr=%x stop\n", bus, addr);
    return ret;
}
