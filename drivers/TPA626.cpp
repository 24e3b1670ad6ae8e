// Driver for the TPA626 power monitor. Its registers travel most significant byte first, SMBus
// words low byte first: every word is swapped on its way.
#include "bus/report.h"
#include "qeli2c.h"

namespace
{

constexpr char kLogTag[] = "TPA626";

constexpr uint8_t kConfigurationRegister = 0x00;
constexpr uint8_t kBusVoltageRegister = 0x02;
constexpr uint8_t kPowerRegister = 0x03;
constexpr uint8_t kCalibrationRegister = 0x05;

// Presets, as words handed to the write call.
constexpr uint16_t kCalibrationPresets[] = {0x0014, 0x000A, 0x5025};
constexpr uint16_t kDefaultCalibration = 0x0028;
constexpr uint16_t kDefaultConfiguration = 0x2741;
constexpr uint16_t kThirdConfiguration = 0x2745;

constexpr uint32_t kReadPower = 3;
constexpr uint32_t kReadVoltage = 2;

uint16_t swapped(uint16_t word)
{
    return static_cast<uint16_t>(word << 8 | word >> 8);
}

int32_t TPA626InfoRead(const ei2c_client *client, uint32_t dwType, uint8_t ucCalibSel,
                       float *pfOutReadValue)
{
    *pfOutReadValue = 0.0F;
    uint16_t word = 0;
    if (dwType != kReadPower) {
        const int32_t ret = ei2c_smbus_read_word_data(client, kBusVoltageRegister, &word);
        *pfOutReadValue = static_cast<float>(swapped(word) * 1.25 / 1000.0);
        return ret;
    }
    const uint16_t calibration = ucCalibSel >= 1 && ucCalibSel <= 3
                                     ? kCalibrationPresets[ucCalibSel - 1]
                                     : kDefaultCalibration;
    const uint16_t configuration = ucCalibSel == 3 ? kThirdConfiguration : kDefaultConfiguration;
    (void)ei2c_smbus_write_word_data(client, kConfigurationRegister, configuration);
    (void)ei2c_smbus_write_word_data(client, kCalibrationRegister, calibration);
    const int32_t ret = ei2c_smbus_read_word_data(client, kPowerRegister, &word);
    *pfOutReadValue = static_cast<float>(swapped(word) * 0.025);
    return ret;
}

int32_t read_preset(const ei2c_client *client, uint32_t type, uint8_t preset, float *out)
{
    float value = 0.0F;
    if (TPA626InfoRead(client, type, preset, &value) != 0)
        return -1;
    *out = value;
    return 0;
}

int32_t read_described(const tpa626_info &info, uint8_t command, float coefficient1,
                       float coefficient2, float *out)
{
    const ei2c_client *client = &info.client;
    uint16_t word = 0;
    if (ei2c_smbus_write_word_data(client, kConfigurationRegister, info.wConfig) < 0 ||
        ei2c_smbus_write_word_data(client, kCalibrationRegister, info.wCalibration) < 0 ||
        ei2c_smbus_read_word_data(client, command, &word) < 0)
        return -1;
    *out = static_cast<float>(swapped(word)) * coefficient1 * coefficient2 / 1000.0F;
    return 0;
}

} // namespace

int32_t TPA626_GetPower(const ei2c_client *i2c_client, uint8_t ucCalibSel, float *pfOutReadValue)
{
    QEL_REQUIRE(i2c_client, -1);
    QEL_REQUIRE(pfOutReadValue, -1);
    return read_preset(i2c_client, kReadPower, ucCalibSel, pfOutReadValue);
}

int32_t TPA626_GetVolt(const ei2c_client *i2c_client, float *pfOutReadValue)
{
    QEL_REQUIRE(i2c_client, -1);
    QEL_REQUIRE(pfOutReadValue, -1);
    return read_preset(i2c_client, kReadVoltage, 0, pfOutReadValue);
}

int32_t TPA626_GetPowerByInfo(const tpa626_info *info, float *pfOutReadValue)
{
    QEL_REQUIRE(info, -1);
    QEL_REQUIRE(pfOutReadValue, -1);
    return read_described(*info, kPowerRegister, info->fPowerCoef1, info->fPowerCoef2,
                          pfOutReadValue);
}

int32_t TPA626_GetVoltByInfo(const tpa626_info *info, float *pfOutReadValue)
{
    QEL_REQUIRE(info, -1);
    QEL_REQUIRE(pfOutReadValue, -1);
    return read_described(*info, kBusVoltageRegister, info->fVoltCoef1, info->fVoltCoef2,
                          pfOutReadValue);
}
