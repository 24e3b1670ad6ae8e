// What goes on on a board: who uses it, and which paths stand open.
#ifndef SIMBOARD_BOARD_STATUS_H
#define SIMBOARD_BOARD_STATUS_H

#include "simboard/view.h"

#include <cstdint>
#include <string>
#include <vector>

namespace simboard
{

struct LiveProcess {
    int32_t pid = 0;
    std::string name;
};

// A switch with open channels.
struct OpenPath {
    uint32_t bus = 0;
    std::string name;     // of the switch
    uint8_t channels = 0; // its control register
    Task opener = {};     // pid 0 when nobody alive is known to have opened them
};

struct BoardStatus {
    uint64_t age_s = 0;
    std::vector<LiveProcess> processes; // that have made transfers and live
    std::vector<OpenPath> open_paths;
    Counters totals = {};
};

BoardStatus read_status(const BoardView &view);

} // namespace simboard

#endif
