// Running another program of the board.
#ifndef QELI2C_BOARD_COMMAND_H
#define QELI2C_BOARD_COMMAND_H

#include <string>

namespace board
{

// Standard output and standard error of a shell command, and its exit status.
struct Outcome {
    std::string output;
    int status;
};

Outcome run_command(const std::string &line);

} // namespace board

#endif
