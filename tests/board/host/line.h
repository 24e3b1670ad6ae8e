// Connections to the emulated machine, line by line.
#ifndef QELI2C_BOARD_LINE_H
#define QELI2C_BOARD_LINE_H

#include <chrono>
#include <optional>
#include <string>

namespace board
{

using Clock = std::chrono::steady_clock;

struct Line {
    int fd = -1;
    std::string received; // not yet handed out
};

// The next line without its end; none when the connection was closed or the time is over.
std::optional<std::string> next_line(Line &line, Clock::time_point until);

// False when the connection was closed.
bool send_line(const Line &line, const std::string &text);

} // namespace board

#endif
