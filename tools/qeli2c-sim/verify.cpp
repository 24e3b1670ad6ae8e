// qeli2c-sim verify: whether a live board's state is sound.
#include "chosen_board.h"
#include "json_output.h"
#include "simboard/consistency.h"

#include <iostream>
#include <memory>

namespace runner
{

namespace
{

constexpr uint32_t kPatienceMs = 5000;

int verify(const std::string &name, bool json)
{
    ChosenBoard board(name);
    const std::vector<std::string> lines =
        simboard::find_inconsistencies(board.view(), board.description(), kPatienceMs);
    if (json) {
        Json::Value root;
        root["board"] = board.view().state->header.name;
        root["good"] = lines.empty();
        root["findings"] = Json::Value(Json::arrayValue);
        for (const std::string &line : lines) {
            root["findings"].append(line);
        }
        print_json(root);
    } else {
        for (const std::string &line : lines) {
            std::cout << line << "\n";
        }
        std::cout << (lines.empty() ? "the board is sound\n" : "");
    }
    return lines.empty() ? kDone : kFailed;
}

} // namespace

void add_verify(CLI::App &app, Runner &runner)
{
    struct Arguments {
        std::string name;
        bool json = false;
    };
    const auto arguments = std::make_shared<Arguments>();
    CLI::App &command = add_command(
        app, runner, "verify", "Check that a board is sound, whoever was killed on it",
        "Looks at every bus, journal, counter, trace record, chip and file of the board.\n"
        "Exit status 1 when anything is not as it can only be. A bus that cannot be had\n"
        "within five seconds is such a thing.",
        [arguments] { return verify(arguments->name, arguments->json); });
    add_board_argument(command, arguments->name);
    add_flag(command, "--json", arguments->json, "Print it as JSON");
}

} // namespace runner
