// How long processes held buses, and how long they waited for them.
#ifndef QELI2C_SIM_REPORT_LOCKS_H
#define QELI2C_SIM_REPORT_LOCKS_H

#include "simboard/view.h"

#include <string>
#include <vector>

namespace runner
{

// "812 ns", "12.3 us", "4.56 ms", "78.9 s"; "-" for none.
std::string duration_text(uint64_t nanoseconds);

// "1234 name", or "(earlier processes)".
std::string process_label(const simboard::ProcessCounters &process);

// A line for each process and bus with a hold or a wait; nothing when there are none.
void print_locks(const std::vector<simboard::ProcessCounters> &processes);

} // namespace runner

#endif
