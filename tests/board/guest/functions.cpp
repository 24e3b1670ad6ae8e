// The library's functions by their names.
#include "functions.h"

namespace board
{

namespace
{

using R = Request;

int32_t number(const R &r, size_t index)
{
    return static_cast<int32_t>(r.n.at(index));
}

uint8_t byte(const R &r, size_t index)
{
    return static_cast<uint8_t>(r.n.at(index));
}

uint32_t messages(const R &r)
{
    return r.n.empty() ? static_cast<uint32_t>(r.list.size()) : r.n[0];
}

int32_t two_sets(R &r)
{
    const uint32_t first = r.n.at(0);
    i2c_msg *sets[2] = {r.list.data(), r.list.data() + first};
    const uint32_t counts[2] = {first, static_cast<uint32_t>(r.list.size()) - first};
    return ei2c_rdwr_mxfer(&r.device, sets, counts);
}

int32_t write_and_read(R &r)
{
    const uint32_t lengths[2] = {r.size, r.n.at(3)};
    return i2c_write_and_read_multi_para(&r.device, r.n.data(), byte(r, 2), lengths, r.bytes,
                                         r.out.data());
}

retimer_i2c_dev retimer(const R &r)
{
    retimer_i2c_dev record = {};
    record.ucBus = static_cast<uint8_t>(r.device.bus);
    record.ucAddr = static_cast<uint8_t>(r.device.addr);
    record.ucSwiValid = r.device.swi_addr != 0;
    record.ucSwiAddr = static_cast<uint8_t>(r.device.swi_addr & 0xFF);
    record.ucSwiChnl = static_cast<uint8_t>(r.device.swi_chnl & 0xFF);
    record.ucUpSwiAddr = static_cast<uint8_t>(r.device.swi_addr >> 16);
    record.ucUpSwiChnl = static_cast<uint8_t>(r.device.swi_chnl >> 16);
    return record;
}

int32_t retimer_write(R &r)
{
    const retimer_i2c_dev record = retimer(r);
    return Retimer_I2CWrite(&record, r.size, r.bytes);
}

int32_t retimer_read(R &r)
{
    const retimer_i2c_dev record = retimer(r);
    r.out[0] = byte(r, 0);
    return Retimer_I2CRead(&record, r.n.at(1), r.out.data());
}

// Both coefficients are 1, so the value is the raw register by 1000.
tpa626_info monitor(const R &r)
{
    tpa626_info info = {};
    info.client = r.device;
    info.wConfig = static_cast<uint16_t>(r.n.at(0));
    info.wCalibration = static_cast<uint16_t>(r.n.at(1));
    info.fPowerCoef1 = 25;
    info.fPowerCoef2 = 1;
    info.fVoltCoef1 = 1.25F;
    info.fVoltCoef2 = 1;
    return info;
}

int32_t volts_by_info(R &r)
{
    const tpa626_info info = monitor(r);
    return TPA626_GetVoltByInfo(&info, &r.value);
}

int32_t watts_by_info(R &r)
{
    const tpa626_info info = monitor(r);
    return TPA626_GetPowerByInfo(&info, &r.value);
}

// Gives the semaphore's id, which is another one each time.
int32_t select_switch(R &r)
{
    return std::min(0, ei2c_smbus_select_switch(&r.device, &r.fd, &r.semaphore));
}

int32_t of_held_bus(R &r)
{
    const ui2c_client *record =
        ui2c_to_client(r.device.bus, r.device.addr, r.device.swi_addr, r.device.swi_chnl);
    return ui2c_rdwr_xfer(record->adapter, r.device.addr, r.list.data(),
                          static_cast<int32_t>(r.list.size()));
}

} // namespace

const std::map<std::string, int32_t (*)(Request &)> &functions()
{
    static const std::map<std::string, int32_t (*)(Request &)> all = {
        {"ei2c_rdwr_xfer",
         [](R &r) { return ei2c_rdwr_xfer(&r.device, r.list.data(), messages(r)); }},
        {"ei2c_rdwr_xfer_without_retry",
         [](R &r) { return ei2c_rdwr_xfer_without_retry(&r.device, r.list.data(), messages(r)); }},
        {"ei2c_rdwr_mxfer", two_sets},
        {"ui2c_rdwr_xfer", of_held_bus},
        {"i2cRead",
         [](R &r) { return i2cRead(&r.device, r.n.at(2), r.out.data(), r.n[0], r.n[1]); }},
        {"i2cWrite",
         [](R &r) { return i2cWrite(&r.device, r.size, r.bytes, r.n.at(0), r.n.at(1)); }},

        {"ei2c_smbus_read_byte", [](R &r) { return ei2c_smbus_read_byte(&r.device, &r.count); }},
        {"ei2c_smbus_write_byte",
         [](R &r) { return ei2c_smbus_write_byte(&r.device, byte(r, 0)); }},
        {"ei2c_smbus_read_byte_data",
         [](R &r) { return ei2c_smbus_read_byte_data(&r.device, byte(r, 0), &r.count); }},
        {"ei2c_smbus_write_byte_data",
         [](R &r) { return ei2c_smbus_write_byte_data(&r.device, byte(r, 0), byte(r, 1)); }},
        {"ei2c_smbus_read_byte_data_without_lock",
         [](R &r) {
             return ei2c_smbus_read_byte_data_without_lock(&r.device, byte(r, 0), &r.count);
         }},
        {"ei2c_smbus_write_byte_data_without_lock",
         [](R &r) {
             return ei2c_smbus_write_byte_data_without_lock(&r.device, byte(r, 0), byte(r, 1));
         }},
        {"ei2c_smbus_read_word_data",
         [](R &r) { return ei2c_smbus_read_word_data(&r.device, byte(r, 0), &r.word); }},
        {"ei2c_smbus_write_word_data",
         [](R &r) {
             return ei2c_smbus_write_word_data(&r.device, byte(r, 0),
                                               static_cast<uint16_t>(r.n.at(1)));
         }},
        {"ei2c_smbus_read_block_data",
         [](R &r) {
             return ei2c_smbus_read_block_data(&r.device, byte(r, 0), &r.count, r.out.data());
         }},
        {"qel_ei2c_smbus_read_block_data",
         [](R &r) {
             return qel_ei2c_smbus_read_block_data(&r.device, byte(r, 0), r.n.at(1), r.out.data());
         }},
        {"ei2c_smbus_write_block_data",
         [](R &r) { return ei2c_smbus_write_block_data(&r.device, byte(r, 0), r.size, r.bytes); }},
        {"ei2c_smbus_write_i2c_block_data",
         [](R &r) {
             return ei2c_smbus_write_i2c_block_data(&r.device, byte(r, 0), r.size, r.bytes);
         }},
        {"ei2c_smbus_read_i2c_block_data",
         [](R &r) {
             return ei2c_smbus_read_i2c_block_data(&r.device, r.size, r.bytes, r.n.at(0),
                                                   r.out.data());
         }},
        {"ei2c_smbus_read_block_proc_call_data",
         [](R &r) {
             return ei2c_smbus_read_block_proc_call_data(&r.device, byte(r, 0), r.bytes, r.size,
                                                         r.out.data(), &r.count);
         }},

        {"i2c_read_multi_para",
         [](R &r) {
             return i2c_read_multi_para(&r.device, r.n.at(0), byte(r, 1), r.n.at(2), r.out.data());
         }},
        {"i2c_write_multi_para",
         [](R &r) {
             return i2c_write_multi_para(&r.device, r.n.at(0), byte(r, 1), r.size, r.bytes);
         }},
        {"i2c_write_and_read_multi_para", write_and_read},
        {"pango_i2c_read_multi_para",
         [](R &r) {
             return pango_i2c_read_multi_para(&r.device, byte(r, 0), r.n.at(1), r.n.at(2),
                                              r.n.at(3), r.out.data());
         }},
        {"pango_i2c_write_multi_para",
         [](R &r) {
             return pango_i2c_write_multi_para(&r.device, byte(r, 0), r.n.at(1), r.n.at(2), r.size,
                                               r.bytes);
         }},
        {"pango_i2c_write_or_read_with_nack",
         [](R &r) {
             return pango_i2c_write_or_read_with_nack(&r.device, byte(r, 0), r.n.at(1), r.n.at(2),
                                                      number(r, 3));
         }},
        {"Retimer_I2CWrite", retimer_write},
        {"Retimer_I2CRead", retimer_read},

        {"eeprom_read",
         [](R &r) { return eeprom_read(&r.device, number(r, 0), r.out.data(), number(r, 1)); }},
        {"eeprom_write",
         [](R &r) {
             return eeprom_write(&r.device, number(r, 0), r.bytes, static_cast<int32_t>(r.size));
         }},
        {"ei2c_eeprom_read_retry",
         [](R &r) {
             return ei2c_eeprom_read_retry(&r.device, number(r, 0), r.out.data(), number(r, 1));
         }},
        {"ei2c_eeprom_write_retry",
         [](R &r) {
             return ei2c_eeprom_write_retry(&r.device, number(r, 0), r.bytes,
                                            static_cast<int32_t>(r.size));
         }},
        {"ee_eeprom_page_read",
         [](R &r) {
             return ee_eeprom_page_read(&r.device, number(r, 0), r.out.data(), number(r, 1));
         }},
        {"ee_eeprom_page_write",
         [](R &r) {
             return ee_eeprom_page_write(&r.device, number(r, 0), r.bytes,
                                         static_cast<int32_t>(r.size));
         }},

        {"ei2c_smbus_select_switch", select_switch},
        {"ei2c_smbus_deselect_switch",
         [](R &r) { return ei2c_smbus_deselect_switch(&r.device, r.fd, r.semaphore); }},
        {"ei2c_smbus_lock_adapter",
         [](R &r) { return ei2c_smbus_lock_adapter(&r.device, &r.fd, &r.semaphore); }},
        {"ei2c_smbus_unlock_adapter",
         [](R &r) { return ei2c_smbus_unlock_adapter(&r.device, r.fd, r.semaphore); }},
        {"lockAndSelectBridge_Ridgeback",
         [](R &r) { return lockAndSelectBridge_Ridgeback(&r.device, &r.semaphore, &r.fd); }},
        {"unlockAndDeselectBridge_Ridgeback",
         [](R &r) { return unlockAndDeselectBridge_Ridgeback(&r.device, &r.semaphore, &r.fd); }},
        {"readSwitchStatus", [](R &r) { return readSwitchStatus(&r.device, &r.count); }},
        {"DeselectSwitch", [](R &r) { return DeselectSwitch(&r.device); }},

        {"TPA626_GetVolt", [](R &r) { return TPA626_GetVolt(&r.device, &r.value); }},
        {"TPA626_GetPower", [](R &r) { return TPA626_GetPower(&r.device, byte(r, 0), &r.value); }},
        {"TPA626_GetVoltByInfo", volts_by_info},
        {"TPA626_GetPowerByInfo", watts_by_info},
        {"pca9554_gpio_direction_input",
         [](R &r) { return pca9554_gpio_direction_input(&r.device, r.n.at(0)); }},
        {"pca9554_gpio_direction_output",
         [](R &r) { return pca9554_gpio_direction_output(&r.device, r.n.at(0), number(r, 1)); }},
        {"pca9554_gpio_get_value",
         [](R &r) { return pca9554_gpio_get_value(&r.device, r.n.at(0), &r.level); }},
        {"pca9554_gpio_set_value",
         [](R &r) { return pca9554_gpio_set_value(&r.device, r.n.at(0), number(r, 1)); }},
        {"pca9554_gpio_byte_direction_input",
         [](R &r) { return pca9554_gpio_byte_direction_input(&r.device, byte(r, 0)); }},
        {"pca9554_gpio_byte_direction_output",
         [](R &r) {
             return pca9554_gpio_byte_direction_output(&r.device, byte(r, 0), byte(r, 1));
         }},
        {"pca9554_gpio_byte_get_value",
         [](R &r) { return pca9554_gpio_byte_get_value(&r.device, byte(r, 0), &r.count); }},
        {"pca9554_gpio_byte_set_value",
         [](R &r) { return pca9554_gpio_byte_set_value(&r.device, byte(r, 0), byte(r, 1)); }},
    };
    return all;
}

} // namespace board
