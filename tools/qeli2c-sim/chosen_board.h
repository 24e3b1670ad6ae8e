// The board that a command is about.
#ifndef QELI2C_SIM_CHOSEN_BOARD_H
#define QELI2C_SIM_CHOSEN_BOARD_H

#include "command_line.h"
#include "simboard/description.h"
#include "simboard/view.h"

#include <string>

namespace runner
{

// How a command lets its board be named: as its argument, or as option -n. Where arguments are
// about something else, only as the option.
void add_name_choice(CLI::App &command, std::string &name, const char *description);
void add_board_argument(CLI::App &command, std::string &name);
void add_board_option(CLI::App &command, std::string &name);

// The directory of the board called `name`; of the one in $QELI2C_SIM when `name` is empty; else of
// "default". A std::runtime_error when there is none.
std::string choose_board(const std::string &name);

// That board, mapped.
class ChosenBoard
{
public:
    explicit ChosenBoard(const std::string &name);
    ~ChosenBoard();
    ChosenBoard(const ChosenBoard &) = delete;
    ChosenBoard &operator=(const ChosenBoard &) = delete;

    simboard::BoardView &view() { return view_; }
    // What it was made from.
    simboard::BoardDescription description() const;

private:
    simboard::BoardView view_;
};

} // namespace runner

#endif
