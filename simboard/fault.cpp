// Which step of the fault plan strikes.
#include "simboard/fault.h"

#include "simboard/bus_lock.h"
#include "simboard/chip.h"
#include "simboard/judge.h"

namespace simboard
{

namespace
{

// A number that depends on all bits of the seed, the step and the match (the mixing function of
// SplitMix64).
uint32_t draw(const FaultStep &step)
{
    uint64_t mixed = step.seed + (uint64_t{step.number} << 48) + step.matched;
    for (int round = 0; round < 2; round++) {
        mixed += 0x9e3779b97f4a7c15;
        mixed = (mixed ^ mixed >> 30) * 0xbf58476d1ce4e5b9;
        mixed = (mixed ^ mixed >> 27) * 0x94d049bb133111eb;
        mixed ^= mixed >> 31;
    }
    return static_cast<uint32_t>(mixed >> 32);
}

// Counts a match and decides whether the step strikes, unless another one has already.
bool strikes(State &state, Bus &bus, FaultStep &step, bool taken)
{
    preserve(state, bus, &step, sizeof(step));
    step.matched++;
    const bool due =
        step.matched > step.after && (step.times == kForever || step.fired < step.times);
    if (taken || !due || draw(step) >= step.threshold) {
        return false;
    }
    step.fired++;
    return true;
}

bool is_target(const State &state, const FaultStep &step, uint16_t address, bool ten_bit)
{
    if (step.address == kAnyAddress) {
        return true;
    }
    return !ten_bit && step.address == (address & 0x7f) &&
           (step.chip == kNoChip || is_reachable(state, state.chips[step.chip]));
}

// The write that said which register a message is about: the message itself, or the last one before
// it to the same address.
const i2c_msg *naming_write(const Transfer &transfer, uint32_t index)
{
    for (uint32_t i = index + 1; i > 0; i--) {
        const i2c_msg &message = transfer.messages[i - 1];
        if ((message.flags & I2C_M_RD) == 0 && message.addr == transfer.messages[index].addr) {
            return &message;
        }
    }
    return nullptr;
}

bool concerns_register(const FaultStep &step, const Transfer &transfer, uint32_t index)
{
    if (step.register_size == 0) {
        return true;
    }
    const i2c_msg *const write = naming_write(transfer, index);
    if (write == nullptr || write->len < step.register_size) {
        return false;
    }
    const int reg = step.register_size == 1 ? write->buf[0] : write->buf[0] << 8 | write->buf[1];
    return reg == step.reg;
}

// What a kind needs of the message beyond what every step may ask for.
bool suits(const FaultStep &step, const Transfer &transfer, uint32_t index)
{
    const i2c_msg &message = transfer.messages[index];
    const bool read = (message.flags & I2C_M_RD) != 0;
    switch (step.kind) {
    case FaultKind::data_nack:
        return !read && message.len >= step.value;
    case FaultKind::stuck_switch:
        return !read && message.len > 0;
    case FaultKind::short_transfer: // a value of kMaxMessages leaves out the last one
        return index == (step.value == kMaxMessages ? transfer.count - 1 : step.value);
    case FaultKind::wrong_count:
        return read && (message.flags & I2C_M_RECV_LEN) != 0;
    case FaultKind::wrong_pec:
        return transfer.check_pec;
    default:
        return true;
    }
}

bool is_meant(const State &state, const FaultStep &step, const Transfer &transfer, uint32_t index)
{
    const i2c_msg &message = transfer.messages[index];
    const bool read = (message.flags & I2C_M_RD) != 0;
    if (step.direction != FaultDirection::both &&
        read != (step.direction == FaultDirection::read)) {
        return false;
    }
    return suits(step, transfer, index) &&
           is_target(state, step, message.addr, (message.flags & I2C_M_TEN) != 0) &&
           concerns_register(step, transfer, index);
}

// A call that is no transfer: the first step that strikes.
const FaultStep *strike_device(State &state, Bus &bus, uint32_t where, uint32_t call,
                               uint16_t address)
{
    FaultPlan &plan = state.faults[bus.number];
    const FaultStep *found = nullptr;
    BusHold hold;
    lock_bus(state, bus, hold);
    for (uint32_t i = 0; i < plan.count; i++) {
        FaultStep &step = plan.steps[i];
        if (class_of(step.kind) == where && step.call == call &&
            is_target(state, step, address, address > 0x7f) &&
            strikes(state, bus, step, found != nullptr)) {
            found = &step;
        }
    }
    unlock_bus(state, bus, hold);
    return found;
}

} // namespace

uint32_t class_of(FaultKind kind)
{
    switch (kind) {
    case FaultKind::address_nack:
    case FaultKind::arbitration_lost:
    case FaultKind::bus_stuck:
    case FaultKind::bus_error:
    case FaultKind::short_transfer:
    case FaultKind::unplugged:
        return kBeforeAddress;
    case FaultKind::data_nack:
    case FaultKind::wrong_count:
    case FaultKind::stuck_switch:
        return kInMessage;
    case FaultKind::wrong_pec:
        return kAfterMessages;
    case FaultKind::not_ready:
        return kInWaits;
    case FaultKind::call_fails:
        return kInCalls;
    case FaultKind::none:
        break;
    }
    return 0;
}

void plug_chip(State &state, Bus &bus, Chip &chip, bool in)
{
    if (in == (chip.state.unplugged == 0)) {
        return;
    }
    preserve(state, bus, &chip.state, sizeof(chip.state));
    if (in) {
        chip.state.unplugged = 0;
        return;
    }
    preserve(state, bus, memory_of(state, chip), chip.memory_size);
    chip.state = {};
    chip.state.unplugged = 1;
    chip_power_on(memory_of(state, chip), chip);
}

const FaultStep *strike_message(State &state, Bus &bus, const Transfer &transfer, uint32_t index,
                                uint32_t where, uint64_t &asked)
{
    FaultPlan &plan = state.faults[bus.number];
    const FaultStep *found = nullptr;
    for (uint32_t i = 0; i < plan.count; i++) {
        FaultStep &step = plan.steps[i];
        if (class_of(step.kind) != where || (asked >> i & 1) != 0 ||
            !is_meant(state, step, transfer, index)) {
            continue;
        }
        asked |= uint64_t{1} << i;
        const bool taken = found != nullptr;
        if (strikes(state, bus, step, taken)) {
            found = &step;
        }
        if (step.kind == FaultKind::unplugged && !taken) {
            plug_chip(state, bus, state.chips[step.chip], found != &step);
        }
    }
    return found;
}

int strike_call(State &state, Bus &bus, uint32_t call, uint16_t address)
{
    const FaultStep *const step = strike_device(state, bus, kInCalls, call, address);
    return step != nullptr ? step->error : 0;
}

bool strike_wait(State &state, Bus &bus, uint16_t address)
{
    return strike_device(state, bus, kInWaits, 0, address) != nullptr;
}

} // namespace simboard
