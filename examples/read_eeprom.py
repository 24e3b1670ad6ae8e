#!/usr/bin/env python3
"""Reads an EEPROM with two-byte word addresses through the kernel's I2C device interface.

    read_eeprom.py BUS ADDRESS OFFSET COUNT

It needs nothing but Python and /dev/i2c-BUS, and knows nothing of simulated boards: it runs on a
machine with that bus, or on a simulated board,

    qeli2c-sim run -- python3 examples/read_eeprom.py 0 0x50 0 16

A program in C fills the same two structures: see linux/i2c.h and linux/i2c-dev.h.
"""
import ctypes
import fcntl
import sys

I2C_RDWR = 0x0707
I2C_M_RD = 0x0001


class Message(ctypes.Structure):  # struct i2c_msg
    _fields_ = [("address", ctypes.c_uint16), ("flags", ctypes.c_uint16), ("length", ctypes.c_uint16),
                ("bytes", ctypes.POINTER(ctypes.c_uint8))]


class Transfer(ctypes.Structure):  # struct i2c_rdwr_ioctl_data
    _fields_ = [("messages", ctypes.POINTER(Message)), ("count", ctypes.c_uint32)]


def read_eeprom(device, address, offset, count):
    """Writes the word address and reads after a repeated START, in one transfer."""
    word = (ctypes.c_uint8 * 2)(offset >> 8, offset & 0xFF)
    data = (ctypes.c_uint8 * count)()
    messages = (Message * 2)(Message(address, 0, 2, word), Message(address, I2C_M_RD, count, data))
    fcntl.ioctl(device, I2C_RDWR, Transfer(messages, 2))
    return bytes(data)


def main():
    if len(sys.argv) != 5:
        print(__doc__, file=sys.stderr)
        return 2
    bus, address, offset, count = (int(argument, 0) for argument in sys.argv[1:])
    try:
        with open(f"/dev/i2c-{bus}", "r+b", buffering=0) as device:
            print(read_eeprom(device, address, offset, count).hex(" "))
    except OSError as error:
        print(f"read_eeprom.py: bus {bus}, address {address:#04x}: {error.strerror}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
