// Reading the trace.
#include "simboard/trace_reader.h"

#include <algorithm>
#include <cstring>

#include "simboard/bus_guard.h"
#include "simboard/clock.h"

namespace simboard
{

namespace
{

constexpr uint64_t kSlotsAtOnce = 256; // the bus is held while they are copied

// Reads a record's bytes in order; zeros beyond its end.
struct RecordBytes {
    std::vector<uint8_t> bytes;
    size_t at = 0;

    void take(void *to, size_t size)
    {
        const size_t part = std::min(size, bytes.size() - at);
        if (part > 0) {
            std::memcpy(to, bytes.data() + at, part);
        }
        at += part;
    }
};

MessageRecord read_message(RecordBytes &bytes)
{
    RecordMessage head = {};
    bytes.take(&head, sizeof(head));
    MessageRecord message;
    message.address = head.address;
    message.flags = head.flags;
    message.length = head.length;
    message.done = head.done;
    message.first_nack = head.first_nack;
    message.outcome = head.outcome;
    message.address_nack = head.address_nack != 0;
    message.bytes.resize(head.kept);
    bytes.take(message.bytes.data(), message.bytes.size());
    return message;
}

TransferRecord read_record(RecordBytes bytes, uint32_t bus)
{
    RecordHead head = {};
    bytes.take(&head, sizeof(head));
    TransferRecord record;
    record.number = head.number;
    record.start_ns = head.start_ns;
    record.end_ns = head.end_ns;
    record.task = head.task;
    record.process = head.process;
    record.bus = bus;
    record.result = head.result;
    record.smbus_size = head.smbus_size;
    record.findings = head.findings;
    record.fault = head.fault;
    record.path.assign(head.path, head.path + head.path_count);
    for (uint16_t i = 0; i < head.message_count; i++) {
        record.messages.push_back(read_message(bytes));
    }
    return record;
}

// Slots from the cursor on, up to the end of a record; whole records but for the first, whose
// beginning may have been overwritten.
std::vector<TraceSlot> copy_slots(const BoardView &view, uint32_t number, TraceCursor &cursor)
{
    State &state = *view.state;
    Bus &bus = state.buses[number];
    const TraceSlot *const ring = state.traces[number];
    const BusGuard guard(state, bus);
    if (cursor.resets != bus.state.resets) {
        cursor = {0, 0, bus.state.resets};
    }
    const uint64_t end = bus.state.trace_slots;
    uint64_t at = std::max(cursor.slot, end > kTraceSlots ? end - kTraceSlots : 0);
    // A transfer that was undone may have overwritten the oldest slots as well.
    while (at < end &&
           (ring[at % kTraceSlots].number != at + 1 || ring[at % kTraceSlots].slots == 0)) {
        at++;
    }
    std::vector<TraceSlot> slots;
    while (at < end && slots.size() < kSlotsAtOnce) {
        for (uint64_t left = ring[at % kTraceSlots].slots; left > 0; left--) {
            slots.push_back(ring[at++ % kTraceSlots]);
        }
    }
    cursor.slot = at;
    return slots;
}

void refill(TraceStream &stream)
{
    for (TraceStream::Source &source : stream.sources) {
        if (source.pending.empty()) {
            source.seen_ns = now_ns(); // who began before holds the bus until it is done
            read_further(*stream.view, source.bus, source.cursor, source.pending);
        }
    }
}

} // namespace

bool read_further(const BoardView &view, uint32_t bus, TraceCursor &cursor,
                  std::deque<TraceEntry> &entries)
{
    const std::vector<TraceSlot> slots = copy_slots(view, bus, cursor);
    for (size_t at = 0; at < slots.size();) {
        RecordBytes bytes;
        const size_t end = at + slots[at].slots;
        for (; at < end; at++) {
            bytes.bytes.insert(bytes.bytes.end(), slots[at].payload,
                               slots[at].payload + slots[at].used);
        }
        TraceEntry entry = {0, read_record(std::move(bytes), bus)};
        entry.lost = entry.record.number - cursor.number - 1;
        cursor.number = entry.record.number;
        entries.push_back(std::move(entry));
    }
    return !slots.empty();
}

TraceStream open_trace(const BoardView &view, const std::vector<uint32_t> &buses)
{
    TraceStream stream;
    stream.view = &view;
    for (const uint32_t bus : buses) {
        stream.sources.push_back({bus, {}, {}, 0});
    }
    return stream;
}

bool next_entry(TraceStream &stream, uint64_t until_ns, TraceEntry &entry)
{
    for (bool refilled = false;; refilled = true) {
        TraceStream::Source *first = nullptr;
        uint64_t complete_ns = until_ns;
        for (TraceStream::Source &source : stream.sources) {
            if (source.pending.empty()) {
                complete_ns = std::min(complete_ns, source.seen_ns);
            } else if (first == nullptr || source.pending.front().record.start_ns <
                                               first->pending.front().record.start_ns) {
                first = &source;
            }
        }
        if (first != nullptr && first->pending.front().record.start_ns <= complete_ns) {
            entry = std::move(first->pending.front());
            first->pending.pop_front();
            return true;
        }
        if (refilled && (first == nullptr || first->pending.front().record.start_ns > until_ns)) {
            return false;
        }
        refill(stream);
    }
}

std::vector<TransferRecord> read_trace(const BoardView &view, uint32_t bus)
{
    TraceCursor cursor;
    std::deque<TraceEntry> entries;
    while (read_further(view, bus, cursor, entries)) {
    }
    std::vector<TransferRecord> records;
    for (TraceEntry &entry : entries) {
        records.push_back(std::move(entry.record));
    }
    return records;
}

} // namespace simboard
