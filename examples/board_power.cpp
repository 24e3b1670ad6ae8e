// What the power monitors of the reference board sense, in C++. Run it on the simulated board:
//
//     qeli2c-sim run -- board_power
#include <qeli2c.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace
{

struct Monitor {
    const char *name;
    ei2c_client client;
};

// Bus, address, flags, switches, channels: riser-power is behind two switches.
const Monitor kMonitors[] = {
    {"power-12v", {1, 0x40, 0, 0, 0, ""}},
    {"power-5v", {1, 0x41, 0, 0, 0, ""}},
    {"riser-power", {4, 0x45, 0, 0x00700071, 0x00050001, ""}},
};

} // namespace

int main()
{
    int failures = 0;
    for (const auto &[name, client] : kMonitors) {
        float volts = 0;
        if (TPA626_GetVolt(&client, &volts) >= 0) {
            std::printf("%-12s %7.3f V\n", name, static_cast<double>(volts));
        } else {
            std::printf("%-12s failed: %s\n", name, std::strerror(errno));
            failures++;
        }
    }
    return failures == 0 ? 0 : 1;
}
