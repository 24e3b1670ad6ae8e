// System calls that go on after a signal: what they do besides (see interruption_test.cpp).
#include "platform/qelplatform.h"
#include "tests/platform/process.h"

#include <array>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

TEST(SignalSafe, AnOpenClosesOnExecAndPassesTheMode)
{
    const std::string directory = testing::TempDir();
    const std::string file = directory + "qelplatform-" + std::to_string(getpid());
    const mode_t mask = umask(0);
    struct Row {
        std::string path;
        int flags;
        mode_t mode; // permissions of the file it opens, 0 when it existed before
    };
    for (const Row &row :
         {Row{"/dev/null", O_RDWR, 0}, Row{"/dev/null", O_RDONLY | O_CLOEXEC, 0},
          Row{directory, O_RDONLY | O_DIRECTORY, 0}, Row{file, O_RDWR | O_CREAT | O_EXCL, 0640},
          Row{directory, O_RDWR | O_TMPFILE, 0604}}) {
        const int fd = sigwrap_open(row.path.c_str(), row.flags, row.mode);
        ASSERT_GE(fd, 0) << row.path;
        EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC) << row.path;
        struct stat status = {};
        fstat(fd, &status);
        EXPECT_EQ(row.mode == 0 ? 0 : status.st_mode & 0777, row.mode) << row.path;
        close(fd);
    }
    umask(mask);
    unlink(file.c_str());
    EXPECT_EQ(outcome(sigwrap_open(file.c_str(), O_RDONLY)), -ENOENT);
}

TEST(SignalSafe, ASelectRefusesWhatCannotBeWaitedFor)
{
    timeval negative = {-1, 0};
    timeval none = {0, 0};
    fd_set closed;
    FD_ZERO(&closed);
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    FD_SET(descriptor, &closed);
    EXPECT_EQ(outcome(sigwrap_select(0, nullptr, nullptr, nullptr, &negative)), -EINVAL);
    EXPECT_EQ(outcome(sigwrap_select(FD_SETSIZE + 1, nullptr, nullptr, nullptr, &none)), -EINVAL);
    EXPECT_EQ(outcome(sigwrap_select(FD_SETSIZE, &closed, nullptr, nullptr, &none)), -EBADF);
}

TEST(SignalSafe, AReadTakesOnePacketOfAtMost256Bytes)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    const std::array<char, 300> sent = {'p'};
    std::array<uint8_t, 300> buffer{};
    for (const int length : {1, 255, 256, 257, 300}) {
        buffer.fill('#');
        ASSERT_EQ(write(ends[1], sent.data(), static_cast<size_t>(length)), length);
        EXPECT_EQ(i2c_mctp_read_on_fd(ends[0], buffer.data()), std::min(length, 256));
        EXPECT_EQ(buffer[0], 'p');
        EXPECT_EQ(buffer[256], '#');
    }
    close(ends[1]);
    EXPECT_EQ(i2c_mctp_read_on_fd(ends[0], buffer.data()), 0);
    EXPECT_EQ(outcome(i2c_mctp_read_on_fd(ends[0], nullptr)), -EINVAL);
    close(ends[0]);
    EXPECT_EQ(outcome(i2c_mctp_read_on_fd(-1, buffer.data())), -EBADF);
}

} // namespace
