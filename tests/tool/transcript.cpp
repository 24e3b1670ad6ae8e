// Plays transcripts.
#include "transcript.h"

#include "command.h"
#include "simboard/testing.h"

#include <algorithm>
#include <cstdlib>
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

struct Stage {
    std::unique_ptr<Board> board;
    std::string directory;
    Played played;

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
    if (verb == ":board") {
        words >> name;
        new_board(device == "reference" ? simboard::testing::reference_board()
                                        : directory + "/" + device,
                  name.empty() ? "instant" : name);
    } else if (verb == ":answer") {
        std::getline(words >> std::ws, name);
        show(run_on_terminal(name, "[y/N]", device + "\n"));
    } else if (verb == ":stimulus") {
        words >> name;
        take_numbers();
        board->set_stimulus(device, name, numbers.at(0));
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
            stage.direct(std::istringstream(line), line);
            continue;
        }
        const Ended ended = run(line);
        stage.show(ended);
        const auto has = [&line](const char *text) { return line.find(text) != std::string::npos; };
        if (has("--json") && !has("|") && !has("qeli2c batch")) // one document
            stage.played.json.emplace_back(line, ended.out);
    }
    stage.played.wrongs += stage.board->wrongs();
    return std::move(stage.played);
}
