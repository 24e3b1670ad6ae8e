// Power monitors: voltage, power, and the current that follows from them.
#ifndef QELI2C_MONITOR_H
#define QELI2C_MONITOR_H

#include "board_file.h"

#include <string>

namespace tool
{

// How the power register is scaled: by one of the library's presets, or by a description.
struct Calibration {
    bool described = false;
    uint8_t preset = 0; // 0: the default one
    tpa626_info info{}; // of a description; its client is filled in for each monitor
};

struct Reading {
    double volts = 0, watts = 0;
    double amperes() const { return volts > 0 ? watts / volts : 0; }
};

// The preset for that shunt, or a description that measures up to `most_amperes` (0: 32.768 A, as
// the presets do).
Calibration calibration_for(double shunt_uohm, double most_amperes);

// Fails in words.
Reading read_monitor(const Target &target, const Calibration &calibration);

} // namespace tool

#endif
