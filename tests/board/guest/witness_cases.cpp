// Programs that others wrote as witnesses, both ways: i2c-tools, and the kernel's own EEPROM
// driver.
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

#include "cases.h"
#include "command.h"
#include "wire.h"

namespace board
{

namespace
{

// The output of a command that must succeed, without the line end.
std::string output_of(const std::string &line)
{
    Outcome outcome = run_command(line);
    if (outcome.status != 0)
        throw std::runtime_error("'" + line + "' failed: " + outcome.output);
    while (outcome.output.ends_with('\n'))
        outcome.output.pop_back();
    return outcome.output;
}

void tools_read_eeprom(Check &check)
{
    const ei2c_client eeprom = device(Chip::eeprom, Level::near);
    const Bytes bytes = {'Q', 'E', 'L', 0x00, 0xFF, 0x5A};
    equal(check, "result of the write", eeprom_write(&eeprom, 0x4000, bytes.data(), 6), 6);
    equal(check, "the switch as i2cget sees it", output_of("/usr/sbin/i2cget -y 3 0x70"), "0x00");
    (void)output_of("/usr/sbin/i2cset -y 3 0x70 0x08");
    equal(check, "bytes as i2ctransfer sees them",
          output_of("/usr/sbin/i2ctransfer -y 3 w2@0x52 0x40 0 r6"),
          "0x51 0x45 0x4c 0x00 0xff 0x5a");
    (void)output_of("/usr/sbin/i2cset -y 3 0x70 0x00");
}

void tools_write_eeprom(Check &check)
{
    const ei2c_client eeprom = device(Chip::eeprom, Level::far);
    (void)output_of("/usr/sbin/i2cset -y 3 0x70 0x20 && /usr/sbin/i2cset -y 3 0x71 0x04");
    (void)output_of("/usr/sbin/i2ctransfer -y 3 w6@0x54 0x41 0x7e 0xca 0xfe 0x12 0x34");
    (void)output_of("/usr/sbin/i2cset -y 3 0x71 0 && /usr/sbin/i2cset -y 3 0x70 0");
    Bytes received(4);
    equal(check, "result of the read", eeprom_read(&eeprom, 0x417E, received.data(), 4), 4);
    equal(check, "bytes", received, {0xCA, 0xFE, 0x12, 0x34});
}

// The kernel's at24 driver on an EEPROM of the library's, bound for the length of a case.
struct KernelDriver {
    KernelDriver() { (void)output_of("echo 24c512 0x57 > /sys/bus/i2c/devices/i2c-9/new_device"); }
    ~KernelDriver() { (void)run_command("echo 0x57 > /sys/bus/i2c/devices/i2c-9/delete_device"); }
    KernelDriver(const KernelDriver &) = delete;
    KernelDriver &operator=(const KernelDriver &) = delete;
};

constexpr char driver_file[] = "/sys/bus/i2c/devices/9-0057/eeprom";

ei2c_client bound_eeprom()
{
    ei2c_client client = {};
    client.bus = 9;
    client.addr = 0x57;
    return client;
}

void driver_reads(Check &check)
{
    const ei2c_client eeprom = bound_eeprom();
    const Bytes bytes = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0};
    equal(check, "result of the write", eeprom_write(&eeprom, 0x015B, bytes.data(), 10), 10);
    const KernelDriver driver;
    const int fd = open(driver_file, O_RDONLY | O_CLOEXEC);
    Bytes seen(10);
    is_true(check, "the driver's file can be read",
            fd >= 0 && pread(fd, seen.data(), 10, 0x015B) == 10);
    (void)close(fd);
    equal(check, "bytes as the kernel's driver sees them", seen, bytes);
}

void driver_writes(Check &check)
{
    const ei2c_client eeprom = bound_eeprom();
    const Bytes bytes = {0x31, 0x41, 0x59, 0x26, 0x53};
    Bytes received(5);
    {
        const KernelDriver driver;
        const int fd = open(driver_file, O_WRONLY | O_CLOEXEC);
        is_true(check, "the driver's file can be written",
                fd >= 0 && pwrite(fd, bytes.data(), 5, 0x0200) == 5);
        (void)close(fd);
    }
    equal(check, "result of the read", eeprom_read(&eeprom, 0x0200, received.data(), 5), 5);
    equal(check, "bytes", received, bytes);
}

// I2C_SLAVE is refused for an address a driver owns, I2C_SLAVE_FORCE is not.
void driver_owns_address(Check &check)
{
    const ei2c_client eeprom = bound_eeprom();
    const Bytes bytes = {0xAB, 0xCD};
    const KernelDriver driver;
    uint8_t value = 0;
    refused(check, "an SMBus read", ei2c_smbus_read_byte_data(&eeprom, 0, &value), -1, EBUSY);
    refused(check, "an SMBus write", ei2c_smbus_write_byte_data(&eeprom, 0, 0), -1, EBUSY);
    equal(check, "result of a combined transfer", i2cWrite(&eeprom, 2, bytes.data(), 2, 0x0300), 1);
    Bytes received(2);
    equal(check, "result of reading it back", i2cRead(&eeprom, 2, received.data(), 2, 0x0300), 2);
    equal(check, "bytes", received, bytes);
}

} // namespace

void add_witness_cases(Cases &cases)
{
    cases.push_back({"witness/i2c-tools-read-eeprom", tools_read_eeprom});
    cases.push_back({"witness/i2c-tools-write-eeprom", tools_write_eeprom});
    cases.push_back({"witness/kernel-driver-reads", driver_reads});
    cases.push_back({"witness/kernel-driver-writes", driver_writes});
    cases.push_back({"refusal/address-of-a-kernel-driver", driver_owns_address});
}

} // namespace board
