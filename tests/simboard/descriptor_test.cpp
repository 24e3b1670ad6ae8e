// Opening devices, and what open descriptors share.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <sys/wait.h>

#include "child.h"
#include "device.h"
#include "simboard/testing.h"

namespace
{

using simboard::testing::Board;
using simboard::testing::reference_board;

int read_register(int fd)
{
    i2c_smbus_data data = {};
    i2c_smbus_ioctl_data request = {I2C_SMBUS_READ, 0, I2C_SMBUS_BYTE_DATA, &data};
    return ioctl(fd, I2C_SMBUS, &request) < 0 ? -errno : data.byte;
}

TEST(Descriptor, AddressIsSharedByDuplicatesAndChildrenButNotByOpens)
{
    Board board(reference_board());
    board.poke("psu0", 0, {0x58});
    board.poke("psu1", 0, {0x59});
    const Device bus(1);
    const Device other(1);
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x58), 0);
    ASSERT_EQ(other.request(I2C_SLAVE, 0x59), 0);
    const int copy = dup(bus.fd());
    EXPECT_EQ(read_register(copy), 0x58);
    ASSERT_EQ(ioctl(copy, I2C_SLAVE, 0x59), 0);
    close(copy);
    EXPECT_EQ(read_register(bus.fd()), 0x59);

    Child child([&bus] {
        return read_register(bus.fd()) == 0x59 && ioctl(bus.fd(), I2C_SLAVE, 0x58) == 0;
    });
    ASSERT_TRUE(child.wait_ready());
    EXPECT_EQ(read_register(bus.fd()), 0x58);
    EXPECT_EQ(read_register(other.fd()), 0x59);
}

TEST(Descriptor, GoesOnWorkingAfterExec)
{
    Board board(reference_board());
    board.poke("psu0", 0, {0x2a});
    const int fd = open("/dev/i2c-1", O_RDWR); // inherited
    ASSERT_EQ(ioctl(fd, I2C_SLAVE, 0x58), 0);
    const pid_t child = fork();
    if (child == 0) {
        execl(SIMBOARD_PROBE, SIMBOARD_PROBE, std::to_string(fd).c_str(), nullptr);
        _exit(255);
    }
    int status = 0;
    waitpid(child, &status, 0);
    close(fd);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0x2a);
}

TEST(Descriptor, IsAlwaysReadableAndWritable)
{
    Board board(reference_board());
    const Device bus(1);
    pollfd one = {bus.fd(), POLLIN | POLLOUT, 0};
    EXPECT_EQ(poll(&one, 1, 0), 1);
    EXPECT_EQ(one.revents, POLLIN | POLLOUT);
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(bus.fd(), &readable);
    timeval none = {0, 0};
    EXPECT_EQ(select(bus.fd() + 1, &readable, nullptr, nullptr, &none), 1);
}

TEST(Open, TakesTheDevicesOfTheBoardAndNothingElse)
{
    Board board(R"({"name":"one","buses":[{"bus":3}]})");
    const struct {
        const char *path;
        int flags;
        int error; // 0: opens
    } rows[] = {
        {"/dev/i2c-3", O_RDWR, 0},
        {"/dev/i2c-3", O_RDONLY | O_TRUNC, 0},
        {"/dev/i2c-3", O_RDWR | O_CREAT, 0},
        {"/dev/i2c-3", O_RDWR | O_CREAT | O_EXCL, EEXIST},
        {"/dev/i2c-3", O_RDWR | O_DIRECTORY, ENOTDIR},
        {"/dev/i2c-4", O_RDWR, ENOENT},
        {"/dev/i2c-16", O_RDWR, ENOENT},
        {"/dev/i2c-99999999999", O_RDWR | O_CREAT, ENOENT},
        {"/dev/i2c-03", O_RDWR, ENOENT},
        {"/dev/i2c-3x", O_RDWR, ENOENT},
        {"/dev/i2c/3", O_RDWR, ENOENT},
        {"/dev/null", O_RDWR, 0},
        {"/dev/mem", O_RDWR | O_SYNC, 0},
    };
    for (const auto &row : rows) {
        const int fd = open(row.path, row.flags, 0600);
        EXPECT_EQ(fd < 0 ? errno : 0, row.error) << row.path << " " << row.flags;
        if (fd >= 0) {
            close(fd);
        }
    }
    EXPECT_EQ(ioctl(STDERR_FILENO, I2C_SLAVE, 0x20), -1);
    EXPECT_EQ(errno, ENOTTY);
}

TEST(Open, EveryNameOfIt)
{
    Board board(reference_board());
    const Device expected(1);
    for (const char *name : {"open", "open64", "__open_2", "__open64_2"}) {
        const auto call =
            reinterpret_cast<int (*)(const char *, int, ...)>(dlsym(RTLD_DEFAULT, name));
        const int fd = call("/dev/i2c-1", O_RDWR);
        EXPECT_EQ(ioctl(fd, I2C_SLAVE, 0x58), 0) << name;
        close(fd);
    }
    for (const char *name : {"openat", "openat64", "__openat_2", "__openat64_2"}) {
        const auto call =
            reinterpret_cast<int (*)(int, const char *, int, ...)>(dlsym(RTLD_DEFAULT, name));
        const int fd = call(AT_FDCWD, "/dev/i2c-1", O_RDWR);
        EXPECT_EQ(ioctl(fd, I2C_SLAVE, 0x58), 0) << name;
        close(fd);
    }
}

TEST(Open, AnUnusableBoardNeverGivesWayToTheMachine)
{
    const std::string gone = Board(reference_board()).directory();
    setenv("QELI2C_SIM", gone.c_str(), 1);
    for (const char *path : {"/dev/i2c-0", "/dev/mem"}) {
        EXPECT_EQ(open(path, O_RDWR), -1);
        EXPECT_EQ(errno, ENODEV);
    }
    EXPECT_EQ(semget(0x3060, 1, IPC_CREAT | 0600), -1);
    EXPECT_EQ(errno, ENODEV);
    unsetenv("QELI2C_SIM");
}

TEST(Memory, IsTheBoardsAndSharedByItsProcesses)
{
    Board board(reference_board());
    const off_t table = 0xB8210000;
    Child writer([table] {
        const int fd = open("/dev/mem", O_RDWR);
        void *const area = mmap(nullptr, 64, PROT_READ | PROT_WRITE, MAP_SHARED, fd, table);
        if (area == MAP_FAILED) {
            return false;
        }
        static_cast<uint32_t *>(area)[3] = 4711;
        return true;
    });
    ASSERT_TRUE(writer.wait_ready());
    EXPECT_EQ(board.physical(0xB8210000 + 12), 4711U);
    EXPECT_EQ(board.physical(0xB8210000 + 16), 0U);
    board.set_physical(0x1E78A088 + 0x80 * 15, 0x80000001U);
    const int fd = open("/dev/mem", O_RDWR);
    uint32_t value = 0;
    EXPECT_EQ(pread(fd, &value, sizeof(value), 0x1E78A088 + 0x80 * 15), 4);
    EXPECT_EQ(value, 0x80000001U);
    close(fd);
    board.reset();
    EXPECT_EQ(board.physical(0xB8210000 + 12), 0U);
}

} // namespace
