// Who makes a transfer: the calling task, its process's record on the board, and whether other
// tasks live.
#ifndef SIMBOARD_PROCESS_H
#define SIMBOARD_PROCESS_H

#include "simboard/state.h"

namespace simboard
{

struct Self {
    Task task;
    uint32_t record; // index into State::processes
    char name[16];   // of the process; NUL-terminated
};

// The calling task. The first call of a process claims its record; a forked child claims one of its
// own, a program started by exec keeps its process's.
Self current_task(State &state);

// From here on this thread acts for the task with that number, on whose behalf it got a request;
// for itself when there is no such task that it can see.
void act_for(State &state, int32_t tid);

// The caller's counters on a bus that it holds, preserved and ready to be changed.
Counters &own_counters(State &state, Bus &bus, uint32_t record);

void add_counters(Counters &sum, const Counters &counters);

// Whether the process that started at `start_ticks` still lives.
bool process_lives(int32_t pid, uint64_t start_ticks);

// Whether the task that did something at `since_ns` (CLOCK_BOOTTIME) still lives; a zombie does
// not, nor one whose numbers were reused.
bool is_alive(const Task &task, uint64_t since_ns);

} // namespace simboard

#endif
