// The tool's command line and its batch input, over the doubled platform: each command line ends
// with status 0, 1 or 2, and says on standard error why when it is not 0.
#include "tests/fuzz/doubled_platform.h"
#include "tools/qeli2c/board_file.h"
#include "tools/qeli2c/child.h"
#include "tools/qeli2c/interrupt.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <iostream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

int qeli2c_main(int argc, char **argv); // of main.cpp

namespace
{

using fuzz::broken;
using fuzz::Input;

constexpr int kPatience = 48; // questions and pauses until a long command is interrupted

bool running = false;
int questions = 0;
std::chrono::nanoseconds clock_now{0};

// The words are separated by blanks; batch has its lines behind the first line's end, and the
// replies of the devices follow a NUL.
struct Command {
    std::vector<std::string> words;
    std::string lines;
};

Command read_command(Input &in)
{
    const auto *nul = std::find(in.at, in.end, uint8_t{0});
    const std::string text(in.at, nul);
    in.at = nul == in.end ? nul : nul + 1;
    const size_t end = std::min(text.find('\n'), text.size());
    Command command;
    command.lines = text.substr(std::min(end + 1, text.size()));
    std::istringstream words(text.substr(0, end));
    for (std::string word; words >> word;)
        command.words.push_back(word);
    return command;
}

} // namespace

// No signal comes, but an endless command is to end.
namespace tool
{
void defer_interrupts() {}
bool interrupted()
{
    return questions++ > kPatience;
}
bool pause_unless_interrupted(std::chrono::nanoseconds time)
{
    clock_now += time;
    return !interrupted();
}
void end_if_interrupted() {}

// Nothing is run.
pid_t start_child(const std::vector<std::string> &)
{
    return 1;
}
int status_of_child(pid_t)
{
    return EXIT_SUCCESS;
}
bool child_ended(pid_t, int &status)
{
    status = EXIT_SUCCESS;
    return interrupted();
}
} // namespace tool

extern "C" {

FILE *__interceptor_fopen64(const char *name, const char *mode); // the sanitizer's

// No file of the machine is read or written by a command line: the project's own fopen, and that
// of the C++ library's streams.
FILE *fopen64(const char *name, const char *mode)
{
    if (!running)
        return __interceptor_fopen64(name, mode);
    errno = ENOENT;
    return nullptr;
}
int __wrap_execv(const char *, char *const *)
{
    broken("a program is run");
}
// The self-test's checks are processes that wait, and some that crash on purpose.
pid_t __wrap_fork()
{
    errno = EAGAIN;
    return -1;
}
int __wrap_nanosleep(const timespec *, timespec *)
{
    clock_now += std::chrono::milliseconds(1);
    return 0;
}
std::chrono::steady_clock::time_point __wrap__ZNSt6chrono3_V212steady_clock3nowEv()
{
    clock_now += std::chrono::microseconds(50);
    return std::chrono::steady_clock::time_point(clock_now);
}

int LLVMFuzzerInitialize(int *, char ***)
{
    setenv("QELI2C_BOARD", QELI2C_FUZZ_BOARD, 1);
    setenv("QELPLATFORM_LOG", "135=stderr", 1); // or --verbose starts the program anew
    (void)tool::load_board("");
    const int nowhere = openat(AT_FDCWD, "/dev/null", O_RDWR | O_CLOEXEC); // not doubled
    dup2(nowhere, STDIN_FILENO);
    dup2(nowhere, STDOUT_FILENO);
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input in = {data, data + size};
    const Command command = read_command(in);
    std::vector<char *> arguments = {const_cast<char *>("qeli2c")};
    for (const std::string &word : command.words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);

    std::istringstream input(command.lines);
    std::ostringstream output;
    std::ostringstream errors;
    auto *const cin = std::cin.rdbuf(input.rdbuf());
    auto *const cout = std::cout.rdbuf(output.rdbuf());
    auto *const cerr = std::cerr.rdbuf(errors.rdbuf());
    questions = 0;
    running = true;
    fuzz::platform.memory_lasts = true;
    fuzz::platform.replies = &in;
    const int status = qeli2c_main(static_cast<int>(arguments.size()) - 1, arguments.data());
    fuzz::platform.replies = nullptr;
    running = false;
    std::cin.rdbuf(cin);
    std::cin.clear();
    std::cout.rdbuf(cout);
    std::cerr.rdbuf(cerr);

    if (status < 0 || status > 2)
        broken("an exit status that is not documented");
    if (status != 0 && errors.str().empty())
        broken("a refusal without words");
    if ((fuzz::platform.semaphores & 0xffff) != 0 || fuzz::platform.file_locks != 0)
        broken("a bus is left held");
    fuzz::forget_platform();
    fuzz::forget_calls();
    return 0;
}
}
