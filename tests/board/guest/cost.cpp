// See cost.h.
#include "cost.h"
#include "link.h"
#include "tests/calls/call.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <stdexcept>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <unistd.h>
#include <vector>

namespace board
{

namespace
{

constexpr size_t kRounds = 301;

// What the bare way does without: the semaphore, the file lock, and for each request the address
// and the wait until ready.
struct Bus {
    int fd;
    int semaphore; // -1: the bare way
};

bool ready(int fd)
{
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    fd_set writable = readable;
    timeval timeout = {1, 0};
    return select(fd + 1, &readable, &writable, nullptr, &timeout) > 0;
}

bool request(const Bus &bus, uint32_t address, i2c_msg *messages, uint32_t count)
{
    if (bus.semaphore >= 0 && (ioctl(bus.fd, I2C_SLAVE_FORCE, address) < 0 || !ready(bus.fd)))
        return false;
    i2c_rdwr_ioctl_data data = {messages, count};
    return ioctl(bus.fd, I2C_RDWR, &data) == static_cast<int>(count);
}

bool set_switch(const Bus &bus, uint32_t address, uint32_t channels)
{
    auto value = static_cast<uint8_t>(channels);
    i2c_msg message = {static_cast<uint16_t>(address), 0, 1, &value};
    return address == 0 || request(bus, address, &message, 1);
}

bool lock(const Bus &bus, bool take)
{
    if (bus.semaphore < 0)
        return true;
    sembuf taking[2] = {{0, 0, 0}, {0, 1, SEM_UNDO}};
    sembuf releasing = {0, -1, SEM_UNDO | IPC_NOWAIT};
    struct flock whole = {};
    whole.l_type = take ? F_WRLCK : F_UNLCK;
    if (take && semop(bus.semaphore, taking, 2) < 0)
        return false;
    return fcntl(bus.fd, F_SETLKW, &whole) == 0 &&
           (take || semop(bus.semaphore, &releasing, 1) == 0);
}

bool read_by_hand(const Bus &bus, const ei2c_client &client, i2c_msg *messages)
{
    const uint32_t upstream = client.swi_addr >> 16;
    const uint32_t near = client.swi_addr & 0xFFFF;
    return lock(bus, true) && set_switch(bus, upstream, 1U << (client.swi_chnl >> 16)) &&
           set_switch(bus, near, 1U << (client.swi_chnl & 0xFFFF)) &&
           request(bus, client.addr, messages, 2) && set_switch(bus, near, 0) &&
           set_switch(bus, upstream, 0) && lock(bus, false);
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
    const ei2c_client client = client_of(path);
    uint8_t sent[2] = {0x20, 0};
    uint8_t received[2] = {};
    i2c_msg messages[2] = {{client.addr, 0, 2, sent}, {client.addr, I2C_M_RD, 2, received}};
    const int fd = open(("/dev/i2c-" + std::to_string(client.bus)).c_str(), O_RDWR | O_CLOEXEC);
    const Bus alone = {fd, -1};
    const Bus shared = {fd, semget(IPC_PRIVATE, 1, 0600)};
    std::vector<double> bare;
    std::vector<double> above_bare;
    std::vector<double> above_same;
    for (size_t i = 0; i < kRounds; i++) {
        const double library =
            microseconds([&] { return ei2c_rdwr_xfer(&client, messages, 2) == 2; });
        bare.push_back(microseconds([&] { return read_by_hand(alone, client, messages); }));
        above_bare.push_back(library / bare.back());
        above_same.push_back(library /
                             microseconds([&] { return read_by_hand(shared, client, messages); }));
    }
    (void)close(fd);
    (void)semctl(shared.semaphore, 0, IPC_RMID);
    char line[160];
    (void)std::snprintf(line, sizeof line,
                        "NOTE cost at %s: %.3f times the same calls by hand, %.3f times the bare "
                        "requests, %.0f us",
                        path.c_str(), median(above_same), median(above_bare), median(bare));
    say(line);
    return "";
}

} // namespace board
