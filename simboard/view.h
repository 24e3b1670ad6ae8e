// A board looked at from outside: chips, counters and trace, read and changed without traffic on
// the bus.
#ifndef SIMBOARD_VIEW_H
#define SIMBOARD_VIEW_H

#include <cstdint>
#include <string>
#include <vector>

#include "simboard/judge.h"
#include "simboard/state.h"
#include "simboard/trace.h"

namespace simboard
{

struct MessageRecord {
    uint16_t address = 0;
    uint16_t flags = 0;  // as in struct i2c_msg
    uint16_t length = 0; // as asked for; a block read's with its counted bytes
    uint16_t done = 0;   // bytes that went over the wire, a byte not acknowledged left out
    uint16_t first_nack = kAllAcknowledged; // of the bytes written
    Outcome outcome = Outcome::not_reached;
    bool address_nack = false;
    std::vector<uint8_t> bytes; // that went over, one not acknowledged included
};

struct TransferRecord {
    uint64_t number = 0;   // 1 for the first transfer on the bus
    uint64_t start_ns = 0; // CLOCK_MONOTONIC
    uint64_t end_ns = 0;   // STOP, wire time included
    Task task = {};
    std::string process; // its name
    uint32_t bus = 0;
    int32_t result = 0;      // number of messages, or a negative errno
    int32_t smbus_size = -1; // the SMBus transaction it was made for, -1 for I2C_RDWR
    uint16_t findings = 0;   // kFinding...
    uint16_t fault = 0;      // number of the fault step that struck, 0 for none
    std::vector<OpenSwitch>
        path; // reachable switches with open channels when it began, upstream first
    std::vector<MessageRecord> messages;
};

struct ProcessCounters {
    int32_t pid =
        0; // 0: processes that had to share a record, or whose record was reused after their end
    std::string name;
    Counters by_bus[kBuses] = {};
};

// A mapped board.
struct BoardView {
    State *state = nullptr;
    std::string directory;
};

// Maps the board in `directory`; throws std::runtime_error when it is none, or not the caller's
// own.
BoardView open_board(const std::string &directory);
void close_board(BoardView &view);

// The chip of that name, or a std::runtime_error.
Chip &find_chip(const BoardView &view, const std::string &name);
Chip *look_up_chip(const BoardView &view, const std::string &name); // null when there is none

std::vector<uint8_t> peek(const BoardView &view, const Chip &chip, uint32_t offset, uint32_t count);
void poke(const BoardView &view, Chip &chip, uint32_t offset, const std::vector<uint8_t> &bytes);

// What surrounds a chip, by its name as in the description: "voltage_mv", "inputs", "id" and so on
// (chip_kind.h). A std::runtime_error when the chip has none of that name, or for a value beyond
// its range. A program on the bus finds the change with its next transfer.
int64_t read_stimulus(const BoardView &view, const Chip &chip, const std::string &name);
void write_stimulus(const BoardView &view, Chip &chip, const std::string &name, int64_t value);
// The level that stands at an expander's pin from outside.
void write_pin(const BoardView &view, Chip &chip, uint32_t pin, bool level);
// Names of the chip's stimuli.
std::vector<std::string> list_stimuli(const Chip &chip);

// Processes that made transfers, in the order they first did.
std::vector<ProcessCounters> read_counters(const BoardView &view);
// What must never happen and did, one line each with `prefix`; empty when all is well.
std::string describe_wrongs(const Counters &counters, const std::string &prefix);

// All records of one bus, oldest first, as far as the trace still holds them (trace_reader.h reads
// them a few at a time).
std::vector<TransferRecord> read_trace(const BoardView &view, uint32_t bus);

// All chips, counters and the trace as at creation; a fault plan stays and starts anew.
void reset_board(const BoardView &view);

} // namespace simboard

#endif
