// See cost.h.
#include "cost.h"
#include "calls.h"
#include "link.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

namespace board
{

namespace
{

constexpr size_t kRounds = 301;

bool request(int fd, i2c_msg *messages, uint32_t count)
{
    i2c_rdwr_ioctl_data data = {messages, count};
    return ioctl(fd, I2C_RDWR, &data) == static_cast<int>(count);
}

bool set_switch(int fd, uint32_t address, uint32_t channels)
{
    auto value = static_cast<uint8_t>(channels);
    i2c_msg message = {static_cast<uint16_t>(address), 0, 1, &value};
    return address == 0 || request(fd, &message, 1);
}

bool bare_read(int fd, const ei2c_client &client, i2c_msg *messages)
{
    const uint32_t upstream = client.swi_addr >> 16;
    const uint32_t near = client.swi_addr & 0xFFFF;
    return set_switch(fd, upstream, 1U << (client.swi_chnl >> 16)) &&
           set_switch(fd, near, 1U << (client.swi_chnl & 0xFFFF)) && request(fd, messages, 2) &&
           set_switch(fd, near, 0) && set_switch(fd, upstream, 0);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

template <typename Call>
double microseconds(Call call)
{
    const auto start = std::chrono::steady_clock::now();
    const bool good = call();
    const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
    if (!good)
        throw std::runtime_error(std::string("a read failed: ") + std::strerror(errno));
    return time.count();
}

} // namespace

std::string note_cost(const std::string &path)
{
    const ei2c_client client = client_at(path);
    uint8_t sent[2] = {0x20, 0};
    uint8_t received[2] = {};
    i2c_msg messages[2] = {{client.addr, 0, 2, sent}, {client.addr, I2C_M_RD, 2, received}};
    const int fd = open(("/dev/i2c-" + std::to_string(client.bus)).c_str(), O_RDWR | O_CLOEXEC);
    std::vector<double> bare;
    std::vector<double> ratios;
    for (size_t i = 0; i < kRounds; i++) {
        const double library =
            microseconds([&] { return ei2c_rdwr_xfer(&client, messages, 2) == 2; });
        bare.push_back(microseconds([&] { return bare_read(fd, client, messages); }));
        ratios.push_back(library / bare.back());
    }
    (void)close(fd);
    char line[128];
    (void)std::snprintf(line, sizeof line, "NOTE cost at %s: %.3f times the bare requests, %.0f us",
                        path.c_str(), median(ratios), median(bare));
    link::say(line);
    return "";
}

} // namespace board
