// What a program needs in its environment to see a board, and where its parts are found.
#ifndef QELI2C_SIM_ENVIRONMENT_H
#define QELI2C_SIM_ENVIRONMENT_H

#include "commands.h"
#include "simboard/board.h"

#include <string>
#include <utility>
#include <vector>

namespace runner
{

// Variables and their values.
using Environment = std::vector<std::pair<std::string, std::string>>;

// For programs that shall see the board in `directory`. A preload that is already set stays, after
// the shim.
Environment board_environment(const std::string &directory);

// Reads the chosen description and makes the board. Prints every mistake of a bad file on standard
// error.
simboard::NewBoard make_board(const BoardChoice &choice, const std::string &name);

// The text as one word for a shell.
std::string shell_quote(const std::string &text);

} // namespace runner

#endif
