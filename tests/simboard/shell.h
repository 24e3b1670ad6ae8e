// Shell commands run as a person would type them, with boards in a directory of the test's own.
#ifndef TESTS_SIMBOARD_SHELL_H
#define TESTS_SIMBOARD_SHELL_H

#include <string>

struct Finished {
    int status = -1; // exit status, as the shell counts it
    std::string out;
    std::string err;
};

// The shell finds `qeli2c-sim`, `probe` and the i2c-tools.
class Shell
{
public:
    Shell();
    ~Shell(); // fails the test when boards are left
    Shell(const Shell &) = delete;
    Shell &operator=(const Shell &) = delete;

    Finished run(const std::string &command) const;
    // A file that is gone afterwards.
    std::string write_file(const std::string &name, const std::string &text) const;
    bool has_boards() const;

private:
    std::string directory_; // holds "boards", what was written, and the output of commands
};

#endif
