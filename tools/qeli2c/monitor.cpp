// Power monitors of the TPA626 class.
#include "monitor.h"

#include "failure.h"
#include "transfer.h"

#include <cerrno>
#include <cmath>

namespace tool
{

namespace
{

// Of the data sheet: calibration = 0.00512 / (current unit x shunt), power unit = 25 current units.
constexpr double kCalibrationFactor = 0.00512;
constexpr double kPowerUnits = 25;
constexpr double kCurrentCounts = 32768;
constexpr double kPresetAmperes = 32.768; // a current unit of 1 mA
constexpr float kMillivoltsPerCount = 1.25F;

// Bus and shunt voltage, continuously, averaged over 16 samples; low byte first, as the library
// wants it.
constexpr uint16_t kConfiguration = 0x2745;

const struct {
    double shunt_uohm;
    uint8_t preset;
} kPresets[] = {{500, 0}, {1000, 1}, {2000, 2}, {536, 3}};

} // namespace

Calibration calibration_for(double shunt_uohm, double most_amperes)
{
    Calibration calibration;
    for (const auto &preset : kPresets) {
        if (most_amperes > 0 || preset.shunt_uohm != shunt_uohm)
            continue;
        calibration.preset = preset.preset;
        return calibration;
    }
    const double unit = (most_amperes > 0 ? most_amperes : kPresetAmperes) / kCurrentCounts;
    const double word = std::round(kCalibrationFactor / (unit * shunt_uohm * 1e-6));
    if (word < 1 || word > 0x7fff)
        throw usage_error("such a shunt cannot be measured with such a current: the calibration "
                          "register would be " +
                          std::to_string(word));
    const auto bits = static_cast<uint16_t>(word);
    calibration.described = true;
    calibration.info.wConfig = kConfiguration;
    calibration.info.wCalibration = static_cast<uint16_t>(bits << 8 | bits >> 8);
    calibration.info.fPowerCoef1 = static_cast<float>(kPowerUnits * unit * 1000);
    calibration.info.fPowerCoef2 = 1;
    calibration.info.fVoltCoef1 = kMillivoltsPerCount;
    calibration.info.fVoltCoef2 = 1;
    return calibration;
}

Reading read_monitor(const Target &target, const Calibration &calibration)
{
    const ei2c_client client = to_client(target.path);
    tpa626_info info = calibration.info;
    info.client = client;
    float volts = 0;
    float watts = 0;
    errno = 0;
    int32_t result = calibration.described ? TPA626_GetPowerByInfo(&info, &watts)
                                           : TPA626_GetPower(&client, calibration.preset, &watts);
    if (result == 0)
        result = TPA626_GetVolt(&client, &volts);
    if (result < 0)
        fail_transfer(target, "cannot read", result, errno);
    return {static_cast<double>(volts), static_cast<double>(watts)};
}

} // namespace tool
