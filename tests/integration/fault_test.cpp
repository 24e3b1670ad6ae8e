// Faults of the bus and of its devices, one at a time, and what the library's calls make of them:
// result, errno, tries, what becomes of the path, and a bus that is free afterwards.
#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include "qeli2c.h"
#include "simboard/testing.h"

namespace
{

using simboard::testing::Board;
using Bytes = std::vector<uint8_t>;

constexpr char kDescription[] = R"({
  "name": "faults",
  "buses": [ { "bus": 4, "devices": [
    { "name": "near", "type": "registers", "address": "0x60" },
    { "name": "first", "type": "pca9548", "address": "0x70", "channels": { "5": [
      { "name": "middle", "type": "registers", "address": "0x21" },
      { "name": "second", "type": "pca9548", "address": "0x71", "channels": { "3": [
        { "name": "far", "type": "registers", "address": "0x22", "pattern": "11" } ] } } ] } }
  ] }, { "bus": 5, "devices": [
    { "name": "late", "type": "registers", "address": "0x61" } ] } ]
})";

Board &board()
{
    static Board one(kDescription);
    return one;
}

ei2c_client device(uint32_t bus, uint16_t addr, uint32_t swi_addr = 0, uint32_t swi_chnl = 0)
{
    ei2c_client client = {};
    client.bus = bus;
    client.addr = addr;
    client.swi_addr = swi_addr;
    client.swi_chnl = swi_chnl;
    return client;
}

const ei2c_client near_device = device(4, 0x60);
const ei2c_client middle = device(4, 0x21, 0x70, 5);
const ei2c_client far_device = device(4, 0x22, 0x00700071, 0x00050003);
const ei2c_client late = device(5, 0x61);

// Registers 0x10 to 0x13 of `near` are a byte with its PEC, or a block of two with one byte behind.
constexpr uint8_t kValue = 0x02;
constexpr uint8_t kPec = 0xFE;

uint8_t values[64]; // what a call brought
uint8_t length;

int32_t read_byte(const ei2c_client &client)
{
    return ei2c_smbus_read_byte_data(&client, 0x10, values);
}

int32_t read_checked()
{
    ei2c_client client = near_device;
    client.flags = QELI2C_CLIENT_PEC;
    return read_byte(client);
}

int32_t write_byte(const ei2c_client &client)
{
    return ei2c_smbus_write_byte_data(&client, 0x30, 0x5A);
}

int32_t read_block()
{
    return ei2c_smbus_read_block_data(&near_device, 0x10, &length, values);
}

int32_t read_offset()
{
    return i2cRead(&near_device, 1, values, 1, 0x10);
}

int32_t read_once()
{
    uint8_t reg = 0x10;
    i2c_msg messages[2] = {{0x60, 0, 1, &reg}, {0x60, I2C_M_RD, 1, values}};
    return ei2c_rdwr_xfer_without_retry(&near_device, messages, 2);
}

struct Row {
    const char *step;
    int32_t (*call)();
    int32_t result;
    int error;           // errno when the result is negative
    uint64_t fired;      // one for each try, with a fault that is met once in a try
    int value;           // of the first byte read, -1 when the caller's buffer stays as it was
    Bytes left = {0, 0}; // channels of the two switches still open
};

constexpr int kUntouched = -1;

int32_t read_far()
{
    return read_byte(far_device);
}

int32_t write_near()
{
    return write_byte(near_device);
}

