// The serial line to the host program.
#ifndef QELI2C_BOARD_LINK_H
#define QELI2C_BOARD_LINK_H

#include <string>

namespace board
{

// Throws std::runtime_error when the line cannot be had.
void open_link(const char *device);

// The next line that is not empty: an empty one is there to wake the board. It takes no byte of
// those behind it, which may be for another process.
std::string hear();

void say(const std::string &line);

} // namespace board

#endif
