// The drivers against the models of their chips, in front of and behind switches of the reference
// board.
#include <cmath>
#include <cstdlib>
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

TEST_F(Driver, WordExpanderPinsFollowTheirSurroundingsAndTheirOutputs)
{
    for (const char *name : {"board-io", "slot0-io", "riser-io"}) {
        SCOPED_TRACE(name);
        const ei2c_client io = client_of(name);
        uint32_t value = 7;
        for (const bool level : {false, true}) {
            board().set_pin(name, 9, level);
            EXPECT_EQ(ei2c_pca9535_get_value(&io, 9, &value), 0);
            EXPECT_EQ(value, level ? 1U : 0U);
        }
        EXPECT_EQ(pca9535_gpio_direction_output(&io, 3, 0), 0);
        EXPECT_EQ(pca9535_gpio_word_direction_output(&io, 0xC000, 0x4000), 0);
        EXPECT_EQ(board().peek(name, 6, 2), (Bytes{0xF7, 0x3F}));
        EXPECT_EQ(pca9535_gpio_word_get_value(&io, 0xC008, &value), 0);
        EXPECT_EQ(value, 0x4000U);
        EXPECT_EQ(pca9535_gpio_word_get_output_value(&io, 0xC008, &value), 0);
        EXPECT_EQ(value, 0x4000U);
        EXPECT_EQ(ei2c_pca9535_get_output_value(&io, 14, &value), 0);
        EXPECT_EQ(value, 0x4000U);
        EXPECT_EQ(pca9535_gpio_word_direction_input(&io, 0xFFFF), 0);
        EXPECT_EQ(board().peek(name, 6, 2), (Bytes{0xFF, 0xFF}));
    }
}

TEST_F(Driver, ByteExpanderPinsFollowTheirSurroundingsAndTheirOutputs)
{
    for (const char *name : {"board-leds", "slot1-leds", "riser-leds"}) {
        SCOPED_TRACE(name);
        const ei2c_client leds = client_of(name);
        uint32_t value = 7;
        uint8_t byte = 0;
        for (const bool level : {false, true}) {
            board().set_pin(name, 7, level);
            EXPECT_EQ(pca9554_gpio_get_value(&leds, 7, &value), 0);
            EXPECT_EQ(value, level ? 1U : 0U);
        }
        EXPECT_EQ(pca9554_gpio_byte_direction_output(&leds, 0x07, 0x02), 0);
        EXPECT_EQ(pca9554_gpio_set_value(&leds, 0, 1), 0);
        EXPECT_EQ(pca9554_gpio_byte_get_value(&leds, 0x07, &byte), 0);
        EXPECT_EQ(byte, 0x03);
        EXPECT_EQ(board().peek(name, 3), 0xF8);
    }
}

TEST_F(Driver, MonitorsGiveTheirVoltageAndPowerInVoltsAndWatts)
{
    const struct {
        const char *name;
        uint8_t preset; // that fits the shunt
        float power_per_count;
        uint16_t calibration; // as written, low byte first
    } rows[] = {
        {"power-12v", 1, 25.0F, 0x0014},   {"power-5v", 2, 25.0F, 0x000A},
        {"power-core", 0, 25.0F, 0x0028},  {"slot0-power", 2, 25.0F, 0x000A},
        {"riser-power", 3, 25.0F, 0x5025},
    };
    for (const auto &row : rows) {
        for (const int64_t percent : {100, 50}) {
            SCOPED_TRACE(row.name);
            const ei2c_client monitor = client_of(row.name);
            const int64_t current = board().stimulus(row.name, "current_ma") * percent / 100;
            board().set_stimulus(row.name, "current_ma", current);
            const double volts =
                static_cast<double>(board().stimulus(row.name, "voltage_mv")) / 1000;
            const double watts = volts * static_cast<double>(current) / 1000;
            float value = -1;
            EXPECT_EQ(TPA626_GetVolt(&monitor, &value), 0);
            EXPECT_NEAR(value, volts, 0.00125);
            EXPECT_EQ(TPA626_GetPower(&monitor, row.preset, &value), 0);
            EXPECT_NEAR(value, watts, watts * 0.01 + 0.05);
            tpa626_info info = {};
            info.client = monitor;
            info.wConfig = 0x2741;
            info.wCalibration = row.calibration;
            info.fPowerCoef1 = row.power_per_count;
            info.fPowerCoef2 = 1.0F;
            info.fVoltCoef1 = 1.25F;
            info.fVoltCoef2 = 1.0F;
            EXPECT_EQ(TPA626_GetPowerByInfo(&info, &value), 0);
            EXPECT_NEAR(value, watts, watts * 0.01 + 0.05);
            EXPECT_EQ(TPA626_GetVoltByInfo(&info, &value), 0);
            EXPECT_NEAR(value, volts, 0.00125);
        }
    }
}

