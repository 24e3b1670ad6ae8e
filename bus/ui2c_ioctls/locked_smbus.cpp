// One SMBus transaction on a taken bus, and the reads of MCTP responses, which take no lock.
#include "bus/ui2c_ioctls/core.h"

int32_t ei2c_smbus_xfer(const ei2c_client *eclient, uint32_t read_write, uint32_t command,
                        uint32_t size, uint8_t *data)
{
    QEL_REQUIRE(eclient, -1);
    const Transfer transfer = {Transfer::Kind::smbus, {}, {read_write, command, size, data}};
    return locked_transfer(*eclient, TakeLines::transfer, transfer);
}

int32_t ei2c_smbus_xfer_wtrd(const ei2c_client *eclient, int32_t fd, uint32_t read_write,
                             uint32_t command, uint32_t size, uint8_t *data, uint8_t *read_buf,
                             uint32_t *read_len, int32_t write_only)
{
    QEL_REQUIRE(eclient, -1);
    QEL_REQUIRE(read_len, -1);
    DevicePath path;
    if (!find_device(*eclient, path))
        return -1;
    const Transfer transfer = {Transfer::Kind::smbus, {}, {read_write, command, size, data}};
    const int32_t ret = transfer_once(*eclient, path, transfer);
    *read_len = 0;
    if (read_write != 0 || write_only != 0)
        return ret;
    const int32_t received = i2c_mctp_read_on_fd(fd, read_buf);
    if (received >= 0)
        *read_len = static_cast<uint32_t>(received);
    else
        QEL_RUNTIME_ERRNO("pcie name %.16s, I2C ioctl ret %d, errno = %d, %s\n", eclient->pcie_name,
                          received);
    return received;
}

int32_t qel_ei2c_smbus_xfer_read(const ei2c_client *eclient, int32_t fd, uint8_t *read_buf,
                                 uint32_t *read_len)
{
    QEL_REQUIRE(eclient, -1);
    QEL_REQUIRE(read_buf, -1);
    QEL_REQUIRE(read_len, -1);
    DevicePath path;
    if (!find_device(*eclient, path))
        return -1;
    *read_len = 0;
    const int32_t received = i2c_mctp_read_on_fd(fd, read_buf);
    if (received > 0)
        *read_len = static_cast<uint32_t>(received);
    else
        QEL_RUNTIME("pcie name %.16s, ioctl I2C_MCTP_READ finsh ret: %d \n", eclient->pcie_name,
                    received);
    return received;
}

// The second name, among the SMBus commands.
extern "C" int32_t qel_ei2c_smbus_mctp_read_block_data(const ei2c_client *eclient, int32_t fd,
                                                       uint8_t *read_buf, uint32_t *read_len)
    __attribute__((alias("qel_ei2c_smbus_xfer_read")));
