// The access-owner table as the library maps it.
#include "owners.h"

#include "device_path.h"
#include "failure.h"
#include "qeli2c.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>

namespace tool
{

void map_owners()
{
    // Taking a bus above the last one maps the table without recording anything in it.
    const ui2c_client *beyond = ui2c_to_client(kLastBus + 1, kFirstAddress, 0, 0);
    errno = 0;
    if (beyond)
        getPidOfI2CAccess(beyond->adapter);
    if (!mapFlag)
        throw operation_failed(std::string("the access-owner table cannot be had from /dev/mem") +
                               (errno ? std::string(": ") + std::strerror(errno) : "") +
                               "; run as root");
}

uint32_t owner_pid(uint32_t bus)
{
    const auto *slots = reinterpret_cast<const volatile uint32_t *>(tpidMap);
    return slots[bus];
}

Owner owner_of_pid(uint32_t pid)
{
    Owner owner;
    owner.pid = pid;
    std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
    if (pid && std::getline(comm, owner.name))
        owner.alive = true;
    return owner;
}

} // namespace tool
