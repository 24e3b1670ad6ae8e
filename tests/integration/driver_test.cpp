// What no other test of the drivers has: EEPROM operations of two processes, a hold in which
// requests are made, and the platform's own reads. The chips themselves are met by tests/tool.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "qeli2c.h"
#include "simboard/testing.h"

namespace
{

using simboard::DeviceDescription;
using simboard::testing::Board;
using Bytes = std::vector<uint8_t>;

Board &board()
{
    static Board one(simboard::testing::reference_board());
    return one;
}

// The client of a device of the board.
ei2c_client client_of(const std::string &name)
{
    const auto &devices = board().description().devices;
    for (const DeviceDescription &device : devices) {
        if (device.name != name)
            continue;
        ei2c_client client = {};
        client.bus = device.bus;
        client.addr = device.address;
        uint32_t shift = 0;
        const DeviceDescription *here = &device;
        for (; here->parent >= 0; shift += 16) {
            const DeviceDescription &above = devices[static_cast<size_t>(here->parent)];
            client.swi_addr |= static_cast<uint32_t>(above.address) << shift;
            client.swi_chnl |= here->channel << shift;
            here = &above;
        }
        return client;
    }
    throw std::runtime_error("no device " + name);
}

class Driver : public testing::Test
{
protected:
    void SetUp() override { board().reset(); }
    void TearDown() override { EXPECT_EQ(board().wrongs(), ""); }
};

TEST_F(Driver, EepromOperationsOfTwoProcessesNeverInterleave)
{
    const ei2c_client eeprom = client_of("scratch-eeprom");
    constexpr int32_t length = 6 * 32;
    pid_t children[2] = {};
    for (pid_t &child : children) {
        child = fork();
        if (child == 0) {
            const Bytes data(length, static_cast<uint8_t>(getpid()));
            const bool done = eeprom_write(&eeprom, 0, data.data(), length) == length &&
                              eeprom_write(&eeprom, 0, data.data(), length) == length;
            _exit(done ? 0 : 1);
        }
    }
    for (const pid_t child : children) {
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    const auto trace = board().trace(eeprom.bus);
    ASSERT_EQ(trace.size(), 24U);
    for (size_t i = 0; i < trace.size(); i += 6) {
        for (size_t page = 1; page < 6; ++page)
            EXPECT_EQ(trace[i + page].task.pid, trace[i].task.pid) << "transfer " << i + page;
    }
}

TEST_F(Driver, MctpEndpointAnswersOnTheDescriptorOfTheHold)
{
    for (const char *name : {"board-mctp", "optics-mctp", "card-mctp"}) {
        SCOPED_TRACE(name);
        const ei2c_client endpoint = client_of(name);
        const uint8_t get_id[] = {0x21, 0x01, 0x00, 0x08, 0xcb, 0x00, 0x85, 0x02};
        uint8_t response[256] = {};
        uint32_t length = 0;
        int32_t fd = -1;
        int32_t semid = -1;
        ASSERT_GE(ei2c_smbus_select_switch(&endpoint, &fd, &semid), 0);
        EXPECT_GT(ei2c_smbus_wtrd_block_data(&endpoint, fd, 0x0F, sizeof(get_id), get_id, response,
                                             &length, 0),
                  0);
        EXPECT_EQ(ei2c_smbus_deselect_switch(&endpoint, fd, semid), 0);
        ASSERT_GE(length, 12U);
        EXPECT_EQ(response[0], 0x0F);
        EXPECT_EQ(response[9], 0x02);
        EXPECT_EQ(response[10], 0x00);
        EXPECT_EQ(response[11], board().stimulus(name, "eid"));
    }
}

TEST_F(Driver, BusStatusIsBit16OfTheControllersRegister)
{
    uint8_t status = 9;
    EXPECT_EQ(i2c_bus_status_check(1, &status), 0);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(i2c_bus_status_check(2, &status), 0);
    EXPECT_EQ(status, 0);
    board().set_physical(0x1E78A808, 0x00010000);
    EXPECT_EQ(i2c_bus_status_check(15, &status), 0);
    EXPECT_EQ(status, 1);
    board().set_physical(0x1E78A808, 0xFFFEFFFF);
    EXPECT_EQ(i2c_bus_status_check(15, &status), 0);
    EXPECT_EQ(status, 0);
}

TEST_F(Driver, BridgeHoldKeepsThePathOpenForPlainRequests)
{
    const ei2c_client bridge = client_of("riser-retimer");
    int32_t semid = -1;
    int32_t fd = -1;
    ASSERT_EQ(lockAndSelectBridge_Ridgeback(&bridge, &semid, &fd), 0);
    EXPECT_EQ(board().peek("sw-main"), 0x20);
    EXPECT_EQ(board().peek("sw-riser"), 0x02);
    EXPECT_EQ(board().physical(0xB8210000 + 4 * bridge.bus), 0U);
    uint8_t reg = 0;
    uint8_t value = 0;
    i2c_msg messages[2] = {{bridge.addr, 0, 1, &reg}, {bridge.addr, I2C_M_RD, 1, &value}};
    ui2c_client *record = ui2c_to_client(bridge.bus, bridge.addr, bridge.swi_addr, bridge.swi_chnl);
    EXPECT_EQ(ui2c_rdwr_xfer(record->adapter, bridge.addr, messages, 2), 2);
    EXPECT_EQ(value, 0xA5);
    EXPECT_EQ(unlockAndDeselectBridge_Ridgeback(&bridge, &semid, &fd), 0);
    EXPECT_EQ(board().peek("sw-main"), 0);
    EXPECT_EQ(board().peek("sw-riser"), 0);
}

} // namespace