// clang-format off
const Row kRows[] = {
    {R"("address-nack", "device": "far")", read_far, -1, ENXIO, 4, kUntouched},
    {R"("address-nack", "device": "far", "times": 3)", read_far, 0, 0, 3, 0x11},
    {R"("address-nack", "bus": 4, "address": "0x60", "direction": "read")", read_offset, -1, ENXIO, 4, kUntouched},
    {R"("data-nack", "device": "near", "byte": 2)", write_near, -1, EIO, 4, kUntouched},
    {R"("data-nack", "device": "second", "after": 1, "times": 1)", read_far, 0, 0, 1, 0x11, {0, 0x08}},
    {R"("arbitration-lost", "bus": 4)", read_offset, -1, EAGAIN, 4, kUntouched},
    {R"("bus-stuck", "device": "far")", read_far, -1, ETIMEDOUT, 4, kUntouched},
    {R"("not-ready", "bus": 4)", read_once, -1, ETIMEDOUT, 1, kUntouched},
    {R"("not-ready", "device": "far", "times": 1)", read_far, 0, 0, 1, 0x11},
    {R"("wrong-pec", "device": "near")", read_checked, -1, EBADMSG, 4, kUntouched},
    {R"("wrong-pec", "device": "near", "times": 2)", read_checked, 0, 0, 2, kValue},
    {R"("wrong-count", "device": "near")", read_block, -1, EPROTO, 4, kUntouched},
    {R"("wrong-count", "device": "near", "count": 0)", read_block, -1, EPROTO, 4, kUntouched},
    {R"("wrong-count", "device": "near", "count": 1)", read_block, 0, 0, 1, kPec},
    // Fewer messages are no failure; how many is for the caller to look at.
    {R"("short-transfer", "device": "near")", read_once, 1, 0, 1, kUntouched},
    {R"("short-transfer", "device": "far")", read_far, -1, EIO, 4, kUntouched},
    {R"("bus-error", "device": "far", "register": "0x10")", read_far, -1, EIO, 4, kUntouched},
    {R"("bus-error", "bus": 4, "errno": "EREMOTEIO", "after": 1, "times": 1)", read_far, 0, 0, 1, 0x11},
    // The near switch's failure leaves the upstream switch open.
    {R"("unplugged", "device": "second")", read_far, -1, ENXIO, 4, kUntouched, {0x20, 0}},
    // Nobody sees a switch that does not switch, but what is behind it.
    {R"("stuck-switch", "device": "second")", read_far, -1, ENXIO, 8, kUntouched},
    {R"("stuck-switch", "device": "second", "after": 1)", read_far, 0, 0, 1, 0x11, {0, 0x08}},
    {R"("call-fails", "bus": 4, "call": "I2C_SLAVE_FORCE", "errno": "EBUSY")", read_offset, -1, EBUSY, 4, kUntouched},
    {R"("call-fails", "device": "far", "call": "I2C_SLAVE", "errno": "EBUSY")", read_far, -1, EBUSY, 4, kUntouched},
    {R"("call-fails", "bus": 4, "call": "I2C_PEC", "errno": "EOPNOTSUPP")", write_near, -1, EOPNOTSUPP, 4, kUntouched},
    {R"("call-fails", "bus": 4, "call": "I2C_SMBUS", "errno": "EOPNOTSUPP", "times": 3)", write_near, 0, 0, 3, kUntouched},
    {R"("call-fails", "device": "near", "call": "I2C_RDWR", "errno": "ENODEV")", read_offset, -1, ENODEV, 4, kUntouched},
    {R"("call-fails", "bus": 5, "call": "open", "errno": "ENODEV")", [] { return write_byte(late); }, -12345678, ENODEV, 1, kUntouched},
};
// clang-format on

void set_timeout(unsigned bus, unsigned long tens_of_ms)
{
    const int fd = open(("/dev/i2c-" + std::to_string(bus)).c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(ioctl(fd, I2C_TIMEOUT, tens_of_ms), 0);
    close(fd);
}

class Fault : public testing::Test
{
protected:
    void SetUp() override
    {
        board().reset();
        board().poke("near", 0x10, {kValue, kPec, 0x33});
        set_timeout(4, 2);
    }
};

TEST_F(Fault, EveryKindMeetsItsDocumentedReaction)
{
    for (const Row &row : kRows) {
        SCOPED_TRACE(row.step);
        SetUp();
        board().inject(std::string(R"({ "steps": [ { "fault": )") + row.step + " } ] }");
        values[0] = 0xEE;
        length = 0xEE;
        errno = 0;
        EXPECT_EQ(row.call(), row.result);
        if (row.result < 0) {
            EXPECT_EQ(errno, row.error);
        }
        EXPECT_EQ(values[0], row.value == kUntouched ? 0xEE : row.value);
        EXPECT_EQ(board().faults()[0].step.fired, row.fired);
        EXPECT_EQ(board().unfired(), "");
        EXPECT_EQ((Bytes{board().peek("first"), board().peek("second")}), row.left);
        // A switch that does not switch is not to blame on who closed it.
        const bool clean =
            row.left == Bytes{0, 0} || std::strstr(row.step, "stuck-switch") != nullptr;
        EXPECT_EQ(board().wrongs().empty(), clean) << board().wrongs();
    }
}

TEST_F(Fault, TransfersThatAFaultStruckSayWhichStepItWas)
{
    board().inject(R"({ "steps": [
        { "fault": "wrong-count", "device": "near", "count": 40, "times": 1 },
        { "fault": "address-nack", "device": "near", "times": 1, "label": "absent" } ] })");
    EXPECT_EQ(read_block(), 0);
    std::vector<uint16_t> numbers;
    for (const auto &record : board().trace(4)) {
        numbers.push_back(record.fault);
        EXPECT_EQ(record.findings, record.fault != 0 ? simboard::kFindingFault : 0);
    }
    EXPECT_EQ(numbers, (std::vector<uint16_t>{2, 1, 0}));
    EXPECT_EQ(board().wire(4)[0], "W 0x60 NACK");
    EXPECT_EQ(board().wire(4)[3], "R 0x60 28");
}

