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

// "exec " in front of the line makes the child the program itself, for signals.
Command start(const std::string &line);
Ended end_of(const Command &command);
Ended run(const std::string &line);

#endif
