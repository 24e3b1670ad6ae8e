// Calls of the library as lines of a case, made by this process itself, as tests/calls/call.h has
// them:
//
//     :i2cWrite 3/70.5/71.2/54 18 d0d1.40+16 2 0x1500
//     :ei2c_smbus_read_byte_data 7/50:4 0x10 >1
//
// What an output with a name was given stands for "$NAME" in the lines that follow; of the call
// itself only tell whether it failed: its result may be another one each time.
#ifndef QELI2C_BOARD_CALLS_H
#define QELI2C_BOARD_CALLS_H

#include <string>

namespace board
{

// The result, the error of a call that failed, what it gave; then, on lines that begin with "|",
// what the kernel saw on the bus. Throws std::invalid_argument for a call that makes no sense.
std::string call_line(const std::string &line);

// The same of a call that meets a controller which does not answer: it waits, and not for ever.
std::string call_that_waits(const std::string &line);

// Another process makes the call: "gets it", or "waits" when it has not within that time.
std::string call_of_another(int64_t milliseconds, const std::string &line);

// A process that makes the call and is killed there.
std::string call_before_death(const std::string &line);

} // namespace board

#endif
