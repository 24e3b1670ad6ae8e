// read and write on open devices.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/wait.h>

#include <thread>

#include "device.h"
#include "simboard/testing.h"

namespace
{

using simboard::testing::Board;

const char *const BOARD = R"({"name": "plain", "buses": [{"bus": 0, "devices": [
    {"name": "r", "type": "registers", "address": "0x20", "pattern": "00 11 22"},
    {"name": "ee", "type": "at24c512", "address": "0x50", "busy_after_write": false}]}]})";

ssize_t result_of(ssize_t result)
{
    return result < 0 ? -errno : result;
}

// Register 1 as a plain write and read find it.
int read_register(int fd)
{
    const uint8_t number = 1;
    uint8_t value = 0xee;
    return write(fd, &number, 1) == 1 && read(fd, &value, 1) == 1 ? value : -errno;
}

TEST(PlainTransfer, IsOneMessageToTheAddressSet)
{
    Board board(BOARD);
    const Device bus(0);
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x20), 0);
    ASSERT_EQ(bus.request(I2C_PEC, 1), 0); // not of plain transfers
    const uint8_t bytes[] = {1, 0x7a, 0x7b};
    uint8_t back[3] = {};
    errno = EXDEV;
    EXPECT_EQ(write(bus.fd(), bytes, 3), 3);
    EXPECT_EQ(read(bus.fd(), back, 3), 3);
    EXPECT_EQ(write(bus.fd(), nullptr, 0), 0);
    EXPECT_EQ(read(bus.fd(), nullptr, 0), 0);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(board.wire(0), (std::vector<std::string>{"W 0x20 01 7a 7b", "P", "R 0x20 00 11 22",
                                                       "P", "W 0x20", "P", "R 0x20", "P"}));
    EXPECT_EQ(back[2], 0x22);
}

// The kernel hands them to i2c-dev as reads and writes, a part of a vector as one message.
TEST(PlainTransfer, WithAPositionOrInParts)
{
    Board board(BOARD);
    const Device bus(0);
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x20), 0);
    uint8_t first[] = {4, 0x5a};
    uint8_t second[] = {1};
    iovec parts[] = {{first, 2}, {nullptr, 0}, {second, 1}};
    EXPECT_EQ(writev(bus.fd(), parts, 3), 3);
    EXPECT_EQ(pread(bus.fd(), first, 2, 77), 2);
    EXPECT_EQ(pwrite(bus.fd(), "\4", 1, 77), 1);
    EXPECT_EQ(preadv(bus.fd(), parts, 1, 77), 2);
    EXPECT_EQ(first[0], 0x5a);
    EXPECT_EQ(writev(bus.fd(), parts + 1, 1), 0);
    EXPECT_EQ(result_of(pread(bus.fd(), first, 1, -1)), -EINVAL);
    EXPECT_EQ(result_of(pwritev(bus.fd(), parts, 1, -1)), -EINVAL);
    EXPECT_EQ(board.wire(0),
              (std::vector<std::string>{"W 0x20 04 5a", "P", "W 0x20 01", "P", "R 0x20 11 22", "P",
                                        "W 0x20 04", "P", "R 0x20 5a 22", "P"}));
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x33), 0); // nobody there
    EXPECT_EQ(result_of(writev(bus.fd(), parts, 3)), -ENXIO);
    EXPECT_EQ(result_of(pread(bus.fd(), first, 1, 0)), -ENXIO);
}

TEST(PlainTransfer, FailsAsTheTransferOrTheCallDoes)
{
    Board board(BOARD);
    const Device bus(0);
    const Device reader("/dev/i2c-0", O_RDONLY);
    const Device writer("/dev/i2c-0", O_WRONLY);
    void *volatile nowhere = reinterpret_cast<void *>(8);
    uint8_t byte = 0x5a;
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x21), 0);
    EXPECT_EQ(result_of(read(bus.fd(), &byte, 1)), -ENXIO);
    EXPECT_EQ(result_of(write(bus.fd(), &byte, 1)), -ENXIO);
    EXPECT_EQ(byte, 0x5a);
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x20), 0);
    EXPECT_EQ(result_of(read(bus.fd(), nowhere, 1)), -EFAULT);
    EXPECT_EQ(result_of(write(reader.fd(), &byte, 1)), -EBADF);
    EXPECT_EQ(result_of(read(writer.fd(), &byte, 1)), -EBADF);
    ASSERT_EQ(reader.request(I2C_SLAVE, 0x20), 0);
    EXPECT_EQ(read(reader.fd(), &byte, 1), 1);
    EXPECT_EQ(byte, 0x00);
}

