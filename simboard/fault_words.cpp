// The names of faults and calls, as tables.
#include "simboard/fault_words.h"

#include <linux/i2c-dev.h>

#include <cstdio>
#include <cstring>

#include "simboard/fault.h"

namespace simboard
{

namespace
{

struct Call {
    const char *name;
    uint32_t call;
};

constexpr Call kCalls[] = {
    {"open", kCallOpen},
    {"I2C_RETRIES", I2C_RETRIES},
    {"I2C_TIMEOUT", I2C_TIMEOUT},
    {"I2C_SLAVE", I2C_SLAVE},
    {"I2C_SLAVE_FORCE", I2C_SLAVE_FORCE},
    {"I2C_TENBIT", I2C_TENBIT},
    {"I2C_FUNCS", I2C_FUNCS},
    {"I2C_RDWR", I2C_RDWR},
    {"I2C_PEC", I2C_PEC},
    {"I2C_SMBUS", I2C_SMBUS},
};

constexpr int kLastErrno = 133;

std::set<std::string> keys_with(const std::set<std::string> &own, bool filters, FaultTarget target)
{
    std::set<std::string> keys = {"fault", "label", "device",     "after",
                                  "times", "seed",  "probability"};
    if (target == FaultTarget::any) {
        keys.insert({"bus", "address"});
    }
    if (filters) {
        keys.insert({"direction", "register"});
    }
    keys.insert(own.begin(), own.end());
    return keys;
}

FaultWords words(FaultKind kind, const char *name, const char *meaning,
                 const std::set<std::string> &own, bool filters = true,
                 FaultTarget target = FaultTarget::any)
{
    return {kind, name, meaning, target, keys_with(own, filters, target)};
}

std::string in_hex(unsigned value, bool word)
{
    char text[16];
    std::snprintf(text, sizeof(text), word ? "0x%04x" : "0x%02x", value);
    return text;
}

const char *call_name(uint32_t number)
{
    for (const Call &call : kCalls) {
        if (call.call == number) {
            return call.name;
        }
    }
    return "?";
}

std::string describe_own(const FaultStep &step)
{
    switch (step.kind) {
    case FaultKind::data_nack:
        return ", byte " + std::to_string(step.value);
    case FaultKind::wrong_count:
        return ", count " + std::to_string(step.value);
    case FaultKind::short_transfer:
        return step.value == kMaxMessages ? ", one message less"
                                          : ", " + std::to_string(step.value) + " messages";
    case FaultKind::bus_error:
        return std::string(", ") + strerrorname_np(step.error);
    case FaultKind::call_fails:
        return std::string(", ") + call_name(step.call) + " " + strerrorname_np(step.error);
    default:
        return "";
    }
}

} // namespace

const std::vector<FaultWords> &all_fault_words()
{
    constexpr FaultTarget kDevice = FaultTarget::device_only;
    static const std::vector<FaultWords> all = {
        words(FaultKind::address_nack, "address-nack", "nobody acknowledges the address", {}),
        words(FaultKind::data_nack, "data-nack", "a written byte is not acknowledged", {"byte"}),
        words(FaultKind::arbitration_lost, "arbitration-lost", "another master wins the bus", {}),
        words(FaultKind::bus_stuck, "bus-stuck", "a line stays low until the adapter gives up", {}),
        words(FaultKind::bus_error, "bus-error", "the adapter reports an error", {"errno"}),
        words(FaultKind::short_transfer, "short-transfer", "fewer messages than asked for",
              {"messages"}),
        words(FaultKind::wrong_count, "wrong-count", "a block read brings a wrong count",
              {"count"}),
        words(FaultKind::wrong_pec, "wrong-pec", "a read brings a wrong PEC", {}),
        words(FaultKind::unplugged, "unplugged", "the device is not on the board", {}, false,
              kDevice),
        words(FaultKind::stuck_switch, "stuck-switch", "a switch's channels do not change", {},
              false, FaultTarget::switch_only),
        words(FaultKind::not_ready, "not-ready", "select and poll find the bus not ready", {},
              false),
        words(FaultKind::call_fails, "call-fails", "an ioctl or open fails", {"call", "errno"},
              false),
    };
    return all;
}

const FaultWords *find_fault_words(const std::string &name)
{
    for (const FaultWords &entry : all_fault_words()) {
        if (name == entry.name) {
            return &entry;
        }
    }
    return nullptr;
}

const char *name_of(FaultKind kind)
{
    for (const FaultWords &entry : all_fault_words()) {
        if (entry.kind == kind) {
            return entry.name;
        }
    }
    return "none";
}

std::set<std::string> all_fault_keys()
{
    std::set<std::string> keys;
    for (const FaultWords &entry : all_fault_words()) {
        keys.insert(entry.keys.begin(), entry.keys.end());
    }
    return keys;
}

uint32_t find_call(const std::string &name)
{
    for (const Call &call : kCalls) {
        if (name == call.name) {
            return call.call;
        }
    }
    return 0;
}

int find_errno(const std::string &name)
{
    for (int number = 1; number <= kLastErrno; number++) {
        const char *const known = strerrorname_np(number);
        if (known != nullptr && name == known) {
            return number;
        }
    }
    return 0;
}

std::string describe_target(const State &state, uint32_t bus, const FaultStep &step)
{
    if (step.chip != kNoChip) {
        return state.chips[step.chip].name;
    }
    const std::string text = "bus " + std::to_string(bus);
    return step.address == kAnyAddress ? text : text + " at " + in_hex(step.address, false);
}

std::string describe_step(const FaultStep &step)
{
    std::string text = name_of(step.kind) + describe_own(step);
    if (step.direction != FaultDirection::both) {
        text += step.direction == FaultDirection::read ? ", reads" : ", writes";
    }
    if (step.register_size != 0) {
        text += ", register " + in_hex(step.reg, step.register_size == 2);
    }
    if (step.after != 0) {
        text += ", after " + std::to_string(step.after);
    }
    if (step.times != kForever) {
        text += ", " + std::to_string(step.times) + (step.times == 1 ? " time" : " times");
    }
    if (step.threshold < uint64_t{1} << 32) {
        char part[32];
        std::snprintf(part, sizeof(part), ", probability %.3g",
                      static_cast<double>(step.threshold) / 4294967296.0);
        text += part;
    }
    return text;
}

} // namespace simboard
