// Finding the shim and the board file, and making a board from it.
#include "environment.h"
#include "faults.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <unistd.h>

namespace runner
{

namespace
{

std::string program_directory()
{
    char path[PATH_MAX];
    const ssize_t size = readlink("/proc/self/exe", path, sizeof(path));
    if (size <= 0 || size == ssize_t{sizeof(path)}) {
        throw std::runtime_error("cannot find out where this program is");
    }
    const std::string program(path, static_cast<size_t>(size));
    return program.substr(0, program.rfind('/'));
}

// The first of the files beside the program that exists, by its absolute path.
std::string find_beside(const std::vector<std::string> &relative, const std::string &what)
{
    const std::string base = program_directory();
    for (const std::string &name : relative) {
        char absolute[PATH_MAX];
        if (realpath((base + "/" + name).c_str(), absolute) != nullptr) {
            return absolute;
        }
    }
    throw std::runtime_error(what + " is not where it belongs, " + base + "/" + relative.front());
}

std::string find_shim()
{
    const std::string shim =
        find_beside({QELI2C_PRIVATE_LIBDIR_FROM_BIN "/libqelsim.so", "../lib/libqelsim.so"},
                    "the preload library");
    if (shim.find_first_of(" :") != std::string::npos) {
        throw std::runtime_error(
            "a library cannot be preloaded from a path with spaces or colons: " + shim);
    }
    return shim;
}

// Whether the file is that of the board `start` has given to this shell, and went with it: a choice
// for that board only.
bool went_with_board(const std::string &file)
{
    const char *const directory = secure_getenv("QELI2C_SIM");
    return directory != nullptr && file == std::string(directory) + "/board.json" &&
           access(file.c_str(), F_OK) < 0;
}

std::string find_board_file(const std::string &given)
{
    if (!given.empty()) {
        return given;
    }
    const char *const variable = secure_getenv("QELI2C_BOARD");
    if (variable != nullptr && *variable != 0 && !went_with_board(variable)) {
        return variable;
    }
    return find_beside({QELI2C_DATADIR_FROM_BIN "/qeli2c/boards/reference.json",
                        "../share/qeli2c/boards/reference.json"},
                       "the reference board");
}

} // namespace

void add_board_choice(CLI::App &command, BoardChoice &choice)
{
    add_option(command, "--board", choice.file, "FILE",
               "Board; else $QELI2C_BOARD or the reference board");
    add_option(command, "--speed", choice.speed, "SPEED",
               "instant, 100k or 400k; else as the board file says", {"instant", "100k", "400k"});
    add_option(command, "--plan", choice.plan, "FILE", "Fault plan that the board starts with");
    add_number(command, "--seed", choice.seed, "N",
               "Seed of faults, in the place of the plan's own");
}

Environment board_environment(const std::string &directory)
{
    const std::string shim = find_shim();
    std::string preload = shim;
    if (const char *former = secure_getenv("LD_PRELOAD"); former != nullptr && *former != '\0') {
        const bool is_first = std::string(former).compare(0, shim.size(), shim) == 0;
        preload = is_first ? former : shim + ":" + former;
    }
    return {{"QELI2C_SIM", directory},
            {"QELI2C_BOARD", directory + "/board.json"},
            {"LD_PRELOAD", preload}};
}

simboard::NewBoard make_board(const BoardChoice &choice, const std::string &name)
{
    const std::string file = find_board_file(choice.file);
    std::string text;
    if (!simboard::read_text_file(file, text)) {
        throw std::runtime_error(file + ": cannot be read: " + std::strerror(errno));
    }
    std::vector<simboard::DescriptionError> errors;
    const simboard::BoardDescription description = simboard::parse_board_description(text, errors);
    for (const simboard::DescriptionError &error : errors) {
        std::fprintf(stderr, "%s\n", simboard::to_string(file, error).c_str());
    }
    if (!errors.empty()) {
        throw std::runtime_error("the board file cannot be used; nothing was started");
    }
    const uint32_t seed = parse_seed(choice.seed);
    std::vector<simboard::PlannedFault> faults;
    if (!choice.plan.empty()) {
        faults = read_fault_plan(choice.plan, description, seed);
    }
    simboard::BoardOptions options;
    options.name = name;
    options.has_speed =
        !choice.speed.empty() && simboard::parse_speed(choice.speed, options.bit_ns);
    options.seed = seed;
    const simboard::NewBoard board = simboard::create_board(description, text, options);
    try {
        add_faults_at(board.directory, faults);
    } catch (...) {
        simboard::delete_board(board.directory);
        throw;
    }
    return board;
}

std::string shell_quote(const std::string &text)
{
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

} // namespace runner
