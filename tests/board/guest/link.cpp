// The serial line to the host program.
#include "link.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <termios.h>
#include <unistd.h>

namespace board::link
{

namespace
{

int line_fd = -1;

std::string answer()
{
    std::string text;
    for (;;) {
        char character;
        const ssize_t count = ::read(line_fd, &character, 1);
        if (count != 1 && errno != EINTR)
            throw std::runtime_error(std::string("the line to the host: ") + std::strerror(errno));
        if (count == 1 && character != '\n')
            text += character;
        else if (count == 1 && !text.empty()) // an empty line is there to wake the board
            return text;
    }
}

std::string ask(const std::string &question)
{
    say("ASK " + question);
    const std::string text = answer();
    if (!text.starts_with("OK"))
        throw std::runtime_error("the host refused '" + question + "': " + text);
    return text.size() > 3 ? text.substr(3) : "";
}

std::string in_hex(uint32_t value)
{
    char text[16];
    (void)std::snprintf(text, sizeof text, "0x%08x", value);
    return text;
}

} // namespace

void open_line(const char *device)
{
    line_fd = open(device, O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings;
    if (line_fd < 0 || tcgetattr(line_fd, &settings) != 0)
        throw std::runtime_error(std::string(device) + ": " + std::strerror(errno));
    cfmakeraw(&settings);
    cfsetspeed(&settings, B115200);
    if (tcsetattr(line_fd, TCSANOW, &settings) != 0)
        throw std::runtime_error(std::string(device) + ": " + std::strerror(errno));
}

void say(const std::string &line)
{
    const std::string text = line + "\n";
    for (size_t done = 0; done < text.size();) {
        const ssize_t count = ::write(line_fd, text.data() + done, text.size() - done);
        if (count > 0)
            done += static_cast<size_t>(count);
        else if (errno != EINTR)
            std::abort();
    }
}

std::string machine(const std::string &command)
{
    return ask("machine " + command);
}

uint32_t read_memory(uint32_t address)
{
    return static_cast<uint32_t>(
        std::strtoull(machine("readl " + in_hex(address)).c_str(), nullptr, 0));
}

void write_memory(uint32_t address, uint32_t value)
{
    (void)machine("writel " + in_hex(address) + " " + in_hex(value));
}

void set_property(const std::string &device, const std::string &property, int64_t value)
{
    (void)ask("property " + device + " " + property + " " + std::to_string(value));
}

} // namespace board::link
