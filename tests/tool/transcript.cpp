// Plays transcripts.
#include "transcript.h"

#include "command.h"
#include "requests.h"
#include "simboard/testing.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>

using simboard::testing::Board;

namespace
{

void add_lines(std::string &text, const std::string &prefix, const std::string &output)
{
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        line.erase(std::remove(line.begin(), line.end(), '\r'), line.end());
        text += prefix + (line.empty() ? "~" : line) + "\n";
    }
    if (!output.empty() && output.back() != '\n')
        text += "\\ no line end\n";
}

// A directory for commands that make boards themselves; nothing else of theirs may be left.
struct Scratch {
    std::string path;
    Scratch()
    {
        char name[] = "/dev/shm/qeli2c-test-XXXXXX";
        path = mkdtemp(name);
        std::filesystem::create_directory(boards());
        std::filesystem::permissions(boards(), std::filesystem::perms::owner_all);
        setenv("QELI2C_SIM_DIR", boards().c_str(), 1);
    }
    ~Scratch()
    {
        unsetenv("QELI2C_SIM_DIR");
        std::filesystem::remove_all(path);
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    std::string boards() const { return path + "/boards"; }
    bool has_boards() const { return !std::filesystem::is_empty(boards()); }
};

struct Stage {
    std::unique_ptr<Board> board;
    std::unique_ptr<Scratch> scratch;
    std::string directory;
    Played played;

    Ended run_line(const std::string &line) const
    {
        return scratch ? run("cd " + scratch->path +
                             "; unset LD_PRELOAD; [ ! -e env ] || . ./env\n" + line)
                       : run(line);
    }
    void new_board(const std::string &file, const std::string &speed)
    {
        if (board)
            played.wrongs += board->wrongs();
        board.reset();
        board = std::make_unique<Board>(file, speed);
    }

    void direct(std::istringstream words, const std::string &line);
    void show(const Ended &ended);
};

void Stage::show(const Ended &ended)
{
    add_lines(played.text, "  ", ended.out);
    add_lines(played.text, "! ", ended.err);
    if (ended.status != 0)
        played.text += "? " + std::to_string(ended.status) + "\n";
}

void Stage::direct(std::istringstream words, const std::string &line)
{
    std::string verb, device, name;
    words >> verb >> device;
    std::vector<uint32_t> numbers;
    const auto take_numbers = [&] {
        for (std::string word; words >> word;)
            numbers.push_back(static_cast<uint32_t>(std::stoul(word, nullptr, 0)));
    };
    const std::string rest = line.substr(std::min(line.size(), verb.size() + 1));
    if (isdigit(verb.at(1)) != 0) {
        played.text += "  " + transfer_line(line) + "\n";
    } else if (verb == ":taken") {
        played.text += "  " + taken_line(line) + "\n";
    } else if (verb == ":smbus") {
        played.text += "  " + smbus_line(line) + "\n";
    } else if (verb == ":ioctl") {
        played.text += "  " + ioctl_line(line) + "\n";
    } else if (verb == ":chip") {
        new_board(R"({"name": "chip", "buses": [{"bus": 0, "devices": [)" + rest + "]}]}",
                  "instant");
    } else if (verb == ":shell") {
        board.reset();
        scratch = std::make_unique<Scratch>();
    } else if (verb == ":board" && device[0] == '{') {
        new_board(rest, "instant");
    } else if (verb == ":board") {
        words >> name;
        new_board(device == "reference" ? simboard::testing::reference_board()
                                        : directory + "/" + device,
                  name.empty() ? "instant" : name);
    } else if (verb == ":answer") {
        std::getline(words >> std::ws, name);
        show(run_on_terminal(name, "[y/N]", device + "\n"));
    } else if (verb == ":stimulus") {
        words >> name;
        if (int64_t value; words >> value)
            board->set_stimulus(device, name, value);
        else
            played.text += "  " + std::to_string(board->stimulus(device, name)) + "\n";
    } else if (verb == ":wire") {
        for (const std::string &message : board->wire(static_cast<uint32_t>(std::stoul(device))))
            played.text += "  " + message + "\n";
    } else if (verb == ":shape") {
        name = line.substr(verb.size() + 1);
        const Ended ended = run(name);
        played.json.emplace_back(name, ended.out);
        show({ended.status, "", ended.err});
    } else if (verb == ":transfers") {
        played.text += "  " + std::to_string(board->totals().transfers) + "\n";
    } else if (verb == ":wrongs") {
        add_lines(played.text, "  ", board->wrongs());
        board->reset();
    } else if (verb == ":reset") {
        board->reset();
    } else if (take_numbers(); verb == ":poke") {
        board->poke(device, numbers.at(0), {numbers.begin() + 1, numbers.end()});
    } else if (verb == ":pin") {
        board->set_pin(device, numbers.at(0), numbers.at(1) != 0);
    } else if (verb == ":peek") {
        std::string bytes;
        char field[8];
        for (const uint8_t byte : board->peek(device, numbers.at(0), numbers.at(1))) {
            snprintf(field, sizeof field, " %02x", byte);
            bytes += field;
        }
        played.text += " " + bytes + "\n";
    } else {
        throw std::runtime_error("no such line: " + line);
    }
}

bool is_output(const std::string &line)
{
    return line.starts_with("  ") || line.starts_with("! ") || line.starts_with("? ") ||
           line.starts_with("\\ ");
}

} // namespace

Played play(const std::string &transcript, const std::string &directory)
{
    Stage stage;
    stage.directory = directory;
    setenv("QELI2C_TRANSCRIPTS", directory.c_str(), 1);
    stage.new_board(simboard::testing::reference_board(), "instant");
    std::istringstream lines(transcript);
    std::vector<std::string> all;
    for (std::string line; std::getline(lines, line);)
        all.push_back(line);
    for (size_t i = 0; i < all.size(); i++) {
        if (is_output(all[i]))
            continue;
        stage.played.text += all[i] + "\n";
        if (!all[i].starts_with("$ "))
            continue;
        std::string line = all[i].substr(2);
        while (i + 1 < all.size() && all[i + 1].starts_with("> ")) {
            stage.played.text += all[++i] + "\n";
            line += "\n" + all[i].substr(2);
        }
        if (line.starts_with(":")) {
            line.erase(std::min(line.size(), line.find("  # ")));
            try {
                stage.direct(std::istringstream(line), line);
            } catch (const std::runtime_error &error) { // what a board refuses
                add_lines(stage.played.text, "! ", error.what() + std::string("\n"));
            }
            continue;
        }
        const Ended ended = stage.run_line(line);
        stage.show(ended);
        const auto has = [&line](const char *text) { return line.find(text) != std::string::npos; };
        if (has("--json") && has("qeli2c ") && !has("|") && !has("qeli2c batch")) // one document
            stage.played.json.emplace_back(line, ended.out);
    }
    if (stage.board)
        stage.played.wrongs += stage.board->wrongs();
    if (stage.scratch && stage.scratch->has_boards())
        stage.played.wrongs += "boards are left\n";
    return std::move(stage.played);
}
