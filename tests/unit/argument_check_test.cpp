// Null arguments: which one is reported first, under which names, with nothing asked of anybody.
#include "tests/unit/scripted_kernel.h"

#include "bus/ui2c_ioctls/core.h"
#include "include/qeli2c.h"

#include <gtest/gtest.h>

using namespace scripted;

namespace
{

ei2c_client device = {3, 0x50, 0, 0, 0, ""};
ui2c_adapter adapter = {};
ui2c_switch near_switch = {};
tpa626_info monitor = {};
i2c_msg msg = {};
i2c_msg *sets[2] = {&msg, &msg};
uint32_t length = 7;
uint32_t lengths[2] = {1, 1};
int32_t number = 7;
uint8_t byte = 7;

// The call with its null argument, and what is reported of it.
#define ROW(file, function, argument, call)                                                        \
    {                                                                                              \
        file, #function, argument, [] { return function call; }                                    \
    }

const struct {
    const char *file, *function, *argument;
    int32_t (*run)();
} rows[] = {
    ROW("ui2c_ioctls", ui2c_adapter_fd, "adapter", (nullptr)),
    ROW("ui2c_ioctls", ui2c_rdwr_xfer, "msgs", (&adapter, 0x50, nullptr, 1)),
    ROW("ui2c_ioctls", ui2c_raw_read_byte, "adap", (nullptr, 0x70, nullptr)),
    ROW("ui2c_ioctls", ui2c_raw_read_byte, "value", (&adapter, 0x70, nullptr)),
    ROW("ui2c_ioctls", SelectSwitch, "eclient", (nullptr)),
    ROW("ui2c_ioctls", DeselectSwitch, "eclient", (nullptr)),
    ROW("ui2c_ioctls", readSwitchStatus, "eclient", (nullptr, nullptr)),
    ROW("ui2c_ioctls", readSwitchStatus, "val", (&device, nullptr)),
    ROW("ui2c_swi", ui2c_swi_status, "swi", (nullptr, nullptr)),
    ROW("ui2c_swi", ui2c_swi_status, "val", (&near_switch, nullptr)),
    ROW("ui2c_ioctls", ei2c_rdwr_xfer, "eclient", (nullptr, nullptr, 1)),
    ROW("ui2c_ioctls", ei2c_rdwr_xfer, "msgs", (&device, nullptr, 0)),
    ROW("ui2c_ioctls", ei2c_rdwr_xfer_without_retry, "eclient", (nullptr, nullptr, 1)),
    ROW("ui2c_ioctls", ei2c_rdwr_xfer_without_retry, "msgs", (&device, nullptr, 0)),
    ROW("ui2c_ioctls", ei2c_rdwr_mxfer, "eclient", (nullptr, nullptr, nullptr)),
    ROW("ui2c_ioctls", ei2c_rdwr_mxfer, "num", (&device, nullptr, nullptr)),
    ROW("ui2c_ioctls", ei2c_rdwr_mxfer, "msgs", (&device, nullptr, &length)),
    ROW("ui2c_ioctls", ei2c_rdwr_mxfer, "num", (&device, sets, nullptr)),
    ROW("ui2c_ioctls", ei2c_smbus_xfer, "eclient", (nullptr, 0, 0, 1, nullptr)),
    ROW("ui2c_ioctls", ei2c_smbus_xfer_without_lock, "eclient", (nullptr, 0, 0, 1, nullptr)),
    ROW("ui2c_ioctls", ei2c_smbus_xfer_wtrd, "eclient",
        (nullptr, 1, 0, 0, 5, nullptr, nullptr, nullptr, 0)),
    ROW("ui2c_ioctls", ei2c_smbus_xfer_wtrd, "read_len",
        (&device, 1, 0, 0, 5, nullptr, nullptr, nullptr, 0)),
    ROW("ui2c_ioctls", qel_ei2c_smbus_xfer_read, "eclient", (nullptr, 1, nullptr, nullptr)),
    ROW("ui2c_ioctls", qel_ei2c_smbus_xfer_read, "read_buf", (&device, 1, nullptr, nullptr)),
    ROW("ui2c_ioctls", qel_ei2c_smbus_xfer_read, "read_len", (&device, 1, &byte, nullptr)),
    ROW("ui2c_ioctls", ei2c_smbus_lock_adapter, "eclient", (nullptr, nullptr, nullptr)),
    ROW("ui2c_ioctls", ei2c_smbus_lock_adapter, "pfd", (&device, nullptr, nullptr)),
    ROW("ui2c_ioctls", ei2c_smbus_lock_adapter, "psdwSemId", (&device, &number, nullptr)),
    ROW("ui2c_ioctls", ei2c_smbus_select_switch, "eclient", (nullptr, nullptr, nullptr)),
    ROW("ui2c_ioctls", ei2c_smbus_select_switch, "pfd", (&device, nullptr, nullptr)),
    ROW("ui2c_ioctls", ei2c_smbus_select_switch, "psdwSemId", (&device, &number, nullptr)),
    ROW("ui2c_ioctls", ei2c_smbus_unlock_adapter, "eclient", (nullptr, 41, 7)),
    ROW("ui2c_ioctls", ei2c_smbus_deselect_switch, "eclient", (nullptr, 41, 7)),
    ROW("libi2c_qelifc", ei2c_smbus_read_byte, "value", (nullptr, nullptr)),
    ROW("libi2c_qelifc", ei2c_smbus_read_byte_data, "value", (&device, 9, nullptr)),
    ROW("libi2c_qelifc", ei2c_smbus_read_byte_data_without_lock, "value", (&device, 9, nullptr)),
    ROW("libi2c_qelifc", ei2c_smbus_read_word_data, "value", (&device, 9, nullptr)),
    ROW("libi2c_qelifc", ei2c_smbus_read_block_data, "len", (&device, 9, nullptr, &byte)),
    ROW("libi2c_qelifc", ei2c_smbus_read_block_proc_call_data, "read_len",
        (&device, 9, nullptr, 3, &byte, nullptr)),
    ROW("libi2c_qelifc", ei2c_smbus_read_block_proc_call_data, "write_buf",
        (&device, 9, nullptr, 3, &byte, &byte)),
    ROW("libi2c_qelifc", ei2c_smbus_write_block_data, "values", (&device, 9, 1, nullptr)),
    ROW("libi2c_qelifc", ei2c_smbus_write_i2c_block_data, "values", (&device, 9, 300, nullptr)),
    ROW("libi2c_qelifc", ei2c_smbus_wtrd_block_data, "write_buf",
        (&device, 61, 9, 1, nullptr, nullptr, nullptr, 0)),
    ROW("libi2c_qelifc", ei2c_smbus_read_i2c_block_data, "eclient",
        (nullptr, 1, nullptr, 1, nullptr)),
    ROW("libi2c_qelifc", ei2c_smbus_read_i2c_block_data, "write_buf",
        (&device, 1, nullptr, 1, &byte)),
    ROW("libi2c_qelifc", i2cRead, "eclient", (nullptr, 1, nullptr, 65536, 0)),
    ROW("libi2c_qelifc", i2cRead, "data", (&device, 1, nullptr, 1, 0)),
    ROW("libi2c_qelifc", i2cWrite, "eclient", (nullptr, 65535, nullptr, 1, 0)),
    ROW("libi2c_qelifc", i2cWrite, "data", (&device, 1, nullptr, 1, 0)),
    ROW("libi2c_qelifc", i2c_bus_status_check, "status", (16, nullptr)),
    ROW("pca9535", pca9535_gpio_word_get_output_value, "client", (nullptr, 1, nullptr)),
    ROW("pca9535", pca9535_gpio_word_get_output_value, "val", (&device, 1, nullptr)),
    ROW("ee_at24c512", ee_eeprom_page_write, "data", (&device, 0, nullptr, 1)),
    ROW("ee_at24c512", ee_eeprom_page_read, "data", (&device, 0, nullptr, 1)),
    ROW("TPA626", TPA626_GetPower, "i2c_client", (nullptr, 1, nullptr)),
    ROW("TPA626", TPA626_GetPower, "pfOutReadValue", (&device, 1, nullptr)),
    ROW("TPA626", TPA626_GetVolt, "i2c_client", (nullptr, nullptr)),
    ROW("TPA626", TPA626_GetVolt, "pfOutReadValue", (&device, nullptr)),
    ROW("TPA626", TPA626_GetPowerByInfo, "info", (nullptr, nullptr)),
    ROW("TPA626", TPA626_GetPowerByInfo, "pfOutReadValue", (&monitor, nullptr)),
    ROW("TPA626", TPA626_GetVoltByInfo, "info", (nullptr, nullptr)),
    ROW("TPA626", TPA626_GetVoltByInfo, "pfOutReadValue", (&monitor, nullptr)),
    ROW("retimer", Retimer_I2CWriteBlockData, "client", (nullptr, 1, nullptr)),
    ROW("retimer", Retimer_I2CWriteBlockData, "pucData", (&device, 65536, nullptr)),
    ROW("retimer", Retimer_I2CReadBlockData, "client", (nullptr, 1, 1, nullptr)),
    ROW("retimer", Retimer_I2CReadBlockData, "pucReaddata", (&device, 1, 0xffffffff, nullptr)),
    ROW("epld", i2c_read_multi_para, "client", (nullptr, 0, 1, 1, nullptr)),
    ROW("epld", i2c_read_multi_para, "pucData", (&device, 0, 1, 1, nullptr)),
    ROW("epld", i2c_write_multi_para, "client", (nullptr, 0, 1, 1, nullptr)),
    ROW("epld", i2c_write_multi_para, "pucData", (&device, 0, 255, 0xffffffff, nullptr)),
    ROW("epld", i2c_write_multi_para, "pucData", (&device, 0, 1, 0, nullptr)),
    ROW("epld", i2c_write_and_read_multi_para, "client",
        (nullptr, &length, 1, &length, &byte, &byte)),
    ROW("epld", i2c_write_and_read_multi_para, "pdwOffsetAddr",
        (&device, nullptr, 1, &length, &byte, &byte)),
    ROW("epld", i2c_write_and_read_multi_para, "pdwDataLen",
        (&device, &length, 1, nullptr, &byte, &byte)),
    ROW("epld", i2c_write_and_read_multi_para, "pucWriteData",
        (&device, &length, 1, lengths, nullptr, &byte)),
    ROW("epld", i2c_write_and_read_multi_para, "pucReadData",
        (&device, &length, 1, lengths, &byte, nullptr)),
    ROW("epld", pango_i2c_read_multi_para, "client", (nullptr, 1, 0, 65535, 1, nullptr)),
    ROW("epld", pango_i2c_write_multi_para, "client", (nullptr, 1, 0, 65535, 1, nullptr)),
    ROW("epld", pango_i2c_write_or_read_with_nack, "client", (nullptr, 1, 0, 65535, 1)),
    ROW("epld_subcard", epld_card_epld_read, "client", (nullptr, 1, nullptr, 1)),
    ROW("epld_subcard", epld_card_epld_read, "buf", (&device, 1, nullptr, 0)),
};

TEST(NullArgument, IsReportedByNameBeforeAnythingElse)
{
    for (const auto &row : rows) {
        SCOPED_TRACE(row.function);
        EXPECT_PLAY(-1, row.run(), argument_check(row.file, row.function, row.argument));
    }
    EXPECT_EQ(length, 7U);
    EXPECT_EQ(number, 7);
    EXPECT_EQ(byte, 7);
}

TEST(NullArgument, IsReportedUnderTheNameOfTheStepThatNeedsIt)
{
    EXPECT_PLAY(-1, ipc_lock_adapter(nullptr),
                argument_check("ui2c_ioctls", "_adapter_ipcsemid", "adapter"));
    EXPECT_PLAY(nullptr, __adapter_data(nullptr),
                argument_check("ui2c_ioctls", "__adapter_data", "adapter"));
    EXPECT_PLAY(-1, ui2c_swi_select(nullptr, 9),
                argument_check("ui2c_swi", "pca9548_select", "swi"));
    EXPECT_PLAY(-1, ui2c_swi_deselect(nullptr, 0),
                argument_check("ui2c_swi", "pca9548_deselect", "swi"));
    EXPECT_PLAY(-1, qel_ei2c_smbus_mctp_read_block_data(nullptr, 1, &byte, &length),
                argument_check("ui2c_ioctls", "qel_ei2c_smbus_xfer_read", "eclient"));
    EXPECT_PLAY(-1, ei2c_smbus_write_byte(nullptr, 9),
                argument_check("ui2c_ioctls", "ei2c_smbus_xfer", "eclient"));
}

} // namespace
