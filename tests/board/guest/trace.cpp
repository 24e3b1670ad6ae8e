// What the kernel itself saw on a bus.
#include "trace.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <unistd.h>

namespace board::trace
{

namespace
{

const std::string directory = "/sys/kernel/tracing/";

void put(const std::string &file, const std::string &text, int flags)
{
    const int fd = open((directory + file).c_str(), O_WRONLY | O_CLOEXEC | flags);
    const bool done = fd >= 0 && (text.empty() || write(fd, text.data(), text.size()) ==
                                                      static_cast<ssize_t>(text.size()));
    const int error = errno;
    if (fd >= 0)
        (void)close(fd);
    if (!done)
        throw std::runtime_error("kernel trace: " + file + ": " + std::strerror(error));
}

void set_events(const char *value)
{
    put("events/i2c/i2c_write/enable", value, 0);
    put("events/i2c/i2c_read/enable", value, 0);
}

// "i2c_write: i2c-3 #0 a=070 f=0000 l=1 [20]"
bool parse(const std::string &line, uint32_t bus, std::string &message)
{
    const size_t event = line.find(": i2c_");
    unsigned on_bus = 0;
    unsigned address = 0;
    unsigned length = 0;
    if (event == std::string::npos)
        return false;
    const char *text = line.c_str() + event + 2;
    const bool is_write = std::strncmp(text, "i2c_write", 9) == 0;
    const char *values = std::strchr(text, ' ');
    if (values == nullptr ||
        std::sscanf(values, " i2c-%u #%*u a=%x f=%*x l=%u", &on_bus, &address, &length) != 3)
        return false;
    char head[16];
    (void)std::snprintf(head, sizeof head, is_write ? "%02x w" : "%02x r%u", address, length);
    message = head;
    const size_t bytes = line.find('[', event);
    if (is_write && bytes != std::string::npos)
        message += " " + line.substr(bytes + 1, line.find(']', bytes) - bytes - 1);
    for (char &character : message)
        if (character == '-')
            character = ' ';
    return on_bus == bus;
}

} // namespace

void start()
{
    set_events("1");
    put("trace", "", O_TRUNC);
}

std::vector<std::string> messages(uint32_t bus)
{
    set_events("0");
    std::ifstream file(directory + "trace");
    std::vector<std::string> all;
    for (std::string line, message; std::getline(file, line);)
        if (parse(line, bus, message))
            all.push_back(message);
    return all;
}

} // namespace board::trace
