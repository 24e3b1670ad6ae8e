// The serial line to the host program.
#include "link.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <termios.h>
#include <unistd.h>

namespace board
{

namespace
{

int link_fd = -1;

} // namespace

void open_link(const char *device)
{
    link_fd = open(device, O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings;
    if (link_fd < 0 || tcgetattr(link_fd, &settings) != 0)
        throw std::runtime_error(std::string(device) + ": " + std::strerror(errno));
    cfmakeraw(&settings);
    cfsetspeed(&settings, B115200);
    if (tcsetattr(link_fd, TCSANOW, &settings) != 0)
        throw std::runtime_error(std::string(device) + ": " + std::strerror(errno));
}

std::string hear()
{
    std::string text;
    for (;;) {
        char character;
        const ssize_t count = read(link_fd, &character, 1);
        if (count != 1 && errno != EINTR)
            throw std::runtime_error(std::string("the line to the host: ") + std::strerror(errno));
        if (count == 1 && character != '\n')
            text += character;
        else if (count == 1 && !text.empty())
            return text;
    }
}

void say(const std::string &line)
{
    const std::string text = line + "\n";
    for (size_t done = 0; done < text.size();) {
        const ssize_t count = write(link_fd, text.data() + done, text.size() - done);
        if (count > 0)
            done += static_cast<size_t>(count);
        else if (errno != EINTR)
            std::abort();
    }
}

} // namespace board
