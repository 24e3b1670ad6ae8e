// What a case asks to be done to the machine from outside.
#include "outside.h"
#include "link.h"
#include "qeli2c.h"

#include <algorithm>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace board
{

namespace
{

constexpr uint32_t owner_table = 0xB8210000; // sixteen process ids
constexpr uint32_t buses = 16;
constexpr uint32_t mark = 0xF00D0000;

std::vector<pid_t> users; // in the order of their start

void drive_pins(const std::string &device, unsigned long levels)
{
    for (unsigned pin = 0; pin < 8; pin++)
        (void)link::machine("set_irq_in /machine/peripheral/" + device + " unnamed-gpio-in " +
                            std::to_string(pin) + " " + std::to_string(levels >> pin & 1));
}

// Any transfer takes the bus, also one that nobody acknowledges.
void use_buses(std::istringstream words)
{
    const pid_t child = fork();
    if (child == 0) {
        ei2c_client client = {};
        uint8_t value = 0;
        client.addr = 0x6D;
        while (words >> client.bus)
            (void)ei2c_smbus_read_byte_data(&client, 0, &value);
        _exit(0);
    }
    (void)waitpid(child, nullptr, 0);
    users.push_back(child);
}

std::string owner_name(uint32_t owner)
{
    if (owner == static_cast<uint32_t>(getpid()))
        return "me";
    const auto user = std::find(users.begin(), users.end(), static_cast<pid_t>(owner));
    return user == users.end() ? "unknown" : "user " + std::to_string(user - users.begin() + 1);
}

std::string owners()
{
    std::string text;
    for (uint32_t bus = 0; bus < buses; bus++)
        if (const uint32_t owner = link::read_memory(owner_table + 4 * bus); owner != mark + bus)
            text += "bus " + std::to_string(bus) + ": " + owner_name(owner) + "\n";
    return text.empty() ? "as marked" : text;
}

} // namespace

std::optional<std::string> outside_line(const std::string &line)
{
    std::istringstream words(line);
    std::string verb;
    std::string device;
    std::string value;
    std::string number;
    words >> verb;
    const std::string rest = line.substr(std::min(line.size(), verb.size() + 1));
    if (verb == ":owners")
        return owners();
    if (verb == ":machine")
        return link::machine(rest);
    if (verb == ":user")
        use_buses(std::istringstream(rest));
    else if (verb == ":pins" && words >> device >> value)
        drive_pins(device, std::stoul(value, nullptr, 16));
    else if (verb == ":property" && words >> device >> value >> number)
        link::set_property(device, value, std::stol(number));
    else if (verb == ":mark-owners")
        for (uint32_t bus = 0; bus < buses; bus++)
            link::write_memory(owner_table + 4 * bus, mark + bus);
    else
        return std::nullopt;
    return "";
}

} // namespace board
