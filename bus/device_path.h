// A device and the switches in front of it, as one lookup found them.
#ifndef QELI2C_BUS_DEVICE_PATH_H
#define QELI2C_BUS_DEVICE_PATH_H

#include "qeli2c.h"

// The links between switch records follow the latest lookup of any thread, so a call keeps its own.
struct DevicePath {
    ui2c_client *client = nullptr;
    ui2c_switch *near = nullptr;
    ui2c_switch *upstream = nullptr;
};

// False when the device's record cannot be had.
bool find_device(const ei2c_client &eclient, DevicePath &path);

#endif
