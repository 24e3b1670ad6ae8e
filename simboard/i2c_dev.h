// The requests of i2c-dev, answered as the kernel's drivers/i2c/i2c-dev.c does.
#ifndef SIMBOARD_I2C_DEV_H
#define SIMBOARD_I2C_DEV_H

#include <linux/i2c.h>
#include <stddef.h>

#include "simboard/descriptor.h"
#include "simboard/state.h"

namespace simboard
{

constexpr unsigned kFirstRequest = 0x0701; // I2C_RETRIES
constexpr unsigned kLastRequest = 0x0720;  // I2C_SMBUS

// The kernel refuses any address it cannot reach; here that is noticed for null pointers and
// offsets from them.
inline bool is_bad(const void *pointer)
{
    return reinterpret_cast<uintptr_t>(pointer) < 4096;
}

// The result of the ioctl, or a negative errno. fd is the open device that `descriptor` was read
// from.
long device_request(State &state, int fd, Descriptor &descriptor, unsigned request, void *argument);

// I2C_SMBUS with its data in our own memory: sends the messages that the kernel's emulation makes
// of the transaction (drivers/i2c/i2c-core-smbus.c). 0 or a negative errno.
int smbus_transaction(State &state, Bus &bus, const Descriptor &descriptor, bool read,
                      uint8_t command, uint32_t size, i2c_smbus_data &data);

// read and write: the result of the call, or a negative errno.
long plain_transfer(State &state, int fd, const Descriptor &descriptor, bool reading, void *buffer,
                    size_t count);

} // namespace simboard

#endif
