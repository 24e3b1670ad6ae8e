// What the kernel itself saw on a bus: its trace of I2C messages (Documentation/trace/events.rst).
#ifndef QELI2C_BOARD_TRACE_H
#define QELI2C_BOARD_TRACE_H

#include <cstdint>
#include <string>
#include <vector>

namespace board::trace
{

// Begins a new trace. Throws std::runtime_error when the kernel has none.
void start();

// The messages since then on one bus, in order: "70 w 20" for a write with its bytes, "50 r4" for a
// read of four bytes. Ends the trace.
std::vector<std::string> messages(uint32_t bus);

} // namespace board::trace

#endif
