// What callers compile against on this processor.
#ifndef QELI2C_BOARD_LAYOUT_H
#define QELI2C_BOARD_LAYOUT_H

#include <string>

namespace board
{

// Sizes and offsets of public records and of types, one a line.
std::string layout();

} // namespace board

#endif
