// Every exported function, for tables of calls by name: CALL(function) once for each.
#ifndef TESTS_CALLS_EXPORTED_CALLS_H
#define TESTS_CALLS_EXPORTED_CALLS_H

#include "include/qeli2c.h"

// clang-format off
#define EXPORTED_CALLS(CALL) \
    CALL(ui2c_to_client) CALL(ui2c_to_adapter) CALL(ui2c_to_switch) CALL(ui2c_adapter_fd) \
    CALL(ipc_lock_adapter) CALL(ipc_unlock_adapter) CALL(exclusive_file_lock) \
    CALL(surrender_i2c_access) CALL(getPidOfI2CAccess) CALL(ui2c_rdwr_xfer) \
    CALL(ui2c_raw_read_byte) CALL(ui2c_raw_write_byte) CALL(ui2c_smbus_xfer) CALL(SelectSwitch) \
    CALL(DeselectSwitch) CALL(readSwitchStatus) CALL(ui2c_swi_select) CALL(ui2c_swi_deselect) \
    CALL(ui2c_swi_status) CALL(ei2c_rdwr_xfer) CALL(ei2c_rdwr_mxfer) \
    CALL(ei2c_rdwr_xfer_without_retry) CALL(ei2c_smbus_xfer) CALL(ei2c_smbus_xfer_wtrd) \
    CALL(qel_ei2c_smbus_xfer_read) CALL(ei2c_smbus_lock_adapter) CALL(ei2c_smbus_unlock_adapter) \
    CALL(ei2c_smbus_select_switch) CALL(ei2c_smbus_deselect_switch) \
    CALL(ei2c_smbus_xfer_without_lock) CALL(ei2c_smbus_read_byte) CALL(ei2c_smbus_write_byte) \
    CALL(ei2c_smbus_read_byte_data) CALL(ei2c_smbus_write_byte_data) \
    CALL(ei2c_smbus_read_word_data) CALL(ei2c_smbus_write_word_data) \
    CALL(ei2c_smbus_read_block_data) CALL(qel_ei2c_smbus_read_block_data) \
    CALL(ei2c_smbus_write_block_data) CALL(ei2c_smbus_wtrd_block_data) \
    CALL(ei2c_smbus_read_block_proc_call_data) CALL(qel_ei2c_smbus_mctp_read_block_data) \
    CALL(ei2c_smbus_read_i2c_block_data) CALL(ei2c_smbus_write_i2c_block_data) \
    CALL(ei2c_smbus_read_byte_data_without_lock) CALL(ei2c_smbus_write_byte_data_without_lock) \
    CALL(i2cRead) CALL(i2cWrite) CALL(ee_eeprom_page_read) CALL(ee_eeprom_page_write) \
    CALL(ee_eeprom_semid) CALL(ee_lock_eeprom) CALL(ee_unlock_eeprom) CALL(eeprom_read) \
    CALL(eeprom_write) CALL(ei2c_eeprom_read) CALL(ei2c_eeprom_read_retry) \
    CALL(ei2c_eeprom_write) CALL(ei2c_eeprom_write_retry) CALL(i2c_bus_status_check) \
    CALL(lockAndSelectBridge_Ridgeback) CALL(unlockAndDeselectBridge_Ridgeback) \
    CALL(ei2c_pca9535_get_output_value) CALL(ei2c_pca9535_get_value) \
    CALL(ei2c_pca9535_get_word_value) CALL(ei2c_pca9535_set_value) \
    CALL(ei2c_pca9535_set_word_value) CALL(pca9535_gpio_direction_input) \
    CALL(pca9535_gpio_direction_output) CALL(pca9535_gpio_get_value) \
    CALL(pca9535_gpio_set_value) CALL(pca9535_gpio_word_direction_input) \
    CALL(pca9535_gpio_word_direction_output) CALL(pca9535_gpio_word_get_output_value) \
    CALL(pca9535_gpio_word_get_value) CALL(pca9535_gpio_word_set_value) \
    CALL(pca9554_gpio_byte_direction_input) CALL(pca9554_gpio_byte_direction_output) \
    CALL(pca9554_gpio_byte_get_value) CALL(pca9554_gpio_byte_set_value) \
    CALL(pca9554_gpio_direction_input) CALL(pca9554_gpio_direction_output) \
    CALL(pca9554_gpio_get_value) CALL(pca9554_gpio_set_value) CALL(Retimer_I2CRead) \
    CALL(Retimer_I2CReadBlockData) CALL(Retimer_I2CWrite) CALL(Retimer_I2CWriteBlockData) \
    CALL(TPA626_GetPower) CALL(TPA626_GetPowerByInfo) CALL(TPA626_GetVolt) \
    CALL(TPA626_GetVoltByInfo) CALL(BytesToDword) CALL(card_epld_cnt) CALL(card_epld_dev) \
    CALL(card_epld_read) CALL(epld_anlogic_ef2_read_deviceId) \
    CALL(epld_anlogic_ef3_read_deviceId) CALL(epld_anlogic_read_deviceId) \
    CALL(epld_card_epld_read) CALL(epld_i2c_read_deviceId) CALL(epld_lattice_read_deviceId) \
    CALL(epld_pango_read_deviceId) CALL(i2c_read_multi_para) CALL(i2c_write_and_read_multi_para) \
    CALL(i2c_write_multi_para) CALL(pango_i2c_read_multi_para) CALL(pango_i2c_write_multi_para) \
    CALL(pango_i2c_write_or_read_with_nack) CALL(reverseArray)
// clang-format on

#endif
