// The wires of one bus: who acknowledges, what bytes go over, what STOP sets off.
#include "simboard/transfer.h"

#include <errno.h>
#include <limits.h>
#include <pthread.h>
#include <string.h>
#include <time.h>

#include "simboard/bus_lock.h"
#include "simboard/chip.h"
#include "simboard/clock.h"
#include "simboard/fault.h"
#include "simboard/judge.h"
#include "simboard/pec.h"
#include "simboard/process.h"
#include "simboard/recorder.h"
#include "simboard/trace.h"

namespace simboard
{

namespace
{

constexpr uint8_t kBlockMax = 32;
constexpr uint64_t kBitsPerByte = 9; // eight and the acknowledge bit

struct Wires {
    State &state;
    Bus &bus;
    const Task task;
    Counters &counters;
    const uint64_t start_ns;
    uint64_t bits = 0; // that went over since start
    uint16_t findings = 0;
    const FaultStep *fault = nullptr; // that struck this transfer
    uint64_t asked = 0;               // fault steps that it has matched
    uint32_t selected_count = 0;
    uint32_t touched_count = 0;
    uint16_t selected[kChipsPerBus]; // chips that acknowledged the address
    uint16_t touched[kChipsPerBus];  // chips that took part since the last STOP

    // The arrays stay uninitialised: clearing them would cost more than most transfers.
    // cppcheck-suppress uninitMemberVar ; as said
    Wires(State &board, Bus &wires, const Task &caller, Counters &counts, uint64_t now)
        : state(board), bus(wires), task(caller), counters(counts), start_ns(now)
    {
    }
};

uint64_t wire_ns(const Wires &wires)
{
    return wires.start_ns + wires.bits * wires.bus.bit_ns;
}

int send_event(Wires &wires, uint16_t index, BusEvent event, uint8_t byte)
{
    const ChipAccess access = {wires.state, wires.bus, wires.state.chips[index], wire_ns(wires)};
    return chip_event(access, event, byte);
}

void touch(Wires &wires, uint16_t index)
{
    ChipState &chip = wires.state.chips[index].state;
    if (chip.touched == 0) {
        preserve(wires.state, wires.bus, &chip, sizeof(chip));
        chip.touched = 1;
        wires.touched[wires.touched_count++] = index;
    }
}

bool has_struck(const Wires &wires, FaultKind kind)
{
    return wires.fault != nullptr && wires.fault->kind == kind;
}

// Whether a fault keeps the chip from knowing its address.
bool is_deaf(const Wires &wires, uint16_t index)
{
    return wires.state.chips[index].state.unplugged != 0 ||
           (has_struck(wires, FaultKind::address_nack) &&
            (wires.fault->chip == kNoChip || wires.fault->chip == index));
}

// START, or a repeated one, and the address byte. Every chip of that address that the open channels
// connect hears it; more than one acknowledgement is a conflict. Returns whether anyone
// acknowledged.
bool address_chips(Wires &wires, uint8_t address, bool read)
{
    wires.bits += 1 + kBitsPerByte;
    for (uint32_t i = 0; i < wires.touched_count; i++) {
        send_event(wires, wires.touched[i], BusEvent::repeated_start, 0);
    }
    wires.selected_count = 0;
    const BusEvent event = read ? BusEvent::start_read : BusEvent::start_write;
    for (uint32_t i = 0; i < wires.bus.chip_count; i++) {
        if (wires.bus.addresses[i] != address) {
            continue;
        }
        const uint16_t index = static_cast<uint16_t>(wires.bus.first_chip + i);
        if (!is_reachable(wires.state, wires.state.chips[index]) || is_deaf(wires, index)) {
            continue;
        }
        touch(wires, index);
        if (send_event(wires, index, event, 0) == kAck) {
            wires.selected[wires.selected_count++] = index;
        }
    }
    if (wires.selected_count > 1) {
        wires.findings |= kFindingConflict;
    }
    return wires.selected_count > 0;
}

// A byte to all selected chips; any of them pulls the acknowledge bit low.
bool write_byte(Wires &wires, uint8_t byte)
{
    wires.bits += kBitsPerByte;
    bool acknowledged = false;
    for (uint32_t i = 0; i < wires.selected_count; i++) {
        if (send_event(wires, wires.selected[i], BusEvent::write_byte, byte) == kAck) {
            acknowledged = true;
        }
    }
    return acknowledged;
}

// The lines are open-drain: what several chips send is ANDed, and nobody sending reads as ones.
uint8_t read_byte(Wires &wires)
{
    wires.bits += kBitsPerByte;
    int byte = 0xff;
    for (uint32_t i = 0; i < wires.selected_count; i++) {
        byte &= send_event(wires, wires.selected[i], BusEvent::read_byte, 0);
    }
    return static_cast<uint8_t>(byte);
}

// The switch forgets what it was written. Where that was to close a path, nobody is to blame for
// what stays open.
void hold_switch(Wires &wires, Chip &chip)
{
    const bool is_meant = &chip == &wires.state.chips[wires.fault->chip];
    if (is_meant && chip.state.has_pending != 0) {
        chip.state.has_pending = 0;
        if (chip.state.pending != chip.state.control) {
            chip.state.opener = {};
        }
    }
}

void stop(Wires &wires)
{
    wires.bits++;
    for (uint32_t i = 0; i < wires.touched_count; i++) {
        Chip &chip = wires.state.chips[wires.touched[i]];
        const uint8_t before = chip.state.control;
        if (has_struck(wires, FaultKind::stuck_switch)) {
            hold_switch(wires, chip);
        }
        send_event(wires, wires.touched[i], BusEvent::stop, 0);
        chip.state.touched = 0;
        if (chip.state.control != before) {
            wires.findings |= judge_switch(wires.state, wires.bus, chip, before, wires.task);
        }
    }
    wires.touched_count = 0;
    wires.selected_count = 0;
}

int address_message(Wires &wires, const i2c_msg &message, MessageResult &result)
{
    const bool must_answer = (message.flags & I2C_M_IGNORE_NAK) == 0;
    bool answered = false;
    if ((message.flags & I2C_M_TEN) != 0) {
        // The first byte of a ten-bit address is a reserved 7-bit one, and no chip here knows it.
        answered =
            address_chips(wires, static_cast<uint8_t>(0x78 | (message.addr >> 8 & 3)), false);
    } else {
        const bool reversed = (message.flags & I2C_M_REV_DIR_ADDR) != 0;
        const bool read = (message.flags & I2C_M_RD) != 0;
        answered = address_chips(wires, message.addr & 0x7f, read != reversed);
    }
    if (!answered) {
        wires.counters.address_nacks++;
        result.address_nack = true;
        if (must_answer) {
            result.outcome = Outcome::address_nack;
            return -ENXIO;
        }
    }
    return 0;
}

int write_message(Wires &wires, const i2c_msg &message, MessageResult &result)
{
    const bool cut = has_struck(wires, FaultKind::data_nack);
    while (result.done < message.len) {
        // A chip that does not acknowledge a byte has not taken it.
        const bool refused = cut && result.done + 1U == wires.fault->value;
        if (refused || !write_byte(wires, message.buf[result.done])) {
            wires.counters.data_nacks++;
            result.first_nack = result.done < result.first_nack ? result.done : result.first_nack;
            if ((message.flags & I2C_M_IGNORE_NAK) == 0) {
                result.outcome = Outcome::data_nack;
                return -EIO;
            }
        }
        result.done++;
    }
    return 0;
}

int read_message(Wires &wires, i2c_msg &message, MessageResult &result)
{
    while (result.done < message.len) {
        uint8_t byte = read_byte(wires);
        if (result.done == 0 && has_struck(wires, FaultKind::wrong_count)) {
            byte = static_cast<uint8_t>(wires.fault->value);
        }
        message.buf[result.done++] = byte;
        if (result.done == 1 && (message.flags & I2C_M_RECV_LEN) != 0) {
            if (byte == 0 || byte > kBlockMax) {
                result.outcome = Outcome::bad_count;
                return -EPROTO;
            }
            message.len = static_cast<uint16_t>(message.len + byte);
        }
    }
    return 0;
}

constexpr int kGoesOn = INT_MIN;

// The transfer's result when a fault strikes before a message is addressed, or kGoesOn.
int result_of_fault(const FaultStep &fault, uint32_t index)
{
    switch (fault.kind) {
    case FaultKind::arbitration_lost:
        return -EAGAIN;
    case FaultKind::bus_stuck:
        return -ETIMEDOUT;
    case FaultKind::bus_error:
        return -fault.error;
    case FaultKind::short_transfer:
        return static_cast<int>(index);
    default:
        return kGoesOn;
    }
}

bool find_fault(Wires &wires, const Transfer &transfer, uint32_t index, uint32_t where)
{
    if (!has_faults(wires.state, wires.bus, where) || wires.fault != nullptr) {
        return false;
    }
    wires.fault = strike_message(wires.state, wires.bus, transfer, index, where, wires.asked);
    return wires.fault != nullptr;
}

int run_messages(Wires &wires, Transfer &transfer, MessageResult *results)
{
    for (uint32_t i = 0; i < transfer.count; i++) {
        i2c_msg &message = transfer.messages[i];
        int status = 0;
        if ((message.flags & I2C_M_NOSTART) == 0) {
            if (i > 0 && (transfer.messages[i - 1].flags & I2C_M_STOP) != 0) {
                stop(wires);
            }
            if (find_fault(wires, transfer, i, kBeforeAddress)) {
                const int result = result_of_fault(*wires.fault, i);
                if (result != kGoesOn) {
                    return result;
                }
            }
            status = address_message(wires, message, results[i]);
        }
        if (status == 0) {
            find_fault(wires, transfer, i, kInMessage);
            status = (message.flags & I2C_M_RD) != 0 ? read_message(wires, message, results[i])
                                                     : write_message(wires, message, results[i]);
        }
        wires.counters.bytes += results[i].done;
        if (status < 0) {
            return status;
        }
        results[i].outcome = Outcome::complete;
        wires.counters.messages++;
    }
    return static_cast<int>(transfer.count);
}

// Whether the PEC that has come in is right; a fault may have garbled it on its way.
bool pec_is_right(Wires &wires, const Transfer &transfer)
{
    const i2c_msg &last = transfer.messages[transfer.count - 1];
    const size_t data = last.len - 1U;
    const uint8_t pec = pec_of_message(transfer.pec, last, data);
    if (find_fault(wires, transfer, transfer.count - 1, kAfterMessages)) {
        last.buf[data] = static_cast<uint8_t>(~pec);
    }
    return pec == last.buf[data];
}

// The bus stays taken for as long as the bits take. Sleeping overshoots by some tens of
// microseconds, so the last part is waited for by looking at the clock.
void wait_until(uint64_t end_ns)
{
    constexpr uint64_t kOvershootNs = 80'000;
    if (now_ns() + kOvershootNs < end_ns) {
        sleep_until(end_ns - kOvershootNs);
    }
    while (now_ns() < end_ns) {
    }
}

void count_result(Wires &wires, int result)
{
    wires.counters.transfers++;
    wires.counters.failed += result < 0 ? 1U : 0U;
    wires.counters.conflicts += (wires.findings & kFindingConflict) != 0 ? 1U : 0U;
    wires.counters.two_channels += (wires.findings & kFindingTwoChannels) != 0 ? 1U : 0U;
}

// Tries the transfer once; its record is final, and seen, when the bus is let go.
int try_transfer(State &state, Bus &bus, Transfer &transfer, const Self &self)
{
    MessageResult results[kMaxMessages];
    for (uint32_t i = 0; i < transfer.count; i++) {
        results[i] = {0, kAllAcknowledged, Outcome::not_reached, false};
    }
    preserve(state, bus, &bus.state, sizeof(bus.state));
    RecordHead head = {};
    record_path(state, bus, head);
    Wires wires(state, bus, self.task, own_counters(state, bus, self.record), now_ns());
    wires.findings = judge_start(state, bus, self.task, wires.counters);
    int result = run_messages(wires, transfer, results);
    stop(wires);
    const bool whole = result == static_cast<int>(transfer.count);
    if (whole && transfer.check_pec && !pec_is_right(wires, transfer)) {
        result = -EBADMSG;
    }
    if (wires.fault != nullptr) {
        wires.findings |= kFindingFault;
        head.fault = wires.fault->number;
    }
    count_result(wires, result);

    const bool stuck = has_struck(wires, FaultKind::bus_stuck);
    head.start_ns = wires.start_ns;
    head.task = self.task;
    static_assert(sizeof(head.process) == sizeof(self.name));
    memcpy(head.process, self.name, sizeof(head.process));
    head.result = result;
    head.smbus_size = transfer.smbus_size;
    head.findings = wires.findings;
    head.message_count = static_cast<uint16_t>(transfer.count);
    head.end_ns = bus.bit_ns == 0 ? now_ns() : wire_ns(wires);
    if (stuck) {
        head.end_ns += uint64_t{bus.timeout_ms} * 1'000'000;
    }
    append_record(state, bus, head, transfer.messages, results);
    if (stuck) { // has happened, also when the process is killed before the adapter gives up
        commit_bus(state, bus);
    }
    if (stuck || bus.bit_ns != 0) {
        wait_until(head.end_ns);
    }
    return result;
}

} // namespace

int run_transfer(State &state, Bus &bus, Transfer &transfer)
{
    const Self self = current_task(state);
    BusHold hold;
    lock_bus(state, bus, hold);
    await_recorders(state, bus, hold, kMostSlots);
    int result = try_transfer(state, bus, transfer, self);
    if (result == -EAGAIN) {
        // The kernel itself tries again (drivers/i2c/i2c-core-base.c), as often as it was told to.
        const uint64_t give_up = now_ns() + uint64_t{bus.timeout_ms} * 1'000'000;
        for (uint32_t i = bus.retries; i > 0 && result == -EAGAIN && now_ns() <= give_up; i--) {
            commit_bus(state, bus);
            result = try_transfer(state, bus, transfer, self);
        }
    }
    unlock_bus(state, bus, hold);
    return result;
}

} // namespace simboard