TEST(PlainTransfer, IsCutAtTheLongestMessage)
{
    Board board(BOARD);
    const Device bus(0);
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x50), 0);
    Bytes bytes(8200, 0x33);
    bytes[0] = bytes[1] = 0;
    EXPECT_EQ(write(bus.fd(), bytes.data(), bytes.size()), 8192);
    bytes.assign(8200, 0x44);
    EXPECT_EQ(read(bus.fd(), bytes.data(), bytes.size()), 8192);
    EXPECT_EQ(bytes[8192], 0x44);
    EXPECT_EQ(board.trace(0).back().messages[0].done, 8192);
}

TEST(PlainTransfer, WorksOnDuplicatesOfEveryKind)
{
    Board board(BOARD);
    const Device bus(0);
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x20), 0);
    const int top = 200; // numbers nobody has used yet
    const int copies[] = {
        dup(bus.fd()),
        dup2(bus.fd(), top),
        dup3(bus.fd(), top + 1, O_CLOEXEC),
        fcntl(bus.fd(), F_DUPFD, top + 2),
        fcntl(bus.fd(), F_DUPFD_CLOEXEC, top + 3),
        dup2(top, top + 4),
    };
    for (const int copy : copies) {
        EXPECT_EQ(read_register(copy), 0x11) << copy;
    }
    for (const int copy : copies) {
        close(copy);
    }
}

TEST(PlainTransfer, WorksOnInheritedAndReceivedDevices)
{
    Board board(BOARD);
    const int fd = open("/dev/i2c-0", O_RDWR);
    ASSERT_EQ(ioctl(fd, I2C_SLAVE, 0x20), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (read_register(fd) == 0x11) {
            execl(SIMBOARD_PROBE, SIMBOARD_PROBE, std::to_string(fd).c_str(), "plain", nullptr);
        }
        _exit(255);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0x22); // the register after

    // A descriptor that comes over a socket is known from its first request on.
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    char byte = 0;
    iovec data = {&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    cmsghdr *const header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(header), &fd, sizeof(fd));
    ASSERT_EQ(sendmsg(ends[0], &message, 0), 1);
    ASSERT_EQ(recvmsg(ends[1], &message, 0), 1);
    int received = -1;
    memcpy(&received, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof(received));
    ASSERT_EQ(ioctl(received, I2C_SLAVE, 0x20), 0);
    EXPECT_EQ(read_register(received), 0x11);
    for (const int open_one : {ends[0], ends[1], received, fd}) {
        close(open_one);
    }
}

// Numbers are used again: what was a device is a pipe next, and the other way round.
TEST(PlainTransfer, LeavesOtherFilesAlone)
{
    Board board(BOARD);
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int i = 0; i < 3; i++) {
        threads.emplace_back([&wrong] {
            for (int round = 0; round < 300; round++) {
                const int fd = open("/dev/i2c-0", O_RDWR | O_CLOEXEC);
                wrong += ioctl(fd, I2C_SLAVE, 0x50) == 0 ? 0 : 1;
                const uint8_t address[2] = {0, 0};
                wrong += write(fd, address, 2) == 2 ? 0 : 1;
                close(fd);
                int ends[2];
                wrong += pipe2(ends, O_CLOEXEC) == 0 ? 0 : 1;
                char byte = 'x';
                wrong += write(ends[1], &byte, 1) == 1 ? 0 : 1;
                byte = 0;
                wrong += read(ends[0], &byte, 1) == 1 && byte == 'x' ? 0 : 1;
                close(ends[0]);
                close(ends[1]);
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(board.totals().transfers, 900U);
}

} // namespace
