// The serial line to the host program: what this one reports goes out, what it wants done to the
// machine from outside is answered.
#ifndef QELI2C_BOARD_LINK_H
#define QELI2C_BOARD_LINK_H

#include <cstdint>
#include <string>

namespace board::link
{

// Throws std::runtime_error when the line cannot be had.
void open_line(const char *device);

// One line of text.
void say(const std::string &line);

// A command of QEMU's qtest protocol (docs/devel/testing/qtest): its answer, without the "OK ".
// Throws when the machine refuses it.
std::string machine(const std::string &command);

uint32_t read_memory(uint32_t address);
void write_memory(uint32_t address, uint32_t value);

// A property of a device, by the name it has in the board file.
void set_property(const std::string &device, const std::string &property, int64_t value);

} // namespace board::link

#endif
