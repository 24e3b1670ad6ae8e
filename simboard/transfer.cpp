// The wires of one bus: who acknowledges, what bytes go over, what STOP sets off.
#include "simboard/transfer.h"

#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <time.h>

#include "simboard/bus_lock.h"
#include "simboard/chip.h"
#include "simboard/clock.h"
#include "simboard/judge.h"
#include "simboard/pec.h"
#include "simboard/process.h"
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
    uint32_t selected_count = 0;
    uint32_t touched_count = 0;
    uint16_t selected[kChipsPerBus]; // chips that acknowledged the address
    uint16_t touched[kChipsPerBus];  // chips that took part since the last STOP

    // The arrays stay uninitialised: clearing them would cost more than most transfers.
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
        if (!is_reachable(wires.state, wires.state.chips[index])) {
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

void stop(Wires &wires)
{
    wires.bits++;
    for (uint32_t i = 0; i < wires.touched_count; i++) {
        Chip &chip = wires.state.chips[wires.touched[i]];
        const uint8_t before = chip.state.control;
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
    while (result.done < message.len) {
        const bool acknowledged = write_byte(wires, message.buf[result.done]);
        if (!acknowledged) {
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
        const uint8_t byte = read_byte(wires);
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

int run_messages(Wires &wires, Transfer &transfer, MessageResult *results)
{
    for (uint32_t i = 0; i < transfer.count; i++) {
        i2c_msg &message = transfer.messages[i];
        int status = 0;
        if ((message.flags & I2C_M_NOSTART) == 0) {
            if (i > 0 && (transfer.messages[i - 1].flags & I2C_M_STOP) != 0) {
                stop(wires);
            }
            status = address_message(wires, message, results[i]);
        }
        if (status == 0) {
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

bool pec_is_right(const Transfer &transfer)
{
    const i2c_msg &last = transfer.messages[transfer.count - 1];
    const size_t data = last.len - 1U;
    return pec_of_message(transfer.pec, last, data) == last.buf[data];
}

// The bus stays taken for as long as the bits take. Sleeping overshoots by some tens of
// microseconds, so the last part is waited for by looking at the clock.
void wait_until(uint64_t end_ns)
{
    constexpr uint64_t kOvershootNs = 80'000;
    uint64_t now = now_ns();
    if (now + kOvershootNs < end_ns) {
        const uint64_t wake = end_ns - kOvershootNs;
        const timespec until = {static_cast<time_t>(wake / 1'000'000'000),
                                static_cast<long>(wake % 1'000'000'000)};
        int cancel;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancel);
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
        }
        pthread_setcancelstate(cancel, nullptr);
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

} // namespace

int run_transfer(State &state, Bus &bus, Transfer &transfer)
{
    const Self self = current_task(state);
    MessageResult results[kMaxMessages];
    for (uint32_t i = 0; i < transfer.count; i++) {
        results[i] = {0, kAllAcknowledged, Outcome::not_reached, false};
    }

    BusHold hold;
    lock_bus(state, bus, hold);
    preserve(state, bus, &bus.state, sizeof(bus.state));
    RecordHead head = {};
    record_path(state, bus, head);
    Wires wires(state, bus, self.task, own_counters(state, bus, self.record), now_ns());
    wires.findings = judge_start(state, bus, self.task, wires.counters);
    int result = run_messages(wires, transfer, results);
    stop(wires);
    if (result >= 0 && transfer.check_pec && !pec_is_right(transfer)) {
        result = -EBADMSG;
    }
    count_result(wires, result);

    head.start_ns = wires.start_ns;
    head.task = self.task;
    strncpy(head.process, program_invocation_short_name, sizeof(head.process) - 1);
    head.result = result;
    head.smbus_size = transfer.smbus_size;
    head.findings = wires.findings;
    head.message_count = static_cast<uint16_t>(transfer.count);
    head.end_ns = wire_ns(wires);
    if (bus.bit_ns == 0) {
        head.end_ns = now_ns();
    } else {
        wait_until(head.end_ns);
    }
    append_record(state, bus, head, transfer.messages, results);
    unlock_bus(state, bus, hold);
    return result;
}

} // namespace simboard
