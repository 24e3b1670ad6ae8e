// qeli2c-sim reset: a live board as it was described.
#include "chosen_board.h"
#include "simboard/board.h"

#include <memory>

namespace runner
{

namespace
{

int reset(const std::string &name)
{
    ChosenBoard board(name);
    const simboard::BoardDescription description = board.description();
    simboard::reset_board(board.view());
    simboard::clear_memory(board.view().directory, description);
    return kDone;
}

} // namespace

void add_reset(CLI::App &app, Runner &runner)
{
    const auto name = std::make_shared<std::string>();
    CLI::App &command = add_command(
        app, runner, "reset", "Put a board back to what its file describes",
        "Chips as after power-on, EEPROMs erased, channels closed, counters and trace\n"
        "empty, physical memory 0. Programs may go on using it: open devices stay open.",
        [name] { return reset(*name); });
    add_board_argument(command, *name);
}

} // namespace runner
