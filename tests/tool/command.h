// Command lines run by a shell, with the programs under test first on its PATH and the board of the
// environment.
#ifndef TESTS_TOOL_COMMAND_H
#define TESTS_TOOL_COMMAND_H

#include <string>
#include <sys/types.h>

struct Ended {
    int status = 0; // exit status, or 128 + signal number
    std::string out, err;
};

// One that runs; it dies with this process.
struct Command {
    pid_t child = -1;
    int out = -1, err = -1; // memory files
};

// Sets PATH and the board's shim as the commands have them.
void prepare_environment();

// "exec " in front of the line makes the child the program itself, for signals.
Command start(const std::string &line);
Ended end_of(const Command &command);
Ended run(const std::string &line);

// The line on a terminal of its own, 80 columns wide; once it shows `prompt`, `answer` is typed.
// All of its output is in Ended::out. Without a prompt nothing is typed.
Ended run_on_terminal(const std::string &line, const std::string &prompt = "",
                      const std::string &answer = "");

#endif
