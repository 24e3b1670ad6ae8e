// qeli2c-sim status: the boards there are, and what goes on on them.
#include "chosen_board.h"
#include "json_output.h"
#include "show_facts.h"
#include "simboard/board.h"
#include "simboard/board_status.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>

namespace runner
{

namespace
{

struct BoardLine {
    simboard::ListedBoard listed;
    std::string description; // name in its file
    simboard::BoardStatus status;
    bool sane = false; // nothing wrong was seen by its judge
};

BoardLine look_at(const simboard::ListedBoard &listed)
{
    simboard::BoardView view = simboard::open_board(listed.directory);
    BoardLine line = {listed, view.state->header.name, simboard::read_status(view), false};
    line.sane = simboard::describe_wrongs(line.status.totals, "").empty();
    simboard::close_board(view);
    return line;
}

std::string name_of(const simboard::ListedBoard &listed)
{
    return listed.name.empty() ? "(run)" : listed.name;
}

std::string age_text(uint64_t seconds)
{
    if (seconds < 60) {
        return std::to_string(seconds) + " s";
    }
    if (seconds < 3600) {
        return std::to_string(seconds / 60) + " min";
    }
    return seconds < 86400 ? std::to_string(seconds / 3600) + " h"
                           : std::to_string(seconds / 86400) + " d";
}

std::string opener_text(const BoardLine &line, const simboard::OpenPath &path)
{
    for (const simboard::LiveProcess &process : line.status.processes) {
        if (path.opener.pid == process.pid) {
            return holder_text({path.opener, process.name, true});
        }
    }
    return path.opener.pid == 0 ? "nobody alive" : holder_text({path.opener, "", true});
}

std::string channels_text(uint8_t channels)
{
    std::string text;
    for (unsigned channel = 0; channel < 8; channel++) {
        if ((channels >> channel & 1) != 0) {
            text += (text.empty() ? "" : ",") + std::to_string(channel);
        }
    }
    return text;
}

Json::Value to_json(const BoardLine &line)
{
    Json::Value root;
    root["name"] = line.listed.name;
    root["board"] = line.description;
    root["directory"] = line.listed.directory;
    root["file"] = line.listed.directory + "/board.json";
    root["age_s"] = Json::UInt64(line.status.age_s);
    root["transfers"] = Json::UInt64(line.status.totals.transfers);
    root["failed"] = Json::UInt64(line.status.totals.failed);
    root["good"] = line.sane;
    root["processes"] = Json::Value(Json::arrayValue);
    for (const simboard::LiveProcess &process : line.status.processes) {
        Json::Value entry;
        entry["pid"] = process.pid;
        entry["name"] = process.name;
        root["processes"].append(entry);
    }
    root["open_paths"] = Json::Value(Json::arrayValue);
    for (const simboard::OpenPath &path : line.status.open_paths) {
        Json::Value entry;
        entry["bus"] = path.bus;
        entry["switch"] = path.name;
        for (unsigned channel = 0; channel < 8; channel++) {
            if ((path.channels >> channel & 1) != 0) {
                entry["channels"].append(channel);
            }
        }
        entry["pid"] = path.opener.pid;
        entry["tid"] = path.opener.tid;
        root["open_paths"].append(entry);
    }
    return root;
}

void print_one(const BoardLine &line)
{
    std::printf("name       %s\nboard      %s\ndirectory  %s\nage        %s\n",
                name_of(line.listed).c_str(), line.description.c_str(),
                line.listed.directory.c_str(), age_text(line.status.age_s).c_str());
    std::printf("transfers  %llu, %llu failed; %s\n",
                static_cast<unsigned long long>(line.status.totals.transfers),
                static_cast<unsigned long long>(line.status.totals.failed),
                line.sane ? "nothing wrong was seen" : "something went wrong, see report");
    for (const simboard::LiveProcess &process : line.status.processes) {
        std::printf("process    %d %s\n", process.pid, process.name.c_str());
    }
    for (const simboard::OpenPath &path : line.status.open_paths) {
        std::printf("open       bus %u, %s, channel %s, by %s\n", path.bus, path.name.c_str(),
                    channels_text(path.channels).c_str(), opener_text(line, path).c_str());
    }
}

void print_table(const std::vector<BoardLine> &lines)
{
    constexpr const char *kRow = "%-16s %-16s %7s %9s %12s %5s  %s\n";
    if (!lines.empty()) {
        std::printf(kRow, "NAME", "BOARD", "AGE", "PROCESSES", "TRANSFERS", "OPEN", "JUDGE");
    }
    for (const BoardLine &line : lines) {
        std::printf(kRow, name_of(line.listed).c_str(), line.description.c_str(),
                    age_text(line.status.age_s).c_str(),
                    std::to_string(line.status.processes.size()).c_str(),
                    std::to_string(line.status.totals.transfers).c_str(),
                    std::to_string(line.status.open_paths.size()).c_str(),
                    line.sane ? "good" : "WRONG");
    }
}

std::vector<BoardLine> look_at_all()
{
    simboard::sweep_boards();
    std::vector<BoardLine> lines;
    for (const simboard::ListedBoard &listed : simboard::list_boards()) {
        try {
            lines.push_back(look_at(listed));
        } catch (const std::runtime_error &error) { // deleted meanwhile, or damaged
            std::cerr << "qeli2c-sim: " << error.what() << "\n";
        }
    }
    std::sort(lines.begin(), lines.end(),
              [](const BoardLine &a, const BoardLine &b) { return a.listed.name < b.listed.name; });
    return lines;
}

int status_of_all(bool json)
{
    const std::vector<BoardLine> lines = look_at_all();
    if (!json) {
        print_table(lines);
        return kDone;
    }
    Json::Value root(Json::arrayValue);
    for (const BoardLine &line : lines) {
        root.append(to_json(line));
    }
    print_json(root);
    return kDone;
}

int status_of_one(const std::string &name, bool json)
{
    const BoardLine line = look_at({name, choose_board(name)});
    if (json) {
        print_json(to_json(line));
    } else {
        print_one(line);
    }
    return kDone;
}

} // namespace

void add_status(CLI::App &app, Runner &runner)
{
    struct Arguments {
        std::string name;
        bool json = false;
    };
    const auto arguments = std::make_shared<Arguments>();
    CLI::App &status = add_command(
        app, runner, "status", "Show this user's boards, or one of them closely", "", [arguments] {
            return arguments->name.empty() ? status_of_all(arguments->json)
                                           : status_of_one(arguments->name, arguments->json);
        });
    add_name_choice(status, arguments->name, "Name of the board; else all");
    add_flag(status, "--json", arguments->json, "Print it as JSON");
}

} // namespace runner
