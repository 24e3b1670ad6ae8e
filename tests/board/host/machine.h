// The emulated machine: QEMU with the devices of a board file.
#ifndef QELI2C_BOARD_MACHINE_H
#define QELI2C_BOARD_MACHINE_H

#include "line.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace board
{

struct Machine {
    pid_t process = -1;
    Line results; // the guest's second serial port
    Line qtest;   // memory and pins, from outside
    Line monitor; // QMP: properties of devices
};

// QEMU's arguments for the image in `directory` and the devices of its board.json, without the
// serial ports. The EEPROMs are files in the current directory, made anew.
std::vector<std::string> machine_arguments(const std::string &directory);

// Starts it for the cases whose names begin with `prefix`; its console goes to console.log, its own
// messages to qemu.log. Throws std::runtime_error.
Machine start_machine(const std::vector<std::string> &arguments, const std::string &prefix);

// Becomes the machine, with its console on the terminal.
[[noreturn]] void become_machine(std::vector<std::string> arguments);

// A command of the qtest protocol, its answer.
std::string qtest(Machine &machine, const std::string &command);

// Sets a property of a device, by its name in the board file: an empty text, or what is wrong.
std::string set_property(Machine &machine, const std::string &device, const std::string &property,
                         const std::string &value);

// Waits for its end, or brings it about. Gives whether it ended by itself.
bool end_machine(Machine &machine, Clock::time_point until);

} // namespace board

#endif