TEST_F(Fault, KernelItselfTriesAgainAfterLostArbitrationAsOftenAsItWasTold)
{
    const int fd = open("/dev/i2c-4", O_RDWR | O_CLOEXEC);
    for (const unsigned retries : {3U, 2U}) {
        board().reset();
        EXPECT_EQ(ioctl(fd, I2C_RETRIES, retries), 0);
        board().inject(R"({ "steps": [ { "fault": "arbitration-lost", "bus": 4, "times": 3 } ] })");
        EXPECT_EQ(read_once(), retries == 3 ? 2 : -1);
        EXPECT_EQ(board().totals(4).transfers, retries + 1);
    }
    EXPECT_EQ(ioctl(fd, I2C_RETRIES, 0), 0);
    close(fd);
}

TEST_F(Fault, WaitsForOtherFilesGoOnWhileADeviceIsNotReady)
{
    const int device_fd = open("/dev/i2c-4", O_RDWR | O_CLOEXEC);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    board().inject(R"({ "steps": [ { "fault": "not-ready", "bus": 4 } ] })");
    for (const int way : {0, 1, 2, 3}) {
        pollfd both[2] = {{device_fd, POLLIN, 7}, {ends[0], POLLIN, 7}};
        fd_set set;
        FD_ZERO(&set);
        FD_SET(device_fd, &set);
        FD_SET(ends[0], &set);
        const int count = std::max(device_fd, ends[0]) + 1;
        const int ready = way == 0   ? poll(both, 2, -1)
                          : way == 1 ? ppoll(both, 2, nullptr, nullptr)
                          : way == 2 ? select(count, &set, nullptr, nullptr, nullptr)
                                     : pselect(count, &set, nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(ready, 1) << way;
        EXPECT_EQ(way < 2 ? both[0].revents != 0 : FD_ISSET(device_fd, &set) != 0, false) << way;
        EXPECT_EQ(way < 2 ? both[1].revents == POLLIN : FD_ISSET(ends[0], &set) != 0, true) << way;
        EXPECT_EQ(both[0].fd, device_fd);
    }
    EXPECT_EQ(board().faults()[0].step.fired, 4U);
    for (const int fd : {device_fd, ends[0], ends[1]})
        close(fd);
}

TEST_F(Fault, ChipThatIsPluggedInAgainHasForgottenWhatItHeld)
{
    EXPECT_EQ(write_byte(far_device), 0);
    board().inject(
        R"({ "steps": [ { "fault": "unplugged", "device": "far", "after": 1, "times": 4 } ] })");
    EXPECT_EQ(ei2c_smbus_read_byte_data(&far_device, 0x30, values), 0);
    EXPECT_EQ(values[0], 0x5A);
    EXPECT_EQ(ei2c_smbus_read_byte_data(&far_device, 0x30, values), -1);
    EXPECT_EQ(ei2c_smbus_read_byte_data(&far_device, 0x30, values), 0);
    EXPECT_EQ(values[0], 0x11);
}

TEST_F(Fault, KillWhileTheBusIsStuckFreesIt)
{
    set_timeout(4, 60 * 100);
    board().inject(R"({ "steps": [ { "fault": "bus-stuck", "device": "middle", "times": 1 } ] })");
    const pid_t child = fork();
    if (child == 0)
        _exit(read_byte(middle) == 0 ? 0 : 1);
    // It waits when the strike is final. To ask the board properly would be to wait for the bus.
    const simboard::State &state = *board().view().state;
    const volatile uint64_t &fired = state.faults[4].steps[0].fired;
    while (fired == 0 || state.journals[4].count != 0)
        usleep(1000);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, SIGKILL);
    EXPECT_EQ(write_byte(middle), 0);
    const auto records = board().trace(4);
    ASSERT_GE(records.size(), 2U);
    EXPECT_EQ(records[1].result, -ETIMEDOUT);
    EXPECT_EQ(records[1].fault, 1);
}

} // namespace
