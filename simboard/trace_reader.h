// Reading the trace while the board is in use: a few records at a time, and those of several buses
// merged.
#ifndef SIMBOARD_TRACE_READER_H
#define SIMBOARD_TRACE_READER_H

#include <cstdint>
#include <deque>
#include <vector>

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

// The traces of several buses as one, in the order in which transfers began.
struct TraceStream {
    struct Source {
        uint32_t bus = 0;
        TraceCursor cursor;
        std::deque<TraceEntry> pending;
        uint64_t seen_ns = 0; // everything that began before this has been read
    };
    const BoardView *view = nullptr;
    std::vector<Source> sources;
};

TraceStream open_trace(const BoardView &view, const std::vector<uint32_t> &buses);

// The next transfer that began no later than `until_ns` (CLOCK_MONOTONIC); false when all of them
// have been read.
bool next_entry(TraceStream &stream, uint64_t until_ns, TraceEntry &entry);

} // namespace simboard

#endif
