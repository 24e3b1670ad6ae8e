// The commands of qeli2c-sim. Each returns its exit status and throws std::runtime_error with one
// line for the person who typed it.
#ifndef QELI2C_SIM_COMMANDS_H
#define QELI2C_SIM_COMMANDS_H

#include <string>
#include <vector>

namespace runner
{

struct BoardChoice {
    std::string file;  // empty: $QELI2C_BOARD, else the reference board
    std::string speed; // empty: as the file says
};

int run_command(const BoardChoice &choice, const std::vector<std::string> &command);
int start_board(const BoardChoice &choice, const std::string &name);
int stop_board(const std::string &name);
int list_all_boards();
// An empty name means the board of $QELI2C_SIM, else the board "default".
int report_board(const std::string &name, bool json);

} // namespace runner

#endif
