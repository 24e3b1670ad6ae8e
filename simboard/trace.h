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

struct MessageResult {
    uint16_t done; // bytes that went over the wire and were acknowledged
    Outcome outcome;
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
    uint16_t path_count;
    OpenSwitch path[kMaxPath];
};

struct RecordMessage {
    uint16_t address;
    uint16_t flags;
    uint16_t length;
    uint16_t done;
    uint16_t kept; // bytes that follow
    Outcome outcome;
    uint8_t reserved;
};

// Fills in the reachable switches with open channels, upstream first. With the bus held.
void record_path(const State &state, const Bus &bus, RecordHead &head);

// Appends a record. With the bus held and its BusState preserved; the record counts from the end of
// the hold on.
void append_record(State &state, Bus &bus, RecordHead &head, const i2c_msg *messages,
                   const MessageResult *results);

} // namespace simboard

#endif
