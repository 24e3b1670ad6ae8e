// What the library adds to a transfer on this kernel and this controller.
#ifndef QELI2C_BOARD_COST_H
#define QELI2C_BOARD_COST_H

#include "qeli2c.h"

#include <string>

namespace board
{

// Reads of two bytes at offset 0x2000 through the library, by the same system calls written by
// hand, and by bare requests, in turns. Noted on the line, not judged: the machine is an emulated
// one.
std::string note_cost(const std::string &path);

} // namespace board

#endif
