// Plays cases.
#include "play.h"
#include "calls.h"
#include "command.h"
#include "cost.h"
#include "layout.h"
#include "outside.h"
#include "tool/requests.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace board
{

namespace
{

bool is_output(const std::string &line)
{
    return line.starts_with("  ") || line.starts_with("? ") || line.starts_with("! ");
}

// A call that meets a controller which does not answer: it waits, and not for ever.
std::string call_that_waits(const std::string &line)
{
    const auto start = std::chrono::steady_clock::now();
    std::string text = call_line(line);
    const auto took = std::chrono::steady_clock::now() - start;
    const bool waited = took > std::chrono::milliseconds(500) && took < std::chrono::seconds(5);
    return (waited ? "after a wait: " : "without a wait: ") + text;
}

//     :3/0x70 08 r1                    a transfer without the library, see tool/requests.h
//     :env NAME=VALUE                  for the commands that follow
//     :another 400 3/0x20              a process that wants the device has that many milliseconds
//     :killed-holder 3/0x20            a process that is killed while it holds the bus
//     :waits i2cRead 3/0x50 2 0x10 4   a call, and whether it took the time of a time-out
//     :layout                          see layout.h
//     :cost 3/0x50                     see cost.h
// and what is done from outside, see outside.h.
std::string do_line(const std::string &line)
{
    std::istringstream words(line);
    std::string verb;
    std::string first;
    std::string second;
    words >> verb >> first >> second;
    if (isdigit(verb.at(1)) != 0)
        return transfer_line(line);
    if (verb == ":env") {
        const size_t equals = first.find('=');
        (void)setenv(first.substr(0, equals).c_str(), first.substr(equals + 1).c_str(), 1);
        return "";
    }
    if (verb == ":another")
        return another_process(client_at(second), std::stol(first));
    if (verb == ":killed-holder")
        return killed_holder(client_at(first));
    if (verb == ":waits")
        return call_that_waits(":" + line.substr(verb.size() + 1));
    if (verb == ":layout")
        return layout();
    if (verb == ":cost")
        return note_cost(first);
    if (const auto text = outside_line(line))
        return *text;
    return call_line(line);
}

std::string in_lines(const std::string &prefix, const std::string &text)
{
    std::string all;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        all += prefix + line + "\n";
    return all;
}

std::string play_line(const std::string &line)
{
    if (!line.starts_with(":")) {
        const Outcome outcome = run_command(line);
        return in_lines("  ", outcome.output) +
               (outcome.status != 0 ? "? " + std::to_string(outcome.status) + "\n" : "");
    }
    try {
        return in_lines("  ", do_line(line));
    } catch (const std::exception &error) {
        return in_lines("! ", error.what());
    }
}

} // namespace

std::vector<Case> read_cases()
{
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator("/cases"))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    std::vector<Case> cases;
    for (const auto &file : files) {
        std::ifstream stream(file);
        Lines before;
        bool inside = false;
        for (std::string line; std::getline(stream, line);) {
            if (line.starts_with("== ")) {
                std::istringstream words(line.substr(3));
                Case one = {file.stem(), "", 60, before, {}};
                words >> one.name;
                if (unsigned seconds; words >> seconds)
                    one.seconds = seconds;
                cases.push_back(one);
                inside = true;
            }
            (inside ? cases.back().lines : before).push_back(line);
        }
    }
    return cases;
}

std::string play(const Case &one)
{
    for (const std::string &line : one.before)
        if (line.starts_with("$ "))
            (void)play_line(line.substr(2));
    std::string text;
    for (size_t i = 0; i < one.lines.size(); i++) {
        if (is_output(one.lines[i]))
            continue;
        text += one.lines[i] + "\n";
        if (!one.lines[i].starts_with("$ "))
            continue;
        std::string line = one.lines[i].substr(2);
        for (; i + 1 < one.lines.size() && one.lines[i + 1].starts_with("> "); i++) {
            text += one.lines[i + 1] + "\n";
            line += "\n" + one.lines[i + 1].substr(2);
        }
        text += play_line(line);
    }
    return text;
}

} // namespace board
