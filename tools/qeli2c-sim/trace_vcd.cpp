// Drawing transfers as signals.
#include "trace_vcd.h"

#include "trace_style.h"

#include <algorithm>
#include <charconv>
#include <iterator>

namespace runner
{

namespace
{

using simboard::MessageRecord;
using simboard::Outcome;
using simboard::TransferRecord;

constexpr uint64_t kUnitNs =
    100; // decoders take a sample a unit, so it is no finer than it must be
constexpr uint64_t kShortestBit = 8;

// A bit's time on the bus. SCL is low in its first half, and SDA changes in the middle of that.
enum Cell : uint8_t { zero, one, start, repeated_start, stop };

struct Change {
    uint64_t eighths; // of the bit
    bool is_clock;
    bool level;
};

struct Drawing {
    size_t count;
    Change changes[4];
};

constexpr Drawing kDrawings[] = {
    {3, {{2, false, false}, {4, true, true}, {8, true, false}}},
    {3, {{2, false, true}, {4, true, true}, {8, true, false}}},
    {2, {{4, false, false}, {8, true, false}}},
    {4, {{2, false, true}, {4, true, true}, {6, false, false}, {8, true, false}}},
    {3, {{2, false, false}, {4, true, true}, {6, false, true}}},
};

uint64_t change_time(const VcdBus &bus)
{
    return bus.cell_start + bus.bit * kDrawings[bus.cells[bus.cell]].changes[bus.step].eighths / 8;
}

void put_byte(std::vector<uint8_t> &cells, unsigned byte, bool acknowledged)
{
    for (unsigned mask = 0x80; mask != 0; mask >>= 1) {
        cells.push_back((byte & mask) != 0 ? one : zero);
    }
    cells.push_back(acknowledged ? zero : one);
}

void put_address(std::vector<uint8_t> &cells, const MessageRecord &message)
{
    unsigned byte;
    if ((message.flags & I2C_M_TEN) != 0) { // the first of the two bytes; nobody hears a second
        byte = 0xf0U | (message.address >> 7 & 6U);
    } else {
        const bool read = (message.flags & I2C_M_RD) != 0;
        const bool reversed = (message.flags & I2C_M_REV_DIR_ADDR) != 0;
        byte = (message.address & 0x7fU) << 1 | (read != reversed ? 1U : 0U);
    }
    put_byte(cells, byte, !message.address_nack);
}

// The master acknowledges what it reads, but for the last byte.
bool is_acknowledged(const MessageRecord &message, const MessageRecord *next, size_t index)
{
    if ((message.flags & I2C_M_RD) == 0) {
        return index < message.first_nack;
    }
    const bool goes_on = next != nullptr && next->outcome != Outcome::not_reached &&
                         !is_addressed(*next) && (next->flags & I2C_M_RD) != 0;
    return (message.flags & I2C_M_NO_RD_ACK) == 0 && (index + 1 < message.bytes.size() || goes_on);
}

std::vector<uint8_t> cells_of(const TransferRecord &record)
{
    std::vector<uint8_t> cells;
    for (size_t i = 0; i < record.messages.size(); i++) {
        const MessageRecord &message = record.messages[i];
        if (message.outcome == Outcome::not_reached) {
            break;
        }
        if (cells.empty()) {
            cells.push_back(start);
        } else if (is_addressed(message) && (record.messages[i - 1].flags & I2C_M_STOP) != 0) {
            cells.push_back(stop);
            cells.push_back(start);
        } else if (is_addressed(message)) {
            cells.push_back(repeated_start);
        }
        if (is_addressed(message)) {
            put_address(cells, message);
        }
        const MessageRecord *const next =
            i + 1 < record.messages.size() ? &record.messages[i + 1] : nullptr;
        for (size_t at = 0; at < message.bytes.size(); at++) {
            put_byte(cells, message.bytes[at], is_acknowledged(message, next, at));
        }
    }
    if (!cells.empty()) {
        cells.push_back(stop);
    }
    return cells;
}

// Two printable characters a signal.
std::string identifier(const VcdBus &bus, bool is_clock)
{
    return {is_clock ? 'c' : 'd', static_cast<char>('A' + bus.number)};
}

void write_level(const VcdWriter &writer, const VcdBus &bus, bool is_clock)
{
    const char level = (is_clock ? bus.scl : bus.sda) ? '1' : '0';
    const std::string line = level + identifier(bus, is_clock) + '\n';
    std::fwrite(line.data(), 1, line.size(), writer.file);
}

void move_to(VcdWriter &writer, uint64_t time)
{
    if (time > writer.now || !writer.begun) {
        writer.now = time;
        char line[24] = "#";
        char *const end = std::to_chars(line + 1, std::end(line) - 1, time).ptr;
        *end = '\n';
        std::fwrite(line, 1, static_cast<size_t>(end + 1 - line), writer.file);
    }
}

void write_change(VcdWriter &writer, VcdBus &bus)
{
    const Drawing &drawing = kDrawings[bus.cells[bus.cell]];
    const Change &change = drawing.changes[bus.step];
    bool &line = change.is_clock ? bus.scl : bus.sda;
    if (line != change.level) {
        move_to(writer, change_time(bus));
        line = change.level;
        write_level(writer, bus, change.is_clock);
    }
    if (++bus.step == drawing.count) {
        bus.step = 0;
        bus.cell++;
        bus.cell_start += bus.bit;
    }
}

// Everything before `until`, on all buses.
void advance(VcdWriter &writer, uint64_t until)
{
    for (;;) {
        VcdBus *next = nullptr;
        for (VcdBus &bus : writer.buses) {
            if (bus.cell < bus.cells.size() &&
                (next == nullptr || change_time(bus) < change_time(*next))) {
                next = &bus;
            }
        }
        if (next == nullptr || change_time(*next) >= until) {
            return;
        }
        write_change(writer, *next);
    }
}

void write_header(const VcdWriter &writer)
{
    std::fprintf(writer.file,
                 "$version qeli2c-sim $end\n$timescale %llu ns $end\n"
                 "$scope module board $end\n",
                 static_cast<unsigned long long>(kUnitNs));
    for (const VcdBus &bus : writer.buses) {
        for (const bool is_clock : {true, false}) {
            std::fprintf(writer.file, "$var wire 1 %s %s%u $end\n",
                         identifier(bus, is_clock).c_str(), is_clock ? "SCL" : "SDA", bus.number);
        }
    }
    std::fprintf(writer.file, "$upscope $end\n$enddefinitions $end\n");
}

void begin(VcdWriter &writer, uint64_t time)
{
    move_to(writer, time);
    writer.begun = true;
    std::fprintf(writer.file, "$dumpvars\n");
    for (const VcdBus &bus : writer.buses) {
        write_level(writer, bus, true);
        write_level(writer, bus, false);
    }
    std::fprintf(writer.file, "$end\n");
}

} // namespace

VcdWriter open_vcd(FILE *file, const simboard::State &state, const std::vector<uint32_t> &buses,
                   uint32_t instant_bit_ns)
{
    VcdWriter writer;
    writer.file = file;
    writer.created_ns = state.header.created_ns;
    for (const uint32_t number : buses) {
        const uint64_t given = state.buses[number].bit_ns;
        VcdBus bus;
        bus.number = number;
        bus.bit = std::max((given != 0 ? given : instant_bit_ns) / kUnitNs, kShortestBit);
        writer.buses.push_back(std::move(bus));
    }
    write_header(writer);
    return writer;
}

void write_vcd(VcdWriter &writer, const TransferRecord &record)
{
    const auto found =
        std::find_if(writer.buses.begin(), writer.buses.end(),
                     [&record](const VcdBus &bus) { return bus.number == record.bus; });
    if (found == writer.buses.end()) {
        return;
    }
    VcdBus &bus = *found;
    uint64_t time = (record.start_ns - writer.created_ns) / kUnitNs + writer.shift;
    if (!writer.begun) {
        const uint64_t before = 10 * bus.bit;
        begin(writer, time > before ? time - before : 0);
    }
    if (time < bus.free_at) {
        writer.shift += bus.free_at - time;
        time = bus.free_at;
    }
    advance(writer, time);
    bus.cells = cells_of(record);
    bus.cell = 0;
    bus.step = 0;
    bus.cell_start = time;
    bus.free_at = time + bus.cells.size() * bus.bit;
}

void finish_vcd(VcdWriter &writer, const std::map<uint32_t, uint64_t> &lost)
{
    advance(writer, UINT64_MAX);
    if (!writer.begun) {
        begin(writer, 0);
    }
    uint64_t end = writer.now;
    for (const VcdBus &bus : writer.buses) {
        end = std::max(end, bus.free_at);
    }
    move_to(writer, end + 1);
    // Only here: decoders stop at a comment among the changes.
    for (const auto &[bus, count] : lost) {
        std::fprintf(writer.file, "$comment bus %u: %llu transfers missing $end\n", bus,
                     static_cast<unsigned long long>(count));
    }
}

} // namespace runner
