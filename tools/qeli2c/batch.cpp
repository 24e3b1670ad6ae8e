// qeli2c batch: many commands in one process.
#include "command_line.h"
#include "failure.h"
#include "interrupt.h"
#include "output.h"
#include "tool.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <unistd.h>

namespace tool
{

namespace
{

struct BatchArguments {
    std::string file = "-";
    bool keep_going = false;
};

// The words of a line as a shell has them: quotes keep blanks, # begins a comment.
std::vector<std::string> words_of(const std::string &line)
{
    std::vector<std::string> words;
    bool in_word = false;
    char quote = 0;
    for (const char c : line) {
        if (quote ? c == quote : c == '\'' || c == '"') {
            quote = quote ? '\0' : c;
            if (!in_word)
                words.emplace_back();
            in_word = true;
        } else if (!quote && (c == ' ' || c == '\t' || c == '\r')) {
            in_word = false;
        } else if (!quote && !in_word && c == '#') {
            break;
        } else {
            if (!in_word)
                words.emplace_back();
            in_word = true;
            words.back() += c;
        }
    }
    if (quote)
        throw usage_error("a quote is not closed");
    if (!words.empty() && words[0] == "qeli2c")
        words.erase(words.begin());
    return words;
}

void run_line(const std::string &line, Options options)
{
    const std::vector<std::string> words = words_of(line);
    if (words.empty())
        return;
    options.in_batch = true;
    if (const Action action = parse_command_line(words, options))
        action(options);
}

// Each failure as the editors and people know them: "FILE:LINE: MESSAGE".
int run_reported(const std::string &line, const std::string &place, const Options &options)
{
    try {
        run_line(line, options);
    } catch (const Failure &failure) {
        if (!failure.message.empty())
            tell(place + ": " + failure.message);
        return failure.status;
    }
    return EXIT_DONE;
}

void batch(const BatchArguments &arguments, const Options &options)
{
    if (options.in_batch)
        throw usage_error("batch cannot be nested");
    const bool from_input = arguments.file == "-";
    const bool prompt = from_input && isatty(STDIN_FILENO) && isatty(STDERR_FILENO);
    std::ifstream file;
    if (!from_input) {
        file.open(arguments.file);
        if (!file)
            throw operation_failed(arguments.file + ": " + std::strerror(errno));
    }
    std::istream &input = from_input ? std::cin : file;
    const std::string name = from_input ? "line " : arguments.file + ":";
    defer_interrupts();
    uint32_t number = 0;
    uint32_t failed = 0;
    for (std::string line; !interrupted();) {
        if (prompt)
            std::cerr << "qeli2c> " << std::flush;
        if (!std::getline(input, line))
            break;
        number++;
        const int status = run_reported(line, name + std::to_string(number), options);
        if (prompt)
            std::cout.flush();
        failed += status != EXIT_DONE;
        if (!std::cout)
            flush_results();
        if (status != EXIT_DONE && !arguments.keep_going && !prompt)
            throw Failure{status, ""};
    }
    if (interrupted())
        throw operation_failed("interrupted after line " + std::to_string(number));
    if (failed && !prompt)
        throw operation_failed(std::to_string(failed) + " of the commands failed");
}

} // namespace

void add_batch(CLI::App &app, Tool &tool)
{
    const auto [command, arguments] =
        add_command(app, tool, "batch", "Run commands from a file or standard input",
                    "A line is a command without the 'qeli2c' in front of it; quotes keep blanks\n"
                    "together, # begins a comment. Options given to batch hold for all lines. The\n"
                    "first failure ends it, unless --keep-going is given.\n"
                    "Example: printf 'get board-status 0\\nget board-status 1\\n' | qeli2c batch",
                    batch);
    add_file(command, arguments.file);
    add_flag(command, "-k,--keep-going", arguments.keep_going, "Go on after a failure");
}

} // namespace tool
