// qeli2c-sim run: a board for one command, gone when the command is.
#include "environment.h"
#include "faults.h"
#include "trace_session.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace runner
{

namespace
{

constexpr int kForwarded[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2};
constexpr int kNotExecutable = 126; // as the shell has it
constexpr int kNotFound = 127;
constexpr int kKilled = 128;

// The throwaway board; deleting it is the last thing done on every path.
struct ThrowawayBoard {
    simboard::NewBoard board;

    ~ThrowawayBoard()
    {
        try {
            simboard::delete_board(board.directory);
        } catch (const std::runtime_error &error) {
            std::fprintf(stderr, "qeli2c-sim: %s\n", error.what());
        }
        close(board.owner_fd);
    }
};

sigset_t watched_signals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : kForwarded) {
        sigaddset(&set, number);
    }
    sigaddset(&set, SIGCHLD);
    return set;
}

// A signal that came before there was a command to have it.
int pending_signal()
{
    sigset_t pending;
    sigpending(&pending);
    for (const int number : kForwarded) {
        if (sigismember(&pending, number) == 1) {
            return number;
        }
    }
    return 0;
}

[[noreturn]] void become(const std::vector<std::string> &command, const Environment &environment,
                         const sigset_t &mask, int failure_pipe)
{
    for (const auto &[name, value] : environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    std::vector<char *> arguments;
    for (const std::string &argument : command) {
        arguments.push_back(const_cast<char *>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    execvp(arguments[0], arguments.data());
    const int error = errno;
    const ssize_t written = write(failure_pipe, &error, sizeof(error));
    _exit(written == ssize_t{sizeof(error)} ? kNotFound : kNotExecutable);
}

// The command's process id; the errno of a failed start in `error`.
pid_t spawn(const std::vector<std::string> &command, const Environment &environment,
            const sigset_t &mask, int &error)
{
    int ends[2];
    error = 0;
    if (pipe2(ends, O_CLOEXEC) < 0) {
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    }
    const pid_t child = fork();
    if (child == 0) {
        become(command, environment, mask, ends[1]);
    }
    const int fork_error = errno;
    close(ends[1]);
    if (child > 0) {
        while (read(ends[0], &error, sizeof(error)) < 0 && errno == EINTR) {
        }
    }
    close(ends[0]);
    if (child < 0) {
        throw std::runtime_error(std::string("fork: ") + std::strerror(fork_error));
    }
    return child;
}

// Waits for the command, handing on what this program is sent. What a terminal sends goes to both
// of them anyway.
int wait_for(pid_t child, const sigset_t &watched)
{
    for (;;) {
        siginfo_t info;
        const int number = sigwaitinfo(&watched, &info);
        int status;
        if (number == SIGCHLD && waitpid(child, &status, WNOHANG) == child) {
            return WIFSIGNALED(status) ? kKilled + WTERMSIG(status) : WEXITSTATUS(status);
        }
        if (number > 0 && number != SIGCHLD && info.si_code != SI_KERNEL) {
            kill(child, number);
        }
    }
}

struct RunArguments {
    BoardChoice board;
    TraceChoice trace;
};

bool ends_with(const std::string &text, const std::string &end)
{
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

TraceFormat format_of(const std::string &file)
{
    return ends_with(file, ".vcd")                                 ? TraceFormat::vcd
           : ends_with(file, ".json") || ends_with(file, ".jsonl") ? TraceFormat::json
                                                                   : TraceFormat::text;
}

std::unique_ptr<BackgroundTrace> open_trace(const std::string &directory, TraceChoice choice)
{
    if (choice.file.empty()) {
        return nullptr;
    }
    choice.format = format_of(choice.file);
    // A reader that has seen enough ends the trace, not the command.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    sigprocmask(SIG_BLOCK, &pipe, nullptr);
    return std::make_unique<BackgroundTrace>(directory, choice);
}

// Waits until the rest of the trace is written; a signal that ends programs leaves it out. Returns
// 0, or what the signal makes the exit status.
int await_trace(BackgroundTrace &trace, const sigset_t &watched)
{
    int status = kDone;
    trace.stop();
    while (!trace.is_written()) {
        const timespec moment = {0, 2'000'000};
        const int number = sigtimedwait(&watched, nullptr, &moment);
        if (number > 0 && number != SIGCHLD && number != SIGUSR1 && number != SIGUSR2) {
            std::fprintf(stderr, "qeli2c-sim: interrupted: the end of the trace is missing\n");
            status = kKilled + number;
            trace.abandon();
            break;
        }
    }
    return status;
}

// The command's status; what befalls the trace counts when the command itself did not fail.
int end_trace(BackgroundTrace *trace, const sigset_t &watched, int status)
{
    int own_status = kDone;
    try {
        if (trace != nullptr) {
            own_status = await_trace(*trace, watched);
            if (!trace->finish() && own_status == kDone) {
                own_status = kFailed;
            }
        }
    } catch (const std::runtime_error &error) {
        std::fprintf(stderr, "qeli2c-sim: %s\n", error.what());
        own_status = kFailed;
    }
    return status == kDone ? own_status : status;
}

int run_command(const RunArguments &arguments, const std::vector<std::string> &command)
{
    const sigset_t watched = watched_signals();
    sigset_t former;
    signal(SIGCHLD, SIG_DFL);
    sigprocmask(SIG_BLOCK, &watched, &former);
    const ThrowawayBoard holder = {make_board(arguments.board, "")};
    const Environment environment = board_environment(holder.board.directory);
    const auto trace = open_trace(holder.board.directory, arguments.trace);
    if (const int number = pending_signal(); number != 0) {
        return kKilled + number;
    }
    int error;
    const pid_t child = spawn(command, environment, former, error);
    if (error != 0) {
        waitpid(child, nullptr, 0);
        std::fprintf(stderr, "qeli2c-sim: %s: %s\n", command[0].c_str(), std::strerror(error));
        return error == ENOENT ? kNotFound : kNotExecutable;
    }
    if (trace != nullptr) {
        trace->start();
    }
    const int status = end_trace(trace.get(), watched, wait_for(child, watched));
    return judge_faults(holder.board.directory, status);
}

std::vector<std::string> command_of(const Runner &runner)
{
    std::vector<std::string> command = runner.remaining;
    const std::vector<std::string> &cut = runner.after_dashes;
    const bool starts_with_dashes = command.empty() && !cut.empty();
    command.insert(command.end(), cut.begin() + (starts_with_dashes ? 1 : 0), cut.end());
    if (command.empty()) {
        throw UsageError("no command to run");
    }
    if (!starts_with_dashes && command[0][0] == '-') {
        throw UsageError("run has no option " + command[0]);
    }
    return command;
}

} // namespace

void add_run(CLI::App &app, Runner &runner)
{
    const auto arguments = std::make_shared<RunArguments>();
    CLI::App &run = add_command(
        app, runner, "run", "Run a command on a board of its own, gone afterwards",
        "COMMAND needs -- in front only when it starts with a dash. The exit status is\n"
        "its own, or 128 and the number of the signal that killed it; if it is 0 and a\n"
        "step of the fault plan never struck, it becomes 1.",
        [arguments, &runner] { return run_command(*arguments, command_of(runner)); });
    add_board_choice(run, arguments->board);
    add_option(run, "--trace", arguments->trace.file, "FILE",
               "Write transfers there: *.json, *.vcd, else text");
    add_trace_style(run, arguments->trace);
    stop_at_first_argument(run);
}

} // namespace runner
