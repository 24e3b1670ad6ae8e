// A command run while something is held for it.
#ifndef QELI2C_CHILD_H
#define QELI2C_CHILD_H

#include <string>
#include <sys/types.h>
#include <vector>

namespace tool
{

// Starts the command. It gets Ctrl-C from the terminal itself; SIGTERM and SIGHUP to this process
// are passed on to it, and it is told to end when this process dies.
pid_t start_child(const std::vector<std::string> &words);

// Waits for its end: its exit status, 128 + N when signal N ended it.
int status_of_child(pid_t child);
// Whether it has ended, with its status.
bool child_ended(pid_t child, int &status);

} // namespace tool

#endif
