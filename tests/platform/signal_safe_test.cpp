// System calls under a storm of signals, and descriptors that children must not get.
#include "platform/qelplatform.h"
#include "tests/platform/process.h"

#include <array>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

struct Pipe {
    Pipe() { EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0); }
    ~Pipe()
    {
        close(ends[0]);
        close(ends[1]);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    std::array<int, 2> ends{};
};

// Writes to the pipe once this process has been interrupted a few times.
pid_t start_late_writer(const Pipe &pipe)
{
    return start_child([&] {
        SignalStorm::wait_for_signals();
        return write(pipe.ends[1], "x", 1) == 1 ? 0 : 1;
    });
}

TEST(SignalSafeOpen, ClosesOnExecAndPassesTheMode)
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
        if (row.mode != 0) {
            EXPECT_EQ(status.st_mode & 0777, row.mode) << row.path;
        }
        close(fd);
    }
    umask(mask);
    unlink(file.c_str());
    EXPECT_EQ(sigwrap_open(file.c_str(), O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(SignalSafeOpen, GoesOnAfterASignal)
{
    const std::string fifo = testing::TempDir() + "qelplatform-fifo-" + std::to_string(getpid());
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const pid_t reader = start_child([&] {
        SignalStorm::wait_for_signals();
        return open(fifo.c_str(), O_RDONLY) >= 0 ? 0 : 1;
    });
    {
        const SignalStorm storm;
        const int fd = sigwrap_open(fifo.c_str(), O_WRONLY);
        EXPECT_GE(fd, 0) << errno;
        close(fd);
    }
    EXPECT_EQ(end_of(reader), 0);
    unlink(fifo.c_str());
}

TEST(SignalSafeSelect, TimesOutAfterTheWholeTimeDespiteSignals)
{
    const Pipe pipe;
    for (const timeval whole : {timeval{0, 0}, timeval{0, 100'000}, timeval{0, 1'050'000}}) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(pipe.ends[0], &readable);
        timeval timeout = whole;
        const int64_t start = monotonic_milliseconds();
        const SignalStorm storm;
        EXPECT_EQ(sigwrap_select(pipe.ends[0] + 1, &readable, nullptr, nullptr, &timeout), 0);
        EXPECT_GE(monotonic_milliseconds() - start + 1, whole.tv_usec / 1000);
        EXPECT_FALSE(FD_ISSET(pipe.ends[0], &readable));
        EXPECT_GE(SignalStorm::signals(), whole.tv_usec == 0 ? 0 : 1);
    }
}

TEST(SignalSafeSelect, SeesWhatBecomesReadyDespiteSignals)
{
    timeval minute = {60, 0};
    timeval longest = {std::numeric_limits<time_t>::max(), 999'999};
    for (timeval *timeout : {static_cast<timeval *>(nullptr), &minute, &longest}) {
        const Pipe pipe;
        const Pipe silent;
        const pid_t writer = start_late_writer(pipe);
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(pipe.ends[0], &readable);
        FD_SET(silent.ends[0], &readable);
        {
            const SignalStorm storm;
            EXPECT_EQ(sigwrap_select(FD_SETSIZE, &readable, nullptr, nullptr, timeout), 1);
        }
        EXPECT_TRUE(FD_ISSET(pipe.ends[0], &readable));
        EXPECT_FALSE(FD_ISSET(silent.ends[0], &readable));
        EXPECT_EQ(end_of(writer), 0);
    }
}

TEST(SignalSafeSelect, RefusesWhatCannotBeWaitedFor)
{
    timeval negative = {-1, 0};
    timeval none = {0, 0};
    EXPECT_EQ(sigwrap_select(0, nullptr, nullptr, nullptr, &negative), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(sigwrap_select(FD_SETSIZE + 1, nullptr, nullptr, nullptr, &none), -1);
    EXPECT_EQ(errno, EINVAL);
    fd_set closed;
    FD_ZERO(&closed);
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    FD_SET(descriptor, &closed);
    EXPECT_EQ(sigwrap_select(FD_SETSIZE, &closed, nullptr, nullptr, &none), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(SignalSafeSleep, SleepsTheWholeTime)
{
    struct Row {
        uint32_t seconds;
        uint32_t microseconds;
        int64_t milliseconds;
    };
    for (const Row &row :
         {Row{0, 0, 0}, Row{0, 30'500, 30}, Row{0, 1'020'000, 1020}, Row{1, 0, 1000}}) {
        const int64_t start = monotonic_milliseconds();
        const SignalStorm storm;
        errno = 77;
        select_sleep(row.seconds, row.microseconds);
        EXPECT_EQ(errno, 77);
        EXPECT_GE(monotonic_milliseconds() - start + 1, row.milliseconds);
        EXPECT_GE(SignalStorm::signals(), row.milliseconds == 0 ? 0 : 1);
    }
}

TEST(MctpRead, TakesOnePacketOfAtMost256Bytes)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    const std::vector<char> sent(300, 'p');
    for (const size_t length : {1U, 255U, 256U, 257U, 300U}) {
        std::array<uint8_t, 300> buffer{};
        ASSERT_EQ(write(ends[1], sent.data(), length), static_cast<ssize_t>(length));
        EXPECT_EQ(i2c_mctp_read_on_fd(ends[0], buffer.data()),
                  static_cast<int>(std::min(length, size_t{256})));
        EXPECT_EQ(buffer[length - 1], length <= 256 ? 'p' : 0);
        EXPECT_EQ(buffer[256], 0);
    }
    close(ends[1]);
    std::array<uint8_t, 256> buffer{};
    EXPECT_EQ(i2c_mctp_read_on_fd(ends[0], buffer.data()), 0);
    EXPECT_EQ(i2c_mctp_read_on_fd(ends[0], nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    close(ends[0]);
    EXPECT_EQ(i2c_mctp_read_on_fd(-1, buffer.data()), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(MctpRead, GoesOnAfterASignal)
{
    const Pipe pipe;
    const pid_t writer = start_late_writer(pipe);
    std::array<uint8_t, 256> buffer{};
    {
        const SignalStorm storm;
        EXPECT_EQ(i2c_mctp_read_on_fd(pipe.ends[0], buffer.data()), 1);
    }
    EXPECT_EQ(end_of(writer), 0);
}

} // namespace
