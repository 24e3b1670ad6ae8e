// The devices as a program without the library sees them.
#include "wire.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>

namespace board
{

namespace
{

constexpr uint16_t addresses[4][3] = {
    {0x50, 0x52, 0x54}, // eeprom
    {0x48, 0x49, 0x4A}, // monitor
    {0x20, 0x21, 0x22}, // pins
    {0x10, 0x11, 0x12}, // supply
};

void transfer(uint32_t bus, i2c_msg *messages, uint32_t count)
{
    const std::string path = "/dev/i2c-" + std::to_string(bus);
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0)
        throw std::runtime_error("witness: " + path + ": " + std::strerror(errno));
    i2c_rdwr_ioctl_data request = {messages, count};
    const int done = ioctl(fd, I2C_RDWR, &request);
    const int error = errno;
    (void)close(fd);
    if (done != static_cast<int>(count))
        throw std::runtime_error("witness: transfer with " +
                                 in_hex({static_cast<uint8_t>(messages[0].addr)}) + ": " +
                                 std::strerror(error));
}

} // namespace

std::string name_of(Level level)
{
    return level == Level::root   ? "no-switch"
           : level == Level::near ? "one-switch"
                                  : "two-switches";
}

ei2c_client device(Chip chip, Level level)
{
    ei2c_client client = {};
    client.bus = bench_bus;
    client.addr = addresses[static_cast<size_t>(chip)][static_cast<size_t>(level)];
    if (level == Level::near) {
        client.swi_addr = switch_a;
        client.swi_chnl = 3;
    } else if (level == Level::far) {
        client.swi_addr = uint32_t{switch_a} << 16 | switch_b;
        client.swi_chnl = 5U << 16 | 2;
    }
    return client;
}

namespace wire
{

void write(uint32_t bus, uint16_t address, const Bytes &bytes)
{
    Bytes sent = bytes;
    i2c_msg message = {address, 0, static_cast<uint16_t>(sent.size()), sent.data()};
    transfer(bus, &message, 1);
}

Bytes read(uint32_t bus, uint16_t address, const Bytes &sent, size_t count)
{
    Bytes request = sent;
    Bytes answer(count);
    i2c_msg messages[2] = {
        {address, 0, static_cast<uint16_t>(request.size()), request.data()},
        {address, I2C_M_RD, static_cast<uint16_t>(count), answer.data()},
    };
    if (request.empty())
        transfer(bus, messages + 1, 1);
    else
        transfer(bus, messages, 2);
    return answer;
}

void open_path(const ei2c_client &client)
{
    const uint32_t upstream = client.swi_addr >> 16;
    const uint32_t near = client.swi_addr & 0xFFFF;
    if (upstream != 0)
        write(client.bus, static_cast<uint16_t>(upstream),
              {static_cast<uint8_t>(1U << (client.swi_chnl >> 16))});
    if (near != 0)
        write(client.bus, static_cast<uint16_t>(near),
              {static_cast<uint8_t>(1U << (client.swi_chnl & 0xFFFF))});
}

void close_path(const ei2c_client &client)
{
    for (const uint32_t address : {client.swi_addr & 0xFFFF, client.swi_addr >> 16})
        if (address != 0)
            write(client.bus, static_cast<uint16_t>(address), {0});
}

Bytes memory(const ei2c_client &eeprom, uint16_t offset, size_t count)
{
    open_path(eeprom);
    Bytes bytes =
        read(eeprom.bus, eeprom.addr,
             {static_cast<uint8_t>(offset >> 8), static_cast<uint8_t>(offset & 0xFF)}, count);
    close_path(eeprom);
    return bytes;
}

void set_memory(const ei2c_client &eeprom, uint16_t offset, const Bytes &bytes)
{
    Bytes sent = {static_cast<uint8_t>(offset >> 8), static_cast<uint8_t>(offset & 0xFF)};
    sent.insert(sent.end(), bytes.begin(), bytes.end());
    open_path(eeprom);
    write(eeprom.bus, eeprom.addr, sent);
    close_path(eeprom);
}

Bytes registers(const ei2c_client &client, uint8_t number, size_t count)
{
    open_path(client);
    Bytes bytes = read(client.bus, client.addr, {number}, count);
    close_path(client);
    return bytes;
}

void set_registers(const ei2c_client &client, uint8_t number, const Bytes &bytes)
{
    Bytes sent = {number};
    sent.insert(sent.end(), bytes.begin(), bytes.end());
    open_path(client);
    write(client.bus, client.addr, sent);
    close_path(client);
}

Bytes switches()
{
    const uint8_t a = read(bench_bus, switch_a, {}, 1).front();
    write(bench_bus, switch_a, {1U << 5});
    const uint8_t b = read(bench_bus, switch_b, {}, 1).front();
    write(bench_bus, switch_a, {a});
    return {a, b};
}

} // namespace wire
} // namespace board
