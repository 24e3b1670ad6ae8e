// qeli2c-sim check: the mistakes of board files.
#include "command_line.h"
#include "json_output.h"
#include "simboard/description.h"

#include <iostream>
#include <memory>

namespace runner
{

namespace
{

struct Arguments {
    std::vector<std::string> files;
    bool json = false;
};

Json::Value to_json(const std::string &file, const std::vector<simboard::DescriptionError> &errors)
{
    Json::Value root;
    root["file"] = file;
    root["good"] = errors.empty();
    root["mistakes"] = Json::Value(Json::arrayValue);
    for (const simboard::DescriptionError &error : errors) {
        Json::Value mistake;
        mistake["line"] = error.line;
        mistake["key"] = error.key;
        mistake["message"] = error.message;
        root["mistakes"].append(mistake);
    }
    return root;
}

int check_files(const Arguments &arguments)
{
    bool good = true;
    Json::Value results(Json::arrayValue);
    for (const std::string &file : arguments.files) {
        std::vector<simboard::DescriptionError> errors;
        const simboard::BoardDescription board =
            simboard::load_board_description(file == "-" ? "/dev/stdin" : file, errors);
        good = good && errors.empty();
        results.append(to_json(file, errors));
        if (arguments.json) {
            continue;
        }
        for (const simboard::DescriptionError &error : errors) {
            std::cout << simboard::to_string(file, error) << "\n";
        }
        if (errors.empty()) {
            std::cout << file << ": good: board \"" << board.name << "\", " << board.buses.size()
                      << " buses, " << board.devices.size() << " devices\n";
        }
    }
    if (arguments.json) {
        print_json(results);
    }
    return good ? kDone : kFailed;
}

} // namespace

void add_check(CLI::App &app, Runner &runner)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App &check =
        add_command(app, runner, "check", "Tell every mistake in board files, with line and key",
                    "Exit status 1 when a file has any. - is standard input.",
                    [arguments] { return check_files(*arguments); });
    add_arguments(check, "FILE...", arguments->files, "Board files", 1);
    add_flag(check, "--json", arguments->json, "Print it as JSON");
}

} // namespace runner
