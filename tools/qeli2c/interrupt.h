// Ctrl-C and its kin never end the tool in the middle of a transfer: the bus is released and the
// path closed first.
#ifndef QELI2C_INTERRUPT_H
#define QELI2C_INTERRUPT_H

#include <chrono>

namespace tool
{

// From here on SIGINT, SIGTERM and SIGHUP only ask; a second one ends the process at once. SIGPIPE
// is ignored, so that a reader of the output who goes away cannot end the tool while a path is
// open.
void defer_interrupts();

// Whether one of them has come, and which; 0 for none.
bool interrupted();
int noted_signal();

// Waits, less when one of them comes. False when one has come.
bool pause_unless_interrupted(std::chrono::nanoseconds time);

// Ends the process by the signal that came, as its parent expects. Returns when none came.
void end_if_interrupted();

} // namespace tool

#endif
