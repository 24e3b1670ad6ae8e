// What a program needs in its environment to see a board, and where its parts are found.
#ifndef QELI2C_SIM_ENVIRONMENT_H
#define QELI2C_SIM_ENVIRONMENT_H

#include "command_line.h"
#include "simboard/board.h"

#include <string>
#include <utility>
#include <vector>

namespace runner
{

// What a new board is made from.
struct BoardChoice {
    std::string file;  // empty: $QELI2C_BOARD, else the reference board
    std::string speed; // empty: as the file says
    std::string plan;  // file of faults, empty for none
    std::optional<uint64_t> seed;
};

// The options that make the choice.
void add_board_choice(CLI::App &command, BoardChoice &choice);

// Variables and their values.
using Environment = std::vector<std::pair<std::string, std::string>>;

// For programs that shall see the board in `directory`. A preload that is already set stays, after
// the shim.
Environment board_environment(const std::string &directory);

// Reads the chosen description and fault plan and makes the board. Prints every mistake of a bad
// file on standard error.
simboard::NewBoard make_board(const BoardChoice &choice, const std::string &name);

// The text as one word for a shell.
std::string shell_quote(const std::string &text);

} // namespace runner

#endif
