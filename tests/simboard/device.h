// An I2C device file as a test uses it: transfers with their result or negative errno.
#ifndef TESTS_SIMBOARD_DEVICE_H
#define TESTS_SIMBOARD_DEVICE_H

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

class Device
{
public:
    explicit Device(unsigned bus) : Device("/dev/i2c-" + std::to_string(bus), O_RDWR) {}
    Device(const std::string &path, int flags) : fd_(open(path.c_str(), flags | O_CLOEXEC)) {}
    ~Device() { close(fd_); }
    Device(const Device &) = delete;
    Device &operator=(const Device &) = delete;

    int fd() const { return fd_; }

    int request(unsigned long number, unsigned long argument) const
    {
        return ioctl(fd_, number, argument) < 0 ? -errno : 0;
    }

    int transfer(std::vector<i2c_msg> messages) const
    {
        i2c_rdwr_ioctl_data data = {messages.data(), static_cast<uint32_t>(messages.size())};
        const int result = ioctl(fd_, I2C_RDWR, &data);
        return result < 0 ? -errno : result;
    }

    int write(uint16_t address, Bytes bytes) const
    {
        return transfer({{address, 0, static_cast<uint16_t>(bytes.size()), bytes.data()}});
    }

    int read(uint16_t address, Bytes &bytes) const
    {
        return transfer({{address, I2C_M_RD, static_cast<uint16_t>(bytes.size()), bytes.data()}});
    }

    // Writes `first`, then reads into `bytes` after a repeated START.
    int write_read(uint16_t address, Bytes first, Bytes &bytes) const
    {
        return transfer({{address, 0, static_cast<uint16_t>(first.size()), first.data()},
                         {address, I2C_M_RD, static_cast<uint16_t>(bytes.size()), bytes.data()}});
    }

    int smbus(uint8_t read_write, uint8_t command, uint32_t size, i2c_smbus_data *data) const
    {
        i2c_smbus_ioctl_data request = {read_write, command, size, data};
        return ioctl(fd_, I2C_SMBUS, &request) < 0 ? -errno : 0;
    }

private:
    int fd_;
};

#endif
