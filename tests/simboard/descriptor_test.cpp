// Opening devices, and what open descriptors share.
#include <dirent.h>
#include <dlfcn.h>
#include <glob.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
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

TEST(Descriptor, IsACharacterDeviceWithoutPosition)
{
    Board board(reference_board());
    const Device bus(9);
    struct stat status;
    ASSERT_EQ(fstat(bus.fd(), &status), 0);
    EXPECT_TRUE(S_ISCHR(status.st_mode));
    EXPECT_EQ(status.st_rdev, makedev(89, 9));
    EXPECT_EQ(lseek(bus.fd(), 0, SEEK_SET), -1);
    EXPECT_EQ(errno, ESPIPE);
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event = {};
    EXPECT_EQ(epoll_ctl(epoll, EPOLL_CTL_ADD, bus.fd(), &event), -1);
    EXPECT_EQ(errno, EPERM); // as of a device without a poll operation
    close(epoll);
    close_range(static_cast<unsigned>(bus.fd()) + 1, ~0U, 0);
    EXPECT_EQ(bus.request(I2C_SLAVE, 0x58), 0);
}

TEST(Listing, OfScandirIsTheBoards)
{
    Board board(reference_board());
    const auto is_bus = [](const dirent *entry) {
        return std::string(entry->d_name).compare(0, 4, "i2c-") == 0 ? 1 : 0;
    };
    for (const char *const directory : {"/dev", "/sys/class/i2c-dev"}) {
        dirent **found = nullptr;
        const int count = scandir(directory, &found, is_bus, versionsort);
        ASSERT_EQ(count, 16) << directory;
        for (int i = 0; i < count; i++) {
            EXPECT_EQ(found[i]->d_name, "i2c-" + std::to_string(i)) << directory;
            free(found[i]);
        }
        free(found);
    }
    dirent **none;
    EXPECT_EQ(scandir("/dev/nowhere", &none, nullptr, nullptr), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST(Stream, TransfersByItsFunctionsAndItsDescriptor)
{
    Board board(reference_board());
    FILE *const stream = fopen("/dev/i2c-7", "r+e");
    ASSERT_NE(stream, nullptr);
    setbuf(stream, nullptr);
    ASSERT_EQ(ioctl(fileno(stream), I2C_SLAVE, 0x30), 0);
    const unsigned char write[] = {0x20, 0xa5, 0x5a};
    EXPECT_EQ(fwrite(write, 1, 3, stream), 3U);
    EXPECT_EQ(board.peek("scratch-registers", 0x20, 2), (Bytes{0xa5, 0x5a}));
    unsigned char read[2] = {};
    EXPECT_EQ(fwrite(write, 1, 1, stream), 1U);
    EXPECT_EQ(fread(read, 1, 2, stream), 2U);
    EXPECT_EQ(read[1], 0x5a);
    ASSERT_EQ(ioctl(fileno(stream), I2C_SLAVE, 0x31), 0);
    EXPECT_EQ(fread(read, 1, 2, stream), 0U);
    EXPECT_NE(ferror(stream), 0);
    const int fd = fileno(stream);
    EXPECT_EQ(fclose(stream), 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(fopen("/dev/i2c-16", "r"), nullptr);
    EXPECT_EQ(errno, ENOENT);

    FILE *const other = fopen("/dev/null", "r");
    ASSERT_NE(freopen("/dev/i2c-7", "r+", other), nullptr);
    ASSERT_EQ(ioctl(fileno(other), I2C_SLAVE, 0x30), 0);
    fclose(other);
    glob_t found;
    EXPECT_EQ(glob("/dev/i2c-*", 0, nullptr, &found), 0);
    EXPECT_EQ(found.gl_pathc, 16U);
    globfree(&found);
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
