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

// In front of a record's bytes in a copy.
struct RawHead {
    uint64_t lost; // records in front of it
    uint32_t bus;
    uint32_t size;
};

// Reads bytes in order; zeros beyond their end.
struct RecordBytes {
    const uint8_t *bytes;
    size_t size;
    size_t at = 0;

    void take(void *to, size_t wanted)
    {
        const size_t part = std::min(wanted, size - at);
        if (part > 0) {
            std::memcpy(to, bytes + at, part);
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

void append(RawRound &raw, const void *bytes, size_t size)
{
    raw.resize(raw.size() + size);
    std::memcpy(raw.data() + raw.size() - size, bytes, size);
}

// Copies the record whose first slot is at the cursor.
void copy_record(const TraceSlot *ring, uint32_t bus, TraceCursor &cursor, RawRound &raw)
{
    const TraceSlot &first = ring[cursor.slot % kTraceSlots];
    const size_t start = raw.size();
    RawHead head = {0, bus, 0};
    append(raw, &head, sizeof(head));
    for (uint64_t end = cursor.slot + first.slots; cursor.slot < end; cursor.slot++) {
        const TraceSlot &slot = ring[cursor.slot % kTraceSlots];
        append(raw, slot.payload, slot.used);
    }
    RecordHead record;
    std::memcpy(&record, first.payload, sizeof(record));
    head.lost = record.number - cursor.number - 1;
    head.size = static_cast<uint32_t>(raw.size() - start - sizeof(head));
    std::memcpy(raw.data() + start, &head, sizeof(head));
    cursor.number = record.number;
}

// Appends records from the cursor on, not many; false when there are none.
bool copy_records(State &state, uint32_t number, TraceCursor &cursor, uint32_t recorder,
                  RawRound &raw)
{
    Bus &bus = state.buses[number];
    const TraceSlot *const ring = state.traces[number];
    const BusGuard guard(state, bus);
    if (cursor.resets != bus.state.resets) {
        cursor = {0, 0, bus.state.resets};
    }
    const uint64_t end = bus.state.trace_slots;
    cursor.slot = std::max(cursor.slot, end > kTraceSlots ? end - kTraceSlots : 0);
    // A transfer that was undone may have overwritten the oldest slots as well.
    while (cursor.slot < end && (ring[cursor.slot % kTraceSlots].number != cursor.slot + 1 ||
                                 ring[cursor.slot % kTraceSlots].slots == 0)) {
        cursor.slot++;
    }
    const size_t before = raw.size();
    const uint64_t enough = std::min(end, cursor.slot + kSlotsAtOnce);
    while (cursor.slot < enough) {
        copy_record(ring, number, cursor, raw);
    }
    note_taken(state, bus, recorder, cursor.slot);
    return raw.size() > before;
}

// The records of a copy, from a place in it on.
template <typename Entries>
void read_copy(const RawRound &raw, size_t at, Entries &entries)
{
    while (at < raw.size()) {
        RawHead head;
        std::memcpy(&head, raw.data() + at, sizeof(head));
        at += sizeof(head);
        entries.push_back({head.lost, read_record({raw.data() + at, head.size}, head.bus)});
        at += head.size;
    }
}

} // namespace

bool read_further(const BoardView &view, uint32_t bus, TraceCursor &cursor,
                  std::deque<TraceEntry> &entries)
{
    RawRound raw;
    const bool more = copy_records(*view.state, bus, cursor, kNoRecorder, raw);
    read_copy(raw, 0, entries);
    return more;
}

TraceTaker open_trace(const BoardView &view, const std::vector<uint32_t> &buses)
{
    return {&view, buses, std::vector<TraceCursor>(buses.size()), kNoRecorder};
}

bool take_round(TraceTaker &taker, RawRound &round)
{
    const uint64_t start = now_ns(); // who began before holds the bus until it is done
    round.clear();
    append(round, &start, sizeof(start));
    for (size_t i = 0; i < taker.buses.size(); i++) {
        // What comes meanwhile is left to the next round.
        for (uint64_t slots = 0; slots < kTraceSlots; slots += kSlotsAtOnce) {
            if (!copy_records(*taker.view->state, taker.buses[i], taker.cursors[i], taker.recorder,
                              round)) {
                break;
            }
        }
    }
    return round.size() > sizeof(start);
}

void merge_round(const RawRound &round, std::vector<TraceEntry> &later,
                 std::deque<TraceEntry> &entries)
{
    uint64_t start;
    std::memcpy(&start, round.data(), sizeof(start));
    read_copy(round, sizeof(start), later);
    const auto began = [](const TraceEntry &entry) { return entry.record.start_ns; };
    std::stable_sort(later.begin(), later.end(),
                     [&](const TraceEntry &a, const TraceEntry &b) { return began(a) < began(b); });
    auto end = later.begin();
    while (end != later.end() && began(*end) <= start) {
        entries.push_back(std::move(*end++));
    }
    later.erase(later.begin(), end);
}

std::vector<TransferRecord> read_trace(const BoardView &view, uint32_t bus)
{
    TraceCursor cursor;
    std::deque<TraceEntry> entries;
    while (read_further(view, bus, cursor, entries)) {
    }
    std::vector<TransferRecord> records;
    records.reserve(entries.size());
    for (TraceEntry &entry : entries) {
        records.push_back(std::move(entry.record));
    }
    return records;
}

} // namespace simboard
