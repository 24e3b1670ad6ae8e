// What only shows in a program of its own. With a number, reads register 0 of the device that the
// inherited descriptor of that number is set to; the register is the exit status. With "plain"
// behind it, the register that the device's pointer stands on, by read. With "semaphore", makes
// three semaphores, two of them of buses, and prints their ids. With "open" and a path, tells
// whether that can be opened, and whether the program was started with more rights than its caller
// has.
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <sys/auxv.h>
#include <sys/ioctl.h>
#include <sys/sem.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char **argv)
{
    if (argc == 2 && std::strcmp(argv[1], "semaphore") == 0) {
        const key_t keys[] = {0x3060, 0x306f, 0x3001};
        for (const key_t key : keys) {
            std::printf("%d\n", semget(key, 1, IPC_CREAT | 0600));
        }
        return 0;
    }
    if (argc == 3 && std::strcmp(argv[1], "open") == 0) {
        std::printf("%s %s\n", open(argv[2], O_RDWR) >= 0 ? "opened" : "refused",
                    getauxval(AT_SECURE) != 0 ? "secure" : "plain");
        return 0;
    }
    if (argc == 3) {
        unsigned char byte = 0;
        return read(std::atoi(argv[1]), &byte, 1) == 1 ? byte : 255;
    }
    i2c_smbus_data data = {};
    i2c_smbus_ioctl_data request = {I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE_DATA, &data};
    return argc == 2 && ioctl(std::atoi(argv[1]), I2C_SMBUS, &request) == 0 ? data.byte : 255;
}
