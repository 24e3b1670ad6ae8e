// Command lines run by a shell.
#include "command.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <pty.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

[[noreturn]] void become(const std::string &line)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prepare_environment();
    execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
    _exit(127);
}

int status_of(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string content_of(int fd)
{
    std::string text(static_cast<size_t>(lseek(fd, 0, SEEK_END)), '\0');
    const ssize_t size = pread(fd, text.data(), text.size(), 0);
    close(fd);
    text.resize(size < 0 ? 0 : static_cast<size_t>(size));
    return text;
}

} // namespace

void prepare_environment()
{
    const char *path = getenv("PATH");
    setenv("PATH", (std::string(QELI2C_TEST_PROGRAMS ":") + (path ? path : "")).c_str(), 1);
    setenv("LC_ALL", "C", 1);
    if (*QELI2C_TEST_PRELOAD)
        setenv("LD_PRELOAD", QELI2C_TEST_PRELOAD, 1);
}

Command start(const std::string &line)
{
    Command command;
    command.out = memfd_create("out", MFD_CLOEXEC);
    command.err = memfd_create("err", MFD_CLOEXEC);
    for (const int fd : {command.out, command.err})
        fcntl(fd, F_SETFL, O_APPEND);
    command.child = fork();
    if (command.child == 0) {
        const int nothing = open("/dev/null", O_RDONLY);
        dup2(nothing, STDIN_FILENO);
        dup2(command.out, STDOUT_FILENO);
        dup2(command.err, STDERR_FILENO);
        become(line);
    }
    return command;
}

Ended end_of(const Command &command)
{
    Ended ended;
    ended.status = status_of(command.child);
    ended.out = content_of(command.out);
    ended.err = content_of(command.err);
    return ended;
}

Ended run(const std::string &line)
{
    return end_of(start(line));
}

Ended run_on_terminal(const std::string &line, const std::string &prompt, const std::string &answer)
{
    winsize size{};
    size.ws_row = 24;
    size.ws_col = 80;
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0)
        become(line);
    Ended ended;
    bool answered = prompt.empty();
    char part[4096];
    // Reading fails with EIO once the last process has closed the terminal.
    for (ssize_t got; (got = read(terminal, part, sizeof part)) > 0;) {
        ended.out.append(part, static_cast<size_t>(got));
        if (!answered && ended.out.find(prompt) != std::string::npos)
            answered = write(terminal, answer.data(), answer.size()) > 0;
    }
    ended.status = status_of(child);
    close(terminal);
    return ended;
}
