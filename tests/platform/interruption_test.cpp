// Every call that waits, under a storm of signals: it goes on, and no longer than it is told to.
#include "tests/platform/semaphore_sets.h"

#include <array>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace
{

class Interruption : public Semaphore
{
protected:
    void SetUp() override
    {
        Semaphore::SetUp();
        ASSERT_EQ(pipe2(pipe.data(), O_CLOEXEC), 0);
        ASSERT_EQ(pipe2(silent.data(), O_CLOEXEC), 0);
    }
    // Waits until one of the pipes, which one is told, has something to read.
    bool select_pipe(timeval *timeout, int ready) const
    {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(pipe[0], &readable);
        FD_SET(silent[0], &readable);
        return sigwrap_select(FD_SETSIZE, &readable, nullptr, nullptr, timeout) == ready &&
               (FD_ISSET(pipe[0], &readable) != 0) == (ready == 1) &&
               FD_ISSET(silent[0], &readable) == 0;
    }
    bool read_packet() const
    {
        std::array<uint8_t, 256> buffer{};
        return i2c_mctp_read_on_fd(pipe[0], buffer.data()) == 1;
    }

    std::array<int, 2> pipe{}, silent{};
};

bool signals_are_blocked()
{
    sigset_t blocked;
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, SIGALRM) != 0;
}

TEST_F(Interruption, AWaitGoesOn)
{
    struct Row {
        const char *call;
        std::function<bool()> wait;
        std::function<bool()> end;
    };
    const int file = memfd_create("locked", MFD_CLOEXEC);
    const std::string fifo = testing::TempDir() + "qelplatform-fifo-" + std::to_string(getpid());
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    timeval minute = {60, 0};
    timeval longest = {std::numeric_limits<time_t>::max(), 999'999};
    const auto give_back = [&] { return release(); };
    const auto send = [&] { return write(pipe[1], "x", 1) == 1; };
    const std::vector<Row> rows = {
        {"semaphore", [&] { return take(); }, give_back},
        {"semaphore with a limit", [&] { return take(60'000); }, give_back},
        {"file lock", [&] { return file_lock_write(file) >= 0; },
         [&] { return file_unlock(file) >= 0; }},
        {"open", [&] { return sigwrap_open(fifo.c_str(), O_WRONLY) >= 0; },
         [&] { return open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC) >= 0; }},
        {"select", [&] { return select_pipe(nullptr, 1) && read_packet(); }, send},
        {"select with a limit", [&] { return select_pipe(&minute, 1) && read_packet(); }, send},
        {"select without end", [&] { return select_pipe(&longest, 1) && read_packet(); }, send},
        {"read", [&] { return read_packet(); }, send},
    };
    for (const Row &row : rows) {
        ASSERT_TRUE(take(0) && file_lock_write(file) >= 0) << row.call;
        const pid_t waiter = start_child([&] {
            const SignalStorm storm;
            return row.wait();
        });
        wait_for_storm();
        EXPECT_TRUE(row.end()) << row.call;
        EXPECT_TRUE(ends_well(waiter)) << row.call;
        release();
        file_unlock(file);
    }
    close(file);
    unlink(fifo.c_str());
}

TEST_F(Interruption, TheWholeTimeIsWaited)
{
    struct Row {
        const char *call;
        int64_t milliseconds;
        std::function<bool()> wait;
    };
    const auto time_out = [this](uint32_t limit) {
        return [this, limit] { return outcome(OAL_SemLockBySemId(id, limit)) == -ETIMEDOUT; };
    };
    const auto select_nothing = [this](suseconds_t microseconds) {
        return [this, timeout = timeval{0, microseconds}]() mutable {
            return select_pipe(&timeout, 0);
        };
    };
    const auto sleep = [](uint32_t seconds, uint32_t microseconds) {
        return [=] {
            errno = 77;
            select_sleep(seconds, microseconds);
            return errno == 77;
        };
    };
    const std::vector<Row> rows = {
        {"semaphore", 0, time_out(0)},
        {"semaphore", 1, time_out(1)},
        {"semaphore", 100, time_out(100)},
        {"semaphore", 700, time_out(700)},
        {"select", 0, select_nothing(0)},
        {"select", 100, select_nothing(100'000)},
        {"select", 1050, select_nothing(1'050'000)},
        {"sleep", 0, sleep(0, 0)},
        {"sleep", 30, sleep(0, 30'500)},
        {"sleep", 1000, sleep(1, 0)},
        {"sleep", 1999, sleep(0, 1'999'000)},
    };
    ASSERT_TRUE(take());
    std::vector<pid_t> waiters;
    for (const Row &row : rows) {
        waiters.push_back(start_child([&] {
            using std::chrono::steady_clock, std::chrono::milliseconds;
            const SignalStorm storm;
            const auto start = steady_clock::now();
            return row.wait() && steady_clock::now() - start >= milliseconds(row.milliseconds) &&
                   !signals_are_blocked();
        }));
    }
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_TRUE(ends_well(waiters[i])) << rows[i].call << " " << rows[i].milliseconds;
    }
}

} // namespace
