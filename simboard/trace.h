// The trace: every transfer of a bus as a record in the bus's ring of slots.
#ifndef SIMBOARD_TRACE_H
#define SIMBOARD_TRACE_H

#include <linux/i2c.h>

#include "simboard/state.h"

namespace simboard
{

// How a message ended.
enum class Outcome : uint8_t {
    not_reached, // an earlier message failed
    complete,
    address_nack,
    data_nack, // byte `done` was not acknowledged
    bad_count, // a block read whose count byte is 0 or above 32
};

constexpr uint16_t kAllAcknowledged = 0xffff;

struct MessageResult {
    uint16_t done; // bytes that went over the wire, one that ended the message with a NACK left out
    uint16_t first_nack; // first byte written that was not acknowledged, or kAllAcknowledged
    Outcome outcome;
    bool address_nack;
};

struct OpenSwitch {
    uint8_t address;
    uint8_t channels; // its control register
};

constexpr uint32_t kMaxPath = 12; // open switches a record has room for

// What a record starts with; `message_count` times a RecordMessage with its `kept` bytes follows.
struct RecordHead {
    uint64_t number;   // 1 for the first transfer on the bus
    uint64_t start_ns; // CLOCK_MONOTONIC
    uint64_t end_ns;   // STOP, wire time included
    Task task;
    int32_t result;     // number of messages, or a negative errno
    int16_t smbus_size; // the SMBus transaction it was made for, -1 for I2C_RDWR
    uint16_t findings;
    uint16_t message_count;
    uint16_t fault; // number of the fault step that struck, 0 for none
    uint16_t path_count;
    OpenSwitch path[kMaxPath];
    char process[16]; // its name, since processes come and go
};

struct RecordMessage {
    uint16_t address;
    uint16_t flags;
    uint16_t length;
    uint16_t done;
    uint16_t kept; // bytes that follow
    uint16_t first_nack;
    Outcome outcome;
    uint8_t address_nack;
};

constexpr size_t kSlotPayload = sizeof(TraceSlot::payload);
constexpr size_t kLargestRecord =
    sizeof(RecordHead) + kMaxMessages * (sizeof(RecordMessage) + kMaxMessageLength);
constexpr size_t kMostSlots = (kLargestRecord + kSlotPayload - 1) / kSlotPayload;
static_assert(kMostSlots <= kTraceSlots, "every byte of a transfer is kept");

// Fills in the reachable switches with open channels, upstream first. With the bus held.
void record_path(const State &state, const Bus &bus, RecordHead &head);

// Appends a record. With the bus held and its BusState preserved; the record counts from the end of
// the hold on.
void append_record(State &state, Bus &bus, RecordHead &head, const i2c_msg *messages,
                   const MessageResult *results);

// Sleeping until there is something new in the trace: `expect_record`, look, and when there was
// nothing `await_record` with its result. It returns when a record came to any bus or
// `call_followers` was called since, and now and then for no reason.
uint32_t expect_record(State &state);
void await_record(State &state, uint32_t expected);
void call_followers(State &state); // may be used in a signal handler

} // namespace simboard

#endif
