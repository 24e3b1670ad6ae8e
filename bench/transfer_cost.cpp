// What one I2C_RDWR costs on the board of the environment, beside a bare ioctl on /dev/null: of a
// write of one register, of a register read with its repeated START, and of calls on other files,
// which the board's shim lets by. In rounds that alternate, so that what else the machine does
// touches all of them.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr int kRounds = 200;
constexpr int kCallsARound = 200;

int g_device = -1;
int g_null = -1;

bool write_register()
{
    uint8_t bytes[] = {0x10, 0xa5};
    i2c_msg message = {0x30, 0, 2, bytes};
    i2c_rdwr_ioctl_data data = {&message, 1};
    return ioctl(g_device, I2C_RDWR, &data) == 1;
}

bool read_register()
{
    uint8_t number = 0x10;
    uint8_t value = 0;
    i2c_msg messages[] = {{0x30, 0, 1, &number}, {0x30, I2C_M_RD, 1, &value}};
    i2c_rdwr_ioctl_data data = {messages, 2};
    return ioctl(g_device, I2C_RDWR, &data) == 2 && value == 0xa5;
}

bool bare_ioctl()
{
    return ioctl(g_null, I2C_RDWR, nullptr) < 0 && errno == ENOTTY;
}

bool read_other()
{
    char byte;
    return read(g_null, &byte, 1) == 0;
}

bool open_other()
{
    const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    return fd >= 0 && close(fd) == 0;
}

bool stat_other()
{
    struct stat status;
    return stat("/dev/null", &status) == 0;
}

uint64_t now_ns()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

struct Subject {
    const char *name;
    bool (*call)();
    std::vector<uint64_t> times;
};

bool measure(Subject &subject)
{
    for (int i = 0; i < kCallsARound; i++) {
        const uint64_t start = now_ns();
        const bool good = subject.call();
        subject.times.push_back(now_ns() - start);
        if (!good) {
            std::fprintf(stderr, "transfer_cost: %s: %s\n", subject.name, std::strerror(errno));
            return false;
        }
    }
    return true;
}

double quantile_ns(Subject &subject, double fraction)
{
    const auto at =
        static_cast<std::ptrdiff_t>(fraction * static_cast<double>(subject.times.size() - 1));
    std::nth_element(subject.times.begin(), subject.times.begin() + at, subject.times.end());
    return static_cast<double>(subject.times[static_cast<size_t>(at)]);
}

} // namespace

// transfer_cost [BUS]: bus 7 when absent, with 256 registers at 0x30. With "none" only what does
// not need a bus, for a comparison without the shim.
int main(int argc, char **argv)
{
    const std::string bus = argc > 1 ? argv[1] : "7";
    const std::string path = bus == "none" ? "/dev/null" : "/dev/i2c-" + bus;
    g_device = open(path.c_str(), O_RDWR | O_CLOEXEC);
    g_null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (g_device < 0 || g_null < 0) {
        std::fprintf(stderr, "transfer_cost: %s: %s\n", path.c_str(), std::strerror(errno));
        return 1;
    }
    std::vector<Subject> subjects = {
        {"ioctl on /dev/null", bare_ioctl, {}},
        {"read of /dev/null", read_other, {}},
        {"open and close of /dev/null", open_other, {}},
        {"stat of /dev/null", stat_other, {}},
    };
    if (bus != "none") {
        subjects.push_back({"I2C_RDWR, write", write_register, {}});
        subjects.push_back({"I2C_RDWR, write and read", read_register, {}});
    }
    for (int round = 0; round < kRounds; round++) {
        for (Subject &subject : subjects) {
            if (!measure(subject)) {
                return 1;
            }
        }
    }
    const double bare = quantile_ns(subjects[0], 0.5);
    std::printf("%-28s %10s %10s %8s\n", "", "median us", "99 % us", "ratio");
    for (Subject &subject : subjects) {
        std::printf("%-28s %10.3f %10.3f %8.2f\n", subject.name, quantile_ns(subject, 0.5) / 1e3,
                    quantile_ns(subject, 0.99) / 1e3, quantile_ns(subject, 0.5) / bare);
    }
}
