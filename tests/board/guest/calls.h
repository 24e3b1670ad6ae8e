// Calls of the library as lines of a case, made by this process itself:
//
//     :i2cWrite 3/0x70.5/0x71.2/0x54 2 0x1500 = d0 d1 40+16
//     :ei2c_smbus_read_byte_data 7/0x50+pec 0x10
//
// The numbers are the function's own, in their order, without lengths of what is written; after
// "=" come the bytes, or the messages as in tool/requests.h.
#ifndef QELI2C_BOARD_CALLS_H
#define QELI2C_BOARD_CALLS_H

#include "qeli2c.h"

#include <string>

namespace board
{

// The device at "3/0x70.5/0x71.2/0x54": on bus 3, through channel 5 of 0x70 and 2 of 0x71.
ei2c_client client_at(const std::string &path);

// The result, the error of a call that failed, what it gave; then, on lines that begin with "|",
// what the kernel saw on the bus. Throws std::runtime_error for a call that is not known.
std::string call_line(const std::string &line);

// Another process that wants the device: "gets it", or "waits" when it has not within that time.
std::string another_process(const ei2c_client &client, int64_t milliseconds);

// A process that takes the bus, opens the path and is killed there.
std::string killed_holder(const ei2c_client &client);

} // namespace board

#endif
