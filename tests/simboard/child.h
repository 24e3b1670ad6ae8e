// A forked child that does something on the board and then stays until it is killed.
#ifndef TESTS_SIMBOARD_CHILD_H
#define TESTS_SIMBOARD_CHILD_H

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

class Child
{
public:
    explicit Child(const std::function<bool()> &work)
    {
        int ends[2] = {-1, -1};
        if (pipe(ends) == 0 && (pid_ = fork()) == 0) {
            close(ends[0]);
            const char good = work() ? 1 : 0;
            if (write(ends[1], &good, 1) == 1) {
                for (;;) {
                    pause();
                }
            }
            _exit(1);
        }
        close(ends[1]);
        ready_ = ends[0];
    }
    ~Child()
    {
        kill_and_reap();
        close(ready_);
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    pid_t pid() const { return pid_; }

    // Whether the work was done, and well.
    bool wait_ready() const
    {
        char good = 0;
        return read(ready_, &good, 1) == 1 && good == 1;
    }

    // Kills it and waits until it is a zombie.
    void kill_and_leave() const
    {
        kill(pid_, SIGKILL);
        siginfo_t info;
        waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT);
    }

    void kill_and_reap()
    {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
    }

private:
    pid_t pid_ = -1;
    int ready_ = -1;
};

#endif
