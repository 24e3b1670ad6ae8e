// qeli2c-sim start and stop: boards that stay while programs come and go.
#include "chosen_board.h"
#include "environment.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace runner
{

namespace
{

bool is_standing(const std::string &name)
{
    const auto boards = simboard::list_boards();
    return std::any_of(boards.begin(), boards.end(),
                       [&name](const simboard::ListedBoard &board) { return board.name == name; });
}

int start_board(const BoardChoice &choice, const std::string &name)
{
    if (!simboard::is_board_name(name)) {
        throw UsageError("\"" + name + "\" is no name for a board");
    }
    const simboard::NewBoard board = make_board(choice, name);
    try {
        for (const auto &[variable, value] : board_environment(board.directory)) {
            std::printf("export %s=%s\n", variable.c_str(), shell_quote(value).c_str());
        }
    } catch (...) {
        simboard::delete_board(board.directory);
        throw;
    }
    return 0;
}

int stop_board(const std::string &name)
{
    if (!simboard::is_board_name(name) || !is_standing(name)) {
        throw std::runtime_error("there is no board \"" + name + "\"");
    }
    simboard::delete_board(simboard::named_board_directory(name));
    return 0;
}

// The board that is started or stopped; $QELI2C_SIM has no say in it.
void add_name(CLI::App &command, std::string &name)
{
    add_name_choice(command, name, "Name of the board; else \"default\"");
}

} // namespace

void add_start(CLI::App &app, Runner &runner)
{
    struct Arguments {
        BoardChoice choice;
        std::string name = "default";
    };
    const auto arguments = std::make_shared<Arguments>();
    CLI::App &start = add_command(
        app, runner, "start", "Make a board that stays; print what a shell needs for it", "",
        [arguments] { return start_board(arguments->choice, arguments->name); });
    add_name(start, arguments->name);
    add_board_choice(start, arguments->choice);
}

void add_stop(CLI::App &app, Runner &runner)
{
    const auto name = std::make_shared<std::string>("default");
    CLI::App &stop = add_command(app, runner, "stop", "Delete a board that start has made", "",
                                 [name] { return stop_board(*name); });
    add_name(stop, *name);
}

} // namespace runner
