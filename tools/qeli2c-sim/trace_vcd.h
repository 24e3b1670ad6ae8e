// The trace as a value change dump (IEEE 1364, clause 18): SCL and SDA of every bus, as a logic
// analyser would have seen them.
#ifndef QELI2C_SIM_TRACE_VCD_H
#define QELI2C_SIM_TRACE_VCD_H

#include "simboard/trace_reader.h"

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace runner
{

// A bus that is being drawn. Times are in units of the dump.
struct VcdBus {
    uint32_t number = 0;
    uint64_t bit = 0;           // length of a bit
    std::vector<uint8_t> cells; // what the transfer at hand is made of, a bit each
    size_t cell = 0;            // the one being drawn
    size_t step = 0;            // changes of it that are written
    uint64_t cell_start = 0;
    uint64_t free_at = 0; // when the next START may come
    bool scl = true;
    bool sda = true;
};

// Written as transfers come; what is kept is one transfer a bus.
struct VcdWriter {
    FILE *file = nullptr;
    std::vector<VcdBus> buses;
    uint64_t created_ns = 0;
    uint64_t shift = 0; // by which drawn times are later than the board's
    uint64_t now = 0;
    bool begun = false;
};

// Buses without wire time are drawn with bits of `instant_bit_ns`.
VcdWriter open_vcd(FILE *file, const simboard::State &state, const std::vector<uint32_t> &buses,
                   uint32_t instant_bit_ns);

// Transfers in the order in which the transfers began. Where one begins before the one before it on
// the bus is drawn to its end, it and all that follow on any bus are drawn later by as much.
void write_vcd(VcdWriter &writer, const simboard::TransferRecord &record);

// `lost` transfers of a bus that are missing in the dump.
void finish_vcd(VcdWriter &writer, const std::map<uint32_t, uint64_t> &lost);

} // namespace runner

#endif
