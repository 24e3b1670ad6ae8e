// Reading the trace while the board is in use: copying it as fast as it comes, and making records
// of the copy, those of several buses merged.
#ifndef SIMBOARD_TRACE_READER_H
#define SIMBOARD_TRACE_READER_H

#include <cstdint>
#include <deque>
#include <vector>

#include "simboard/recorder.h"
#include "simboard/view.h"

namespace simboard
{

// Where a reader stands in a bus's trace.
struct TraceCursor {
    uint64_t slot = 0;   // slots that were read or passed over
    uint64_t number = 0; // of the record read last
    uint32_t resets = 0;
};

// A record, and how many were lost in front of it because the trace had gone round before they were
// read.
struct TraceEntry {
    uint64_t lost = 0;
    TransferRecord record;
};

// Appends further records, not many; returns false when there are none. After a reset of the board
// it begins anew.
bool read_further(const BoardView &view, uint32_t bus, TraceCursor &cursor,
                  std::deque<TraceEntry> &entries);

// Records as they are in the rings, of one round through the buses.
using RawRound = std::vector<uint8_t>;

// Copies what comes to several buses, for somebody else to make sense of.
struct TraceTaker {
    const BoardView *view = nullptr;
    std::vector<uint32_t> buses;
    std::vector<TraceCursor> cursors; // of each
    uint32_t recorder = kNoRecorder;  // told what has been copied
};

TraceTaker open_trace(const BoardView &view, const std::vector<uint32_t> &buses);

// Copies everything that is new; false when nothing was. Pass on also the empty round after one
// that was not, since it says that nothing came in between.
bool take_round(TraceTaker &taker, RawRound &round);

// Appends what rounds hold to `entries` in the order in which transfers began. Those that began
// after the round itself stay in `later`, because other buses may yet have earlier ones.
void merge_round(const RawRound &round, std::vector<TraceEntry> &later,
                 std::deque<TraceEntry> &entries);

} // namespace simboard

#endif
