// Writing trace records.
#include "simboard/trace.h"

#include <limits.h>
#include <linux/futex.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "simboard/judge.h"

namespace simboard
{

namespace
{

constexpr uint32_t kSomebodyWaits = 1; // lowest bit of State::followers; above it calls are counted

// Lays bytes into consecutive slots, from the bus's next slot on.
struct SlotWriter {
    TraceSlot *ring;
    uint64_t first;
    uint16_t slots;
};

TraceSlot &slot(const SlotWriter &writer, uint64_t index)
{
    return writer.ring[(writer.first + index) % kTraceSlots];
}

void open_slot(SlotWriter &writer)
{
    TraceSlot &next = slot(writer, writer.slots);
    next.number = writer.first + writer.slots + 1;
    next.slots = 0;
    next.used = 0;
    writer.slots++;
}

void put(SlotWriter &writer, const void *bytes, size_t size)
{
    const uint8_t *from = static_cast<const uint8_t *>(bytes);
    while (size > 0) {
        TraceSlot *last = &slot(writer, writer.slots - 1U);
        if (last->used == sizeof(last->payload)) {
            open_slot(writer);
            last = &slot(writer, writer.slots - 1U);
        }
        const size_t room = sizeof(last->payload) - last->used;
        const size_t part = size < room ? size : room;
        memcpy(last->payload + last->used, from, part);
        last->used = static_cast<uint16_t>(last->used + part);
        from += part;
        size -= part;
    }
}

} // namespace

void record_path(const State &state, const Bus &bus, RecordHead &head)
{
    for (uint32_t i = 0; i < bus.switch_count && head.path_count < kMaxPath; i++) {
        const Chip &chip = state.chips[bus.switches[i]];
        if (chip.state.control != 0 && is_reachable(state, chip)) {
            head.path[head.path_count++] = {chip.address, chip.state.control};
        }
    }
}

void append_record(State &state, Bus &bus, RecordHead &head, const i2c_msg *messages,
                   const MessageResult *results)
{
    SlotWriter writer = {state.traces[bus.number], bus.state.trace_slots, 0};
    head.number = ++bus.state.records;
    open_slot(writer);
    put(writer, &head, sizeof(head));
    for (uint32_t i = 0; i < head.message_count; i++) {
        const i2c_msg &message = messages[i];
        // A byte that was not acknowledged went over the wire all the same.
        const size_t sent = results[i].done + (results[i].outcome == Outcome::data_nack ? 1U : 0U);
        const RecordMessage record = {message.addr,
                                      message.flags,
                                      message.len,
                                      results[i].done,
                                      static_cast<uint16_t>(sent),
                                      results[i].first_nack,
                                      results[i].outcome,
                                      results[i].address_nack ? uint8_t{1} : uint8_t{0}};
        put(writer, &record, sizeof(record));
        put(writer, message.buf, sent);
    }
    slot(writer, 0).slots = writer.slots;
    bus.state.trace_slots += writer.slots;
    // Within the hold, so that a kill cannot come between the record and the call.
    if ((state.followers.load(std::memory_order_relaxed) & kSomebodyWaits) != 0) {
        call_followers(state);
    }
}

uint32_t expect_record(State &state)
{
    return state.followers.fetch_or(kSomebodyWaits) | kSomebodyWaits;
}

void await_record(State &state, uint32_t expected)
{
    syscall(SYS_futex, &state.followers, FUTEX_WAIT, expected, nullptr, nullptr, 0);
}

void call_followers(State &state)
{
    state.followers.fetch_add(1); // carries the bit away
    syscall(SYS_futex, &state.followers, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

} // namespace simboard
