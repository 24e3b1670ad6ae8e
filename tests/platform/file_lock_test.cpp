// The exclusive file lock: who holds it, and that it dies with its holder.
#include "platform/qelplatform.h"
#include "tests/platform/process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace
{

class FileLock : public testing::Test
{
protected:
    void TearDown() override { close(fd); }

    // Whether a process other than the caller locks any byte of the file.
    bool locked_by_another() const
    {
        struct flock whole_file = {};
        whole_file.l_type = F_WRLCK;
        whole_file.l_whence = SEEK_SET;
        return fcntl(fd, F_GETLK, &whole_file) == 0 && whole_file.l_type == F_WRLCK;
    }

    const int fd = memfd_create("locked", MFD_CLOEXEC);
};

TEST_F(FileLock, AChildDoesNotInheritIt)
{
    ASSERT_GE(file_lock_write(fd), 0);
    EXPECT_TRUE(in_child([this] {
        const bool before = locked_by_another();
        file_unlock(fd); // has nothing to release
        return before && locked_by_another();
    }));
    EXPECT_GE(file_unlock(fd), 0);
    EXPECT_TRUE(in_child([this] { return !locked_by_another(); }));
}

TEST_F(FileLock, DoesNotSurviveItsHolderInAChild)
{
    struct State {
        std::atomic<bool> locked, done;
    };
    auto &state = shared<State>();
    const pid_t holder = start_child([&] {
        state.locked = file_lock_write(fd) >= 0;
        if (fork() == 0) { // lives on
            wait_until([&] { return state.done.load(); });
            _exit(0);
        }
        return pause() == 0;
    });
    wait_until([&] { return state.locked.load(); });
    EXPECT_TRUE(locked_by_another());
    kill_child(holder);
    EXPECT_GE(file_lock_write(fd), 0) << "while the holder's child still has the descriptor";
    state.done = true;
}

TEST_F(FileLock, FailsOnWhatCannotBeLocked)
{
    const int read_only = sigwrap_open("/dev/null", O_RDONLY);
    EXPECT_EQ(outcome(file_lock_write(read_only)), -EBADF);
    close(read_only);
    EXPECT_EQ(outcome(file_lock_write(-1)), -EBADF);
    EXPECT_EQ(outcome(file_unlock(-1)), -EBADF);
}

} // namespace
