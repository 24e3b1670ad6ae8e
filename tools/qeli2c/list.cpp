// qeli2c list: what the board file knows.
#include "command_line.h"
#include "failure.h"
#include "output.h"
#include "tool.h"

#include <algorithm>
#include <iomanip>
#include <iostream>

namespace tool
{

namespace
{

void print_table(const std::vector<Target> &targets)
{
    size_t name_width = 0;
    size_t type_width = 0;
    for (const Target &target : targets) {
        name_width = std::max(name_width, target.name.size());
        type_width = std::max(type_width, target.type.size());
    }
    for (const Target &target : targets)
        std::cout << std::left << std::setw(static_cast<int>(name_width)) << target.name << "  "
                  << std::setw(static_cast<int>(type_width)) << target.type << "  "
                  << to_string(target.path) << "\n";
}

void list(const Options &options)
{
    const Board &board = load_board(options.board_file);
    if (board.file.empty())
        throw usage_error("no board file to list (--board FILE or QELI2C_BOARD)");
    std::vector<Target> targets;
    for (const simboard::DeviceDescription &device : board.description.devices)
        targets.push_back({path_of(board.description, device), device.name, device.type});
    if (!options.json) {
        print_table(targets);
        return;
    }
    Json::Value json;
    json["board"] = board.description.name;
    json["buses"] = Json::Value(Json::arrayValue);
    for (const uint32_t bus : board.description.buses)
        json["buses"].append(bus);
    json["devices"] = Json::Value(Json::arrayValue);
    for (const Target &target : targets)
        json["devices"].append(json_of(target));
    print_json(json);
}

} // namespace

void add_list(CLI::App &app, Tool &tool)
{
    add_command(app, "list", "Show the devices the board file describes", "",
                [&tool] { tool.action = list; });
}

} // namespace tool
