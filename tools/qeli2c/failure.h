// How a command ends early: an exit status and one line for the person who typed it.
#ifndef QELI2C_FAILURE_H
#define QELI2C_FAILURE_H

#include <string>

namespace tool
{

enum ExitStatus { EXIT_DONE = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

struct Failure { // thrown; caught in main(), which prints the message if there is one
    int status;
    std::string message;
};

inline Failure usage_error(const std::string &message)
{
    return Failure{EXIT_USAGE, message};
}

inline Failure operation_failed(const std::string &message)
{
    return Failure{EXIT_FAILED, message};
}

} // namespace tool

#endif
