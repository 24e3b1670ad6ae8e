// What the kernel itself saw on a bus: its trace of I2C messages (Documentation/trace/events.rst).
#ifndef QELI2C_BOARD_TRACE_H
#define QELI2C_BOARD_TRACE_H

#include <cstdint>
#include <string>

namespace board::trace
{

// Begins a new trace. Throws std::runtime_error when the kernel has none.
void start();

// The transfers since then on one bus, in order, each as its messages, the bytes it read, and the
// error it met: "20 w 03, 20 r1 = ff; 6d w 00 ENXIO". Of a message the kernel tells 64 bytes at
// most. Ends the trace.
std::string transfers(uint32_t bus);

} // namespace board::trace

#endif
