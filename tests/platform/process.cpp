// Children, signals and captured output for tests that need more than one process.
#include "tests/platform/process.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <dirent.h>
#include <sstream>
#include <sys/prctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

pid_t start_child(const std::function<int()> &body)
{
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child != 0) {
        return child;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    _exit(getppid() == parent ? body() : 127);
}

int end_of(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void kill_child(pid_t child)
{
    kill(child, SIGKILL);
    end_of(child);
}

void wait_until(const std::function<bool()> &condition)
{
    while (!condition()) {
        usleep(500);
    }
}

namespace
{

const Shared<std::atomic<int>> handled;

void count_signal(int)
{
    handled->fetch_add(1);
}

void set_timer(suseconds_t microseconds)
{
    itimerval timer = {};
    timer.it_interval.tv_usec = microseconds;
    timer.it_value.tv_usec = microseconds;
    setitimer(ITIMER_REAL, &timer, nullptr);
}

} // namespace

SignalStorm::SignalStorm()
{
    struct sigaction action = {};
    action.sa_handler = count_signal;
    sigaction(SIGALRM, &action, nullptr);
    set_timer(2000);
}

SignalStorm::~SignalStorm()
{
    set_timer(0);
    signal(SIGALRM, SIG_IGN);
    handled->store(0);
}

int SignalStorm::signals()
{
    return handled->load();
}

void SignalStorm::wait_for_signals()
{
#ifdef __SANITIZE_THREAD__
    usleep(
        100'000); // this sanitizer puts handlers off until the call that is interrupted has ended
#else
    wait_until([] { return signals() >= 3; });
#endif
}

CapturedErrors::CapturedErrors() : memory_(memfd_create("stderr", MFD_CLOEXEC)), original_(dup(2))
{
    dup2(memory_, STDERR_FILENO);
}

CapturedErrors::~CapturedErrors()
{
    dup2(original_, STDERR_FILENO);
    close(original_);
    close(memory_);
}

std::vector<std::string> CapturedErrors::lines() const
{
    std::string text;
    std::array<char, 4096> part{};
    ssize_t count = 0;
    while ((count = pread(memory_, part.data(), part.size(), static_cast<off_t>(text.size()))) >
           0) {
        text.append(part.data(), static_cast<size_t>(count));
    }
    std::vector<std::string> result;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        result.push_back(line);
    }
    return result;
}

int64_t monotonic_milliseconds()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

std::vector<int> open_descriptors()
{
    std::vector<int> result;
    DIR *directory = opendir("/proc/self/fd");
    while (const dirent *entry = readdir(directory)) {
        if (entry->d_name[0] != '.' && atoi(entry->d_name) != dirfd(directory)) {
            result.push_back(atoi(entry->d_name));
        }
    }
    closedir(directory);
    return result;
}
