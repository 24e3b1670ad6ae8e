// The exclusive file lock: who holds it, who waits, and that it dies with its holder.
#include "platform/qelplatform.h"
#include "tests/platform/process.h"

#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace
{

class FileLock : public testing::Test
{
protected:
    void SetUp() override { fd = memfd_create("locked", 0); } // a child that execs still has it
    void TearDown() override { close(fd); }

    // Whether a process other than the caller locks any byte of the file.
    static bool locked_by_another(int file)
    {
        struct flock whole_file = {};
        whole_file.l_type = F_WRLCK;
        whole_file.l_whence = SEEK_SET;
        return fcntl(file, F_GETLK, &whole_file) == 0 && whole_file.l_type == F_WRLCK;
    }

    pid_t start_holder() const
    {
        const pid_t holder = start_child([this] { return file_lock_write(fd) < 0 ? 1 : pause(); });
        wait_until([this] { return locked_by_another(fd); });
        return holder;
    }

    int fd = -1;
};

TEST_F(FileLock, AWaitSurvivesSignalsAndTheHoldersDeathEndsIt)
{
    const pid_t holder = start_holder();
    const Shared<std::atomic<int>> locked;
    const pid_t waiter = start_child([&] {
        const SignalStorm storm;
        const int result = file_lock_write(fd);
        locked->store(result < 0 ? 2 : 1);
        return 0;
    });
    SignalStorm::wait_for_signals();
    EXPECT_EQ(locked->load(), 0);
    kill_child(holder);
    EXPECT_EQ(end_of(waiter), 0);
    EXPECT_EQ(locked->load(), 1);
}

TEST_F(FileLock, AChildDoesNotInheritIt)
{
    ASSERT_GE(file_lock_write(fd), 0);
    EXPECT_EQ(end_of(start_child([this] {
                  const bool before = locked_by_another(fd);
                  file_unlock(fd); // has nothing to release
                  return before && locked_by_another(fd) ? 0 : 1;
              })),
              0);
    const std::string descriptor = std::to_string(fd);
    EXPECT_EQ(end_of(start_child([&] {
                  execl(QELPLATFORM_PROBE, "probe", "locked", descriptor.c_str(), nullptr);
                  return 126;
              })),
              0)
        << "locked, but not by the program that was started";
    EXPECT_GE(file_unlock(fd), 0);
    EXPECT_EQ(end_of(start_child([this] { return locked_by_another(fd) ? 1 : 0; })), 0);
}

TEST_F(FileLock, DoesNotSurviveItsHolderInAChild)
{
    struct State {
        std::atomic<pid_t> heir;
        std::atomic<bool> done;
    };
    const Shared<State> state;
    const pid_t holder = start_child([&] {
        file_lock_write(fd);
        const pid_t heir = fork();
        if (heir == 0) {
            wait_until([&] { return state->done.load(); });
            _exit(0);
        }
        state->heir = heir;
        return pause();
    });
    wait_until([&] { return state->heir != 0; });
    EXPECT_TRUE(locked_by_another(fd));
    kill_child(holder);
    EXPECT_GE(file_lock_write(fd), 0) << "while the holder's child still has the descriptor";
    EXPECT_EQ(kill(state->heir, 0), 0);
    state->done = true;
}

TEST_F(FileLock, FailsOnWhatCannotBeLocked)
{
    EXPECT_LT(file_lock_write(-1), 0);
    EXPECT_EQ(errno, EBADF);
    EXPECT_LT(file_unlock(-1), 0);
    EXPECT_EQ(errno, EBADF);
    const int read_only = sigwrap_open("/dev/null", O_RDONLY);
    EXPECT_LT(file_lock_write(read_only), 0);
    EXPECT_EQ(errno, EBADF);
    close(read_only);
}

} // namespace
