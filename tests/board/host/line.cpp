// Connections to the emulated machine, line by line.
#include "line.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace board
{

namespace
{

bool receive(Line &line, Clock::time_point until)
{
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
        pollfd waiting = {line.fd, POLLIN, 0};
        const int ready = poll(&waiting, 1, static_cast<int>(std::clamp<int64_t>(left, 0, 60000)));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return false;
        char buffer[4096];
        const ssize_t count = read(line.fd, buffer, sizeof buffer);
        if (count <= 0)
            return false;
        line.received.append(buffer, static_cast<size_t>(count));
        return true;
    }
}

} // namespace

std::optional<std::string> next_line(Line &line, Clock::time_point until)
{
    for (;;) {
        const size_t end = line.received.find('\n');
        if (end != std::string::npos) {
            std::string text = line.received.substr(0, end);
            line.received.erase(0, end + 1);
            if (!text.empty() && text.back() == '\r')
                text.pop_back();
            return text;
        }
        if (!receive(line, until))
            return std::nullopt;
    }
}

bool send_line(const Line &line, const std::string &text)
{
    const std::string bytes = text + "\n";
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t count = send(line.fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (count < 0 && errno != EINTR)
            return false;
        done += count > 0 ? static_cast<size_t>(count) : 0;
    }
    return true;
}

} // namespace board
