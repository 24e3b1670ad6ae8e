// One locked access in three ways: through the library, as the same system calls written by hand,
// and as programs do it with libi2c, the I2C library of i2c-tools, and flock(2).
#ifndef QELI2C_BENCH_WAYS_H
#define QELI2C_BENCH_WAYS_H

#include "qeli2c.h"

namespace bench
{

enum class Access { rdwr, smbus };

struct Device {
    Access access;
    unsigned switches; // in front of it, 0 to 2
    ei2c_client client;
};

Device device_behind(Access access, unsigned switches);

// What the other two ways work with: a descriptor of the same device file, a semaphore set, a file
// for flock. Before any of them is called.
bool prepare_ways();

// One access each: a register written with I2C_RDWR, or read as SMBus byte data.
bool by_library(const Device &device);
bool by_hand(const Device &device);
bool by_libi2c(const Device &device);

using Way = bool (*)(const Device &);

} // namespace bench

#endif
