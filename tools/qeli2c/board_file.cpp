// Finds and reads the board file and looks devices up in it.
#include "board_file.h"

#include "failure.h"
#include "number.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <unistd.h>
#include <utility>

namespace tool
{

namespace
{

constexpr char kDefaultFile[] = "/etc/qeli2c/board.json";

std::string choose_file(const std::string &option)
{
    if (!option.empty())
        return option;
    if (const char *variable = secure_getenv("QELI2C_BOARD"); variable && *variable)
        return variable;
    return access(kDefaultFile, F_OK) == 0 ? kDefaultFile : "";
}

} // namespace

const Board &load_board(const std::string &file)
{
    static std::map<std::string, Board> known;
    const std::string chosen = choose_file(file);
    if (const auto found = known.find(chosen); found != known.end())
        return found->second;
    Board board;
    board.file = chosen;
    if (chosen.empty())
        return known[chosen] = board;
    std::vector<simboard::DescriptionError> errors;
    board.description = simboard::load_board_description(board.file, errors);
    if (errors.empty())
        return known[chosen] = std::move(board);
    for (const simboard::DescriptionError &error : errors)
        std::fprintf(stderr, "%s\n", simboard::to_string(board.file, error).c_str());
    throw usage_error("the board file cannot be used; nothing was done");
}

DevicePath path_of(const simboard::BoardDescription &board,
                   const simboard::DeviceDescription &device)
{
    DevicePath path;
    path.bus = device.bus;
    path.address = device.address;
    const simboard::DeviceDescription *inner = &device;
    while (inner->parent >= 0) {
        const simboard::DeviceDescription &parent =
            board.devices[static_cast<size_t>(inner->parent)];
        path.hops.push_back(Hop{parent.address, inner->channel});
        inner = &parent;
    }
    std::reverse(path.hops.begin(), path.hops.end());
    return path;
}

const simboard::DeviceDescription *device_at(const Board &board, const DevicePath &path)
{
    for (const simboard::DeviceDescription &device : board.description.devices)
        if (device.bus == path.bus && device.address == path.address && // most are not
            path_of(board.description, device) == path)
            return &device;
    return nullptr;
}

Target resolve(const Board &board, const std::string &text)
{
    Target target;
    if (text.find('/') != std::string::npos) {
        target.path = parse_device_path(text);
        if (const simboard::DeviceDescription *device = device_at(board, target.path)) {
            target.name = device->name;
            target.type = device->type;
        }
        return target;
    }
    for (const simboard::DeviceDescription &device : board.description.devices) {
        if (device.name != text)
            continue;
        target = Target{path_of(board.description, device), device.name, device.type};
        if (target.path.hops.size() > kMostSwitches)
            throw usage_error("device '" + text +
                              "' sits behind more than two switches; two can be opened");
        return target;
    }
    if (parse_number(text))
        target.path = parse_device_path(text); // says what is wrong with it
    if (board.file.empty())
        throw usage_error("device '" + text +
                          "' is not a path, and there is no board file "
                          "to look up its name (--board FILE or QELI2C_BOARD)");
    throw usage_error("no device named '" + text + "' in " + board.file +
                      "; 'qeli2c list' shows those there are");
}

std::string to_string(const Target &target)
{
    if (target.name.empty())
        return to_string(target.path);
    return target.name + " (" + to_string(target.path) + ")";
}

} // namespace tool
