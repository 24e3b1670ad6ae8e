// The ways of an access. What is written by hand has no checks, no retries and no log lines, but
// the library's system calls in the library's order.
#include "ways.h"

#include <cerrno>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <unistd.h>

extern "C" {
#include <i2c/smbus.h>
}

namespace bench
{

namespace
{

constexpr uint32_t kBus = 3;
constexpr uint16_t kAddress = 0x30;
constexpr uint16_t kNear = 0x71;
constexpr uint16_t kUpstream = 0x70;
constexpr uint8_t kNearChannel = 3;
constexpr uint8_t kUpstreamChannel = 5;
constexpr uint8_t kRegister = 0x10;

int device_file = -1;
int flock_file = -1;
int semaphores = -1;

bool wait_ready(bool for_writing)
{
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(device_file, &readable);
    fd_set writable = readable;
    timeval timeout = {1, 0};
    return select(device_file + 1, &readable, for_writing ? &writable : nullptr, nullptr,
                  &timeout) > 0;
}

bool rdwr_once(uint16_t address, i2c_msg *messages, uint32_t count)
{
    if (ioctl(device_file, I2C_SLAVE_FORCE, static_cast<unsigned long>(address)) < 0 ||
        !wait_ready(true))
        return false;
    i2c_rdwr_ioctl_data request = {messages, count};
    return ioctl(device_file, I2C_RDWR, &request) == static_cast<int>(count);
}

bool smbus_read_once(uint16_t address, uint8_t command, uint8_t &value)
{
    if (ioctl(device_file, I2C_SLAVE, static_cast<unsigned long>(address)) < 0 ||
        ioctl(device_file, I2C_PEC, 0UL) < 0 || !wait_ready(false))
        return false;
    i2c_smbus_data data;
    i2c_smbus_ioctl_data request = {I2C_SMBUS_READ, command, I2C_SMBUS_BYTE_DATA, &data};
    if (ioctl(device_file, I2C_SMBUS, &request) < 0)
        return false;
    value = data.byte;
    return true;
}

bool set_switch(uint16_t address, uint8_t channels)
{
    i2c_msg message = {address, 0, 1, &channels};
    return rdwr_once(address, &message, 1);
}

bool lock_file(short type)
{
    struct flock whole = {};
    whole.l_type = type;
    whole.l_whence = SEEK_SET;
    return fcntl(device_file, F_SETLKW, &whole) == 0;
}

bool take_semaphore()
{
    sembuf operations[2] = {{0, 0, 0}, {0, 1, SEM_UNDO}};
    return semop(semaphores, operations, 2) == 0;
}

bool release_semaphore()
{
    sembuf operation = {0, -1, SEM_UNDO | IPC_NOWAIT};
    return semop(semaphores, &operation, 1) == 0;
}

bool libi2c_switch(uint16_t address, uint8_t channels)
{
    return ioctl(flock_file, I2C_SLAVE_FORCE, static_cast<unsigned long>(address)) == 0 &&
           i2c_smbus_write_byte(flock_file, channels) == 0;
}

bool write_register_by_hand()
{
    uint8_t bytes[] = {kRegister, 0xA5};
    i2c_msg message = {kAddress, 0, sizeof bytes, bytes};
    return rdwr_once(kAddress, &message, 1);
}

bool libi2c_access(Access access)
{
    if (access == Access::smbus)
        return ioctl(flock_file, I2C_SLAVE, static_cast<unsigned long>(kAddress)) == 0 &&
               i2c_smbus_read_byte_data(flock_file, kRegister) >= 0;
    uint8_t bytes[] = {kRegister, 0xA5};
    i2c_msg message = {kAddress, 0, sizeof bytes, bytes};
    i2c_rdwr_ioctl_data request = {&message, 1};
    return ioctl(flock_file, I2C_RDWR, &request) == 1;
}

} // namespace

Device device_behind(Access access, unsigned switches)
{
    Device device = {access, switches, {}};
    device.client.bus = kBus;
    device.client.addr = kAddress;
    if (switches >= 1) {
        device.client.swi_addr = kNear;
        device.client.swi_chnl = kNearChannel;
    }
    if (switches == 2) {
        device.client.swi_addr |= kUpstream << 16;
        device.client.swi_chnl |= kUpstreamChannel << 16;
    }
    return device;
}

bool prepare_ways()
{
    device_file = open("/dev/i2c-3", O_RDWR | O_CLOEXEC);
    flock_file = open("/dev/i2c-3", O_RDWR | O_CLOEXEC);
    semaphores = semget(IPC_PRIVATE, 1, 0600);
    return device_file >= 0 && flock_file >= 0 && semaphores >= 0;
}

bool by_library(const Device &device)
{
    if (device.access == Access::smbus) {
        uint8_t value = 0;
        return ei2c_smbus_read_byte_data(&device.client, kRegister, &value) >= 0;
    }
    uint8_t bytes[] = {kRegister, 0xA5};
    i2c_msg message = {kAddress, 0, sizeof bytes, bytes};
    return ei2c_rdwr_xfer(&device.client, &message, 1) == 1;
}

bool by_hand(const Device &device)
{
    uint8_t value = 0;
    bool good = take_semaphore() && lock_file(F_WRLCK);
    if (device.switches == 2)
        good = set_switch(kUpstream, 1U << kUpstreamChannel) && good;
    if (device.switches >= 1)
        good = set_switch(kNear, 1U << kNearChannel) && good;
    good = (device.access == Access::smbus ? smbus_read_once(kAddress, kRegister, value)
                                           : write_register_by_hand()) &&
           good;
    if (device.switches >= 1)
        good = set_switch(kNear, 0) && good;
    if (device.switches == 2)
        good = set_switch(kUpstream, 0) && good;
    good = lock_file(F_UNLCK) && good;
    return release_semaphore() && good;
}

bool by_libi2c(const Device &device)
{
    bool good = flock(flock_file, LOCK_EX) == 0;
    if (device.switches == 2)
        good = libi2c_switch(kUpstream, 1U << kUpstreamChannel) && good;
    if (device.switches >= 1)
        good = libi2c_switch(kNear, 1U << kNearChannel) && good;
    good = libi2c_access(device.access) && good;
    if (device.switches >= 1)
        good = libi2c_switch(kNear, 0) && good;
    if (device.switches == 2)
        good = libi2c_switch(kUpstream, 0) && good;
    return flock(flock_file, LOCK_UN) == 0 && good;
}

} // namespace bench