TEST_F(Driver, RetimerBlocksComeBackAsTheyWereWritten)
{
    for (const char *name : {"retimer0", "slot0-retimer", "riser-retimer"}) {
        SCOPED_TRACE(name);
        const ei2c_client client = client_of(name);
        retimer_i2c_dev device = {};
        device.ucBus = static_cast<uint8_t>(client.bus);
        device.ucAddr = static_cast<uint8_t>(client.addr);
        device.ucSwiValid = 1;
        device.ucSwiAddr = client.swi_addr & 0xFF;
        device.ucUpSwiAddr = client.swi_addr >> 16 & 0xFF;
        device.ucSwiChnl = client.swi_chnl & 0xFF;
        device.ucUpSwiChnl = client.swi_chnl >> 16 & 0xFF;
        const Bytes block = {0x40, 1, 2, 3, 4, 5};
        EXPECT_EQ(Retimer_I2CWrite(&device, 6, block.data()), 0);
        uint8_t read[5] = {0x40};
        EXPECT_EQ(Retimer_I2CRead(&device, 5, read), 0);
        EXPECT_EQ(Bytes(read, read + 5), Bytes(block.begin() + 1, block.end()));
        EXPECT_EQ(board().peek(name, 0x40, 5), Bytes(block.begin() + 1, block.end()));
        uint8_t again[2] = {};
        EXPECT_EQ(Retimer_I2CReadBlockData(&client, 0x43, 2, again), 0);
        EXPECT_EQ(Bytes(again, again + 2), (Bytes{4, 5}));
    }
}

TEST_F(Driver, EpldProbeTellsTheVendorsApart)
{
    const struct {
        const char *name;
        int32_t vendor;
        Bytes id;
    } rows[] = {
        {"board-epld", 2, {0x01, 0x2b, 0xa0, 0x43}},
        {"board-epld-ef2", 3, {0xff, 0xc8, 0x42, 0x13}},
        {"board-epld-ef3", 3, {0x00, 0x00, 0xcc, 0x3f}},
        {"board-epld-pango", 1, {0x01, 0x4a, 0x32, 0x00}},
        {"blade0-epld", 2, {0x01, 0x2b, 0xa0, 0x43}},
        {"blade1-epld", 1, {0x01, 0x4a, 0x32, 0x00}},
        {"blade2-epld", 3, {0xff, 0xc8, 0x42, 0x13}},
        {"blade3-epld", 3, {0x00, 0x00, 0xcc, 0x3f}},
        {"card-epld0", 2, {0x01, 0x2b, 0x90, 0x43}},
        {"card-epld1", 1, {0x01, 0x4a, 0x32, 0x00}},
        {"card-epld2", 3, {0xff, 0xc8, 0x42, 0x13}},
        {"card-epld3", 3, {0x00, 0x00, 0xcc, 0x3f}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        const ei2c_client epld = client_of(row.name);
        uint8_t id[4] = {};
        EXPECT_EQ(epld_i2c_read_deviceId(&epld, id), row.vendor);
        EXPECT_EQ(Bytes(id, id + 4), row.id);
    }
    ei2c_client nobody = client_of("card-epld0");
    nobody.addr = 0x42;
    uint8_t id[4] = {};
    EXPECT_EQ(epld_i2c_read_deviceId(&nobody, id), -1);
}

TEST_F(Driver, EpldRegistersAreWrittenAndReadAtTwoByteOffsets)
{
    for (const char *name : {"board-epld-ef2", "blade0-epld", "card-epld1"}) {
        SCOPED_TRACE(name);
        const ei2c_client epld = client_of(name);
        const uint8_t data[3] = {0x11, 0x22, 0x33};
        uint8_t read[3] = {};
        EXPECT_EQ(i2c_write_multi_para(&epld, 0x8010, 2, 3, data), 0);
        EXPECT_EQ(i2c_read_multi_para(&epld, 0x8010, 2, 3, read), 0);
        EXPECT_EQ(Bytes(read, read + 3), Bytes(data, data + 3));
        const uint32_t offsets[2] = {0x8013, 0x8012};
        const uint32_t lengths[2] = {1, 2};
        const uint8_t last = 0x44;
        EXPECT_EQ(i2c_write_and_read_multi_para(&epld, offsets, 2, lengths, &last, read), 0);
        EXPECT_EQ(Bytes(read, read + 2), (Bytes{0x33, 0x44}));
    }
    for (const char *name : {"tray-epld", "optics-epld", "subcard-epld"}) {
        SCOPED_TRACE(name);
        const ei2c_client epld = client_of(name);
        uint8_t read[2] = {};
        EXPECT_EQ(epld_card_epld_read(&epld, 0x02, read, 2), 0);
        EXPECT_EQ(Bytes(read, read + 2), board().peek(name, 2, 2));
        EXPECT_EQ(read[0], board().peek(name, 2));
    }
}

TEST_F(Driver, EepromDataCrossPagesAndSurviveTheWriteCycle)
{
    for (const char *name : {"fru-eeprom", "slot-eeprom", "id-eeprom"}) {
        SCOPED_TRACE(name);
        const ei2c_client eeprom = client_of(name);
        Bytes data(70);
        for (size_t i = 0; i < data.size(); ++i)
            data[i] = static_cast<uint8_t>(3 * i + 1);
        Bytes read(data.size());
        const auto length = static_cast<int32_t>(data.size());
        EXPECT_EQ(eeprom_write(&eeprom, 0x70, data.data(), length), length);
        EXPECT_EQ(eeprom_read(&eeprom, 0x70, read.data(), length), length);
        EXPECT_EQ(read, data);
        EXPECT_EQ(board().peek(name, 0x70, 70), data);
        EXPECT_EQ(board().peek(name, 0x6F), 0xFF);
        EXPECT_EQ(board().peek(name, 0x70 + 70), 0xFF);
        uint8_t two[2] = {};
        EXPECT_EQ(i2cRead(&eeprom, 2, two, 2, 0x7F), 2);
        EXPECT_EQ(Bytes(two, two + 2), (Bytes{data[15], data[16]}));
    }
}

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
