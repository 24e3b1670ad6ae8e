// Every exported call, once or more: with what, and what it gives. The devices are those of the
// board in faults_test.cpp.
#include "fault_rules.h"

namespace faults
{

namespace
{

// Results of failures.
constexpr char kAny[] = "-1";
constexpr char kMemory[] = "-1 -12345678 0";   // 0 without memory
constexpr char kStored[] = "-1 -12345678 0 2"; // 2 bytes are on the first page
constexpr char kHold[] = "-1 -12345678 -2 -3 -4 -5";
constexpr char kSilent[] = "0"; // of a read that does not tell of its failure

constexpr uint32_t kHeldPath = kHolds | kKeepsPath | kDepends;
constexpr uint32_t kBridge = kHeldPath | kRaw | kOtherErrno | kReleasesAll;
constexpr uint32_t kLetsGo = kDepends | kOtherErrno;
constexpr uint32_t kLetsGoPath = kLetsGo | kTries | kCloses;

} // namespace

// clang-format off
const std::vector<Row> kRows = {
    // Registry.
    {"ui2c_to_client 4 0x22 0x700071 0", "a record", kDepends, "null"},
    {"ui2c_to_adapter 4", "a record", 0, "null"},
    {"ui2c_to_switch 4 0x70 0", "a record", 0, "null"},

    // Bus lock and owner.
    {"ui2c_adapter_fd 4", "any", 0, kAny},
    {"ipc_lock_adapter 4", "any", kHoldsSemaphore, kAny, "", "ipc_unlock_adapter $0"},
    {"ipc_unlock_adapter $0", "0", kDepends, kAny, "ipc_lock_adapter 4"},
    {"exclusive_file_lock $0", "0", kHoldsFile, kAny, "ui2c_adapter_fd 4",
     "surrender_i2c_access $0"},
    {"surrender_i2c_access $0", "0", kDepends, kAny, "ui2c_adapter_fd 4;exclusive_file_lock $0"},
    {"getPidOfI2CAccess 4", "0", kDepends, kAny},

    // Raw transfers and switches.
    {"ui2c_rdwr_xfer 4 0x60 60r4 1", "1", kRaw},
    {"ui2c_raw_read_byte 4 0x60 >1", "1", 0},
    {"ui2c_raw_write_byte 4 0x60 0x10", "1", 0},
    {"ui2c_smbus_xfer 4 0x60 0 1 0x10 2 >256", "0", kRaw},
    {"ui2c_swi_select 4/70 5", "1", kKeepsPath, kTransfer, "", "ui2c_swi_deselect 4/70 5"},
    {"ui2c_swi_deselect 4/70 5", "1", 0},
    {"ui2c_swi_status 4/70 >1", "1", 0},
    {"SelectSwitch 4/70.5/71.3/22", "0", kKeepsPath | kDepends, kAny, "",
     "DeselectSwitch 4/70.5/71.3/22"},
    {"DeselectSwitch 4/70.5/71.3/22", "1", kCloses | kDepends, kAny, "SelectSwitch 4/70.5/71.3/22"},
    {"readSwitchStatus 4/70.5/21 >1", "1", 0},

    // Locked transfers, at each depth.
    {"ei2c_rdwr_xfer 4/60 60w10,60r4 2", "2", kTries | kRaw},
    {"ei2c_rdwr_xfer 4/70.5/21 21w10,21r4 2", "2", kTries | kRaw},
    {"ei2c_rdwr_xfer 4/70.5/71.3/22 22w10,22r4 2", "2", kTries | kRaw},
    {"ei2c_rdwr_mxfer 4/70.5/71.3/22 22w305a|22w10,22r4 1,2", "2", kTries | kRaw},
    {"ei2c_rdwr_xfer_without_retry 4/70.5/71.3/22 22w10,22r4 2", "2", kRaw},
    {"ei2c_smbus_xfer 4/60 1 0x10 2 >256", "0", kTries | kRaw},
    {"ei2c_smbus_xfer 4/70.5/71.3/22 1 0x10 2 >256", "0", kTries | kRaw},
    {"ei2c_smbus_xfer_wtrd 4/60 0 1 0x10 2 >256 null > 0", "0", kRaw},
    {"qel_ei2c_smbus_xfer_read 4/60 0 >8 >", "5", kRaw},

    // Holds.
    {"ei2c_smbus_lock_adapter 4/70.5/21 > >", "0", kHolds | kDepends, kHold, "",
     "ei2c_smbus_unlock_adapter 4/70.5/21 $1 $2"},
    {"ei2c_smbus_unlock_adapter 4/70.5/21 $1 $2", "0", kLetsGo, kAny,
     "ei2c_smbus_lock_adapter 4/70.5/21 > >"},
    {"ei2c_smbus_select_switch 4/70.5/71.3/22 > >", "any", kHeldPath, kHold, "",
     "ei2c_smbus_deselect_switch 4/70.5/71.3/22 $1 $2"},
    {"ei2c_smbus_deselect_switch 4/70.5/71.3/22 $1 $2", "0", kLetsGoPath, kAny,
     "ei2c_smbus_select_switch 4/70.5/71.3/22 > >"},
    {"ei2c_smbus_xfer_without_lock 4/70.5/71.3/22 1 0x10 2 >256", "0", kTries | kRaw},
    {"lockAndSelectBridge_Ridgeback 4/70.5/71.3/22 > >", "0", kBridge, kAny, "",
     "unlockAndDeselectBridge_Ridgeback 4/70.5/71.3/22 >=$1 >=$2"},
    {"unlockAndDeselectBridge_Ridgeback 4/70.5/71.3/22 >=$1 >=$2", "0", kLetsGoPath, kAny,
     "lockAndSelectBridge_Ridgeback 4/70.5/71.3/22 > >"},

    // SMBus commands.
    {"ei2c_smbus_read_byte 4/70.5/21 >1", "0"},
    {"ei2c_smbus_write_byte 4/70.5/21 0x5A", "0"},
    {"ei2c_smbus_read_byte_data 4/70.5/21 0x10 >1", "0"},
    {"ei2c_smbus_write_byte_data 4/70.5/21 0x10 4", "0"},
    {"ei2c_smbus_read_word_data 4/70.5/21 0x10 >", "0"},
    {"ei2c_smbus_write_word_data 4/70.5/21 0x10 0x0404", "0"},
    {"ei2c_smbus_read_block_data 4/70.5/21 0x10 >1 >4", "0"},
    {"qel_ei2c_smbus_read_block_data 4/70.5/21 0x10 3 >4", "0"},
    {"ei2c_smbus_write_block_data 4/70.5/21 0x40 4 10010203", "0"},
    {"ei2c_smbus_wtrd_block_data 4/60 0 0x40 4 10010203 >8 > 0", "5", kRaw},
    {"ei2c_smbus_read_block_proc_call_data 4/70.5/21 0x40 1001 2 >4 >1", "0"},
    {"qel_ei2c_smbus_mctp_read_block_data 4/60 0 >8 >", "5", kRaw},
    {"ei2c_smbus_read_i2c_block_data 4/70.5/21 1 10 4 >4", "2"},
    {"ei2c_smbus_write_i2c_block_data 4/70.5/21 0x40 4 10010203", "0"},
    {"ei2c_smbus_read_byte_data_without_lock 4/70.5/21 0x10 >1", "0"},
    {"ei2c_smbus_write_byte_data_without_lock 4/70.5/21 0x10 4", "0"},

    // Offsets and EEPROMs.
    {"i2cRead 4/70.5/21 4 >4 1 0x10", "2", kTries, kMemory},
    {"i2cWrite 4/70.5/21 4 10010203 1 0x40", "1", kTries, kMemory},
    {"ee_eeprom_page_write 4/70.5/50 30 100102030405 6", "2", kTries, kMemory},
    {"ee_eeprom_page_read 4/70.5/50 30 >6 6", "2", kTries | kRaw, kMemory},
    {"eeprom_write 4/70.5/50 30 100102030405 6", "6", kTries, kStored},
    {"eeprom_read 4/70.5/50 30 >6 6", "6", kTries | kRaw, kStored},
    {"ei2c_eeprom_write 4/70.5/50 0 100102030405 6", "6", kTries, kMemory},
    {"ei2c_eeprom_read 4/70.5/50 0 >6 6", "6", kTries | kRaw, kMemory},
    {"ei2c_eeprom_write_retry 4/70.5/50 0 100102030405 6", "6", kTries | kRepeats, kMemory},
    {"ei2c_eeprom_read_retry 4/70.5/50 0 >6 6", "6", kTries | kRepeats | kRaw, kMemory},
    {"ee_eeprom_semid", "any", 0, kAny},
    {"ee_lock_eeprom", "0", kHoldsEeprom, kAny, "", "ee_unlock_eeprom"},
    {"ee_unlock_eeprom", "0", kDepends, kAny, "ee_lock_eeprom"},
    {"i2c_bus_status_check 4 >1", "0", 0, kAny},

    // Expanders: up to four accesses, of which each must succeed.
    {"pca9535_gpio_direction_input 4/23 3", "0"},
    {"pca9535_gpio_direction_output 4/23 3 1", "0"},
    {"pca9535_gpio_get_value 4/23 9 >", "0", kTries, kSilent},
    {"pca9535_gpio_set_value 4/23 3 1", "0"},
    {"pca9535_gpio_word_direction_input 4/23 3", "0"},
    {"pca9535_gpio_word_direction_output 4/23 3 1", "0"},
    {"pca9535_gpio_word_get_value 4/23 0x0F >", "0"},
    {"pca9535_gpio_word_set_value 4/23 3 1", "0"},
    {"pca9535_gpio_word_get_output_value 4/23 0x0F >", "0", kTries, kSilent},
    {"ei2c_pca9535_get_word_value 4/23 0x0F >", "0"},
    {"ei2c_pca9535_set_word_value 4/23 3 1", "0"},
    {"ei2c_pca9535_get_value 4/23 9 >", "0", kTries, kMemory}, // silent about its last access
    {"ei2c_pca9535_set_value 4/23 3 1", "0"},
    {"ei2c_pca9535_get_output_value 4/23 3 >", "0", kTries, kSilent},
    {"pca9554_gpio_direction_input 4/24 3", "0"},
    {"pca9554_gpio_direction_output 4/24 3 1", "0"},
    {"pca9554_gpio_get_value 4/24 7 >", "0", kTries, kSilent},
    {"pca9554_gpio_set_value 4/24 3 1", "0"},
    {"pca9554_gpio_byte_direction_input 4/24 3", "0"},
    {"pca9554_gpio_byte_direction_output 4/24 3 1", "0"},
    {"pca9554_gpio_byte_get_value 4/24 0x0F >1", "0", kTries, kSilent},
    {"pca9554_gpio_byte_set_value 4/24 3 1", "0"},

    // Monitors.
    {"TPA626_GetPower 4/44 1 >", "0", kTries | kLastCounts, kAny},
    {"TPA626_GetVolt 4/44 >", "0", kTries, kAny},
    {"TPA626_GetPowerByInfo 4/44,2741,14,25,1,1.25,1 >", "0", kTries, kAny},
    {"TPA626_GetVoltByInfo 4/44,2741,14,25,1,1.25,1 >", "0", kTries, kAny},

    // Retimers.
    {"Retimer_I2CWriteBlockData 4/70.5/18 5 1001020304", "0", kTries, kAny},
    {"Retimer_I2CReadBlockData 4/70.5/18 0x10 4 >4", "0", kTries, kAny},
    {"Retimer_I2CWrite 0418.00000000.0170050000 5 1001020304", "0", kTries, kAny},
    {"Retimer_I2CRead 0418.00000000.0170050000 4 >4", "0", kTries, kAny},

    // Board logic.
    {"i2c_read_multi_para 4/70.5/21 0x10 1 4 >4", "0", kTries | kRaw, kAny},
    {"i2c_write_multi_para 4/70.5/21 0x40 1 4 10010203", "0", kTries, kAny},
    {"i2c_write_and_read_multi_para 4/70.5/21 0x40,0x10 1 2,4 1001 >4", "0", kTries | kRaw, kAny},
    {"pango_i2c_read_multi_para 4/70.5/21 0x10 0 0 4 >4", "0", kTries | kRaw, kAny},
    {"pango_i2c_write_multi_para 4/70.5/21 0x40 0x11 1 3 100102", "0", kTries, kAny},
    {"pango_i2c_write_or_read_with_nack 4/70.5/21 0x40 0x11 1 1", "0", 0, kMemory},
    {"epld_i2c_read_deviceId 4/70.5/42 >4", "3", kProbes, kAny},
    {"epld_anlogic_read_deviceId 4/70.5/42 >4", "0", kProbes, kAny},
    {"epld_anlogic_ef2_read_deviceId 4/70.5/42 >4", "0", kProbes, kAny},
    {"epld_anlogic_ef3_read_deviceId 4/70.5/43 >4", "0", kTries | kRaw, kAny},
    {"epld_lattice_read_deviceId 4/70.5/40 >4", "0", kTries | kRaw, kAny},
    {"epld_pango_read_deviceId 4/70.5/41 >4", "0", kProbes, kAny},
    {"epld_card_epld_read 4/70.5/31 0 >4 4", "0", kTries | kRaw, kAny},

    // Nothing in these can fail.
    {"card_epld_read", "-1", 0},
    {"card_epld_cnt", "0", 0},
    {"card_epld_dev 0", "null", 0},
    {"BytesToDword 10010203", "268501507", 0},
    {"reverseArray >4=00010203 4", "nothing", kRaw},
};

} // namespace faults
