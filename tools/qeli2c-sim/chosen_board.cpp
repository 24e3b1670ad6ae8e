// Choosing the board a command is about.
#include "chosen_board.h"
#include "simboard/board.h"

#include <cstdlib>

namespace runner
{

namespace
{

constexpr char kHelp[] = "Board; else that of $QELI2C_SIM, else \"default\"";

}

void add_name_choice(CLI::App &command, std::string &name, const char *description)
{
    add_optional_argument(command, "NAME", name, description);
    add_option(command, "-n,--name", name, "NAME", "The same");
}

void add_board_argument(CLI::App &command, std::string &name)
{
    add_name_choice(command, name, kHelp);
}

void add_board_option(CLI::App &command, std::string &name)
{
    add_option(command, "-n,--name", name, "NAME", kHelp);
}

std::string choose_board(const std::string &name)
{
    if (name.empty()) {
        if (const char *variable = secure_getenv("QELI2C_SIM");
            variable != nullptr && *variable != 0) {
            return variable;
        }
    }
    const std::string chosen = name.empty() ? "default" : name;
    for (const simboard::ListedBoard &board : simboard::list_boards()) {
        if (board.name == chosen) {
            return board.directory;
        }
    }
    throw std::runtime_error("there is no board \"" + chosen + "\"");
}

ChosenBoard::ChosenBoard(const std::string &name) : view_(simboard::open_board(choose_board(name)))
{
}

ChosenBoard::~ChosenBoard()
{
    simboard::close_board(view_);
}

simboard::BoardDescription ChosenBoard::description() const
{
    const std::string file = view_.directory + "/board.json";
    std::vector<simboard::DescriptionError> errors;
    simboard::BoardDescription description = simboard::load_board_description(file, errors);
    if (!errors.empty()) {
        throw std::runtime_error(simboard::to_string(file, errors.front()));
    }
    return description;
}

} // namespace runner
