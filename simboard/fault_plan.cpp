// Reading fault plans, and saying everything that is wrong with them.
#include "simboard/fault_plan.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "simboard/description_reader.h"
#include "simboard/fault.h"
#include "simboard/fault_words.h"

namespace simboard
{

namespace
{

constexpr uint16_t kTooLong = 33; // a block count that is none, by one
constexpr uint64_t kAlways = uint64_t{1} << 32;

// One step that is being read.
struct StepReader {
    Reader &reader;
    const Json::Value &value;
    const std::string &path;
    const FaultWords &words;

    bool has(const char *key) const { return value.isMember(key); }
    void complain(const char *key, const std::string &message) const
    {
        simboard::complain(reader, has(key) ? value[key] : value, join(path, key), message);
    }
    uint32_t number(const char *key, uint32_t low, uint32_t high, const char *range,
                    uint32_t standard) const
    {
        return has(key) ? read_number(reader, value, path, key, low, high, range).value_or(standard)
                        : standard;
    }
};

const DeviceDescription *find_device(const BoardDescription &board, const std::string &name,
                                     uint16_t &index)
{
    for (size_t i = 0; i < board.devices.size(); i++) {
        if (board.devices[i].name == name) {
            index = static_cast<uint16_t>(i);
            return &board.devices[i];
        }
    }
    return nullptr;
}

// The chips of a board stand in the order of its description.
const DeviceDescription *read_device(const StepReader &from, PlannedFault &fault)
{
    const std::string name = read_text(from.reader, from.value, from.path, "device");
    if (name.empty()) {
        return nullptr;
    }
    const DeviceDescription *const device = find_device(from.reader.board, name, fault.step.chip);
    if (device == nullptr) {
        from.complain("device", "the board has no device \"" + name + "\"");
        return nullptr;
    }
    fault.bus = device->bus;
    fault.step.address = static_cast<uint8_t>(device->address);
    if (from.words.target == FaultTarget::switch_only && device->type != "pca9548") {
        from.complain("device", "must be a switch, and " + name + " is a " + device->type);
    }
    return device;
}

void read_bus(const StepReader &from, PlannedFault &fault)
{
    fault.bus = from.number("bus", 0, kBuses - 1, "0 to 15", kBuses);
    const auto &buses = from.reader.board.buses;
    if (fault.bus < kBuses && std::find(buses.begin(), buses.end(), fault.bus) == buses.end()) {
        from.complain("bus", "the board has no bus " + std::to_string(fault.bus));
    }
    fault.step.address = static_cast<uint8_t>(
        from.number("address", 0, 0x7f, "0 to 0x7f, a 7-bit address", kAnyAddress));
}

// What the fault strikes; the device, when one is named.
const DeviceDescription *read_target(const StepReader &from, PlannedFault &fault)
{
    const bool bus_allowed = from.words.target == FaultTarget::any;
    if (from.has("device")) {
        for (const char *key : {"bus", "address"}) {
            if (from.has(key) && from.words.keys.count(key) != 0) {
                from.complain(key, "does not go with a device, whose place is known");
            }
        }
        return read_device(from, fault);
    }
    if (!bus_allowed) {
        from.complain("device", "is missing");
    } else if (!from.has("bus")) {
        from.complain("device", "is missing; a bus will do as well");
    }
    if (from.has("bus")) {
        read_bus(from, fault);
    } else if (from.has("address")) {
        from.complain("address", "goes with a bus");
    }
    return nullptr;
}

void read_filters(const StepReader &from, const DeviceDescription *device, FaultStep &step)
{
    if (from.has("direction")) {
        const Json::Value &value = from.value["direction"];
        const std::string direction = value.isString() ? value.asString() : "";
        step.direction = direction == "read" ? FaultDirection::read : FaultDirection::write;
        if (direction != "read" && direction != "write") {
            from.complain("direction", "must be \"read\" or \"write\"");
        }
    }
    if (!from.has("register")) {
        return;
    }
    step.reg = static_cast<uint16_t>(from.number("register", 0, 0xffff, "0 to 0xffff", 0));
    const Json::Value &value = from.value["register"];
    const bool four_digits = value.isString() && value.asString().size() == std::strlen("0x0000") &&
                             value.asString().compare(0, 2, "0x") == 0;
    const bool wide_device = device != nullptr && (device->type == "at24c512" ||
                                                   device->type.compare(0, 5, "epld-") == 0);
    step.register_size = step.reg > 0xff || four_digits || wide_device ? 2 : 1;
}

std::optional<double> parse_probability(const Json::Value &value)
{
    double number = 0;
    if (value.isString()) {
        const std::string text = value.asString();
        char *end = nullptr;
        number = std::strtod(text.c_str(), &end);
        if (text.empty() || *end != '\0') {
            return std::nullopt;
        }
    } else if (value.isNumeric()) {
        number = value.asDouble();
    }
    return number > 0 && number <= 1 ? std::optional(number) : std::nullopt;
}

void read_window(const StepReader &from, uint64_t plan_seed, FaultStep &step)
{
    constexpr const char *kRange = "0 to 4294967295";
    step.after = from.number("after", 0, UINT32_MAX, kRange, 0);
    step.times = kForever;
    if (from.has("times") && from.value["times"] != "forever") {
        const std::optional<int64_t> times = parse_number(from.value["times"]);
        step.times = static_cast<uint64_t>(times.value_or(0));
        if (!times || *times < 1 || *times > UINT32_MAX) {
            from.complain("times", "must be a number from 1 to 4294967295, or \"forever\"");
        }
    }
    step.threshold = kAlways;
    if (from.has("probability")) {
        const std::optional<double> probability = parse_probability(from.value["probability"]);
        if (!probability) {
            from.complain("probability", "must be a number above 0, at most 1");
        }
        step.threshold = static_cast<uint64_t>(
            std::ceil(probability.value_or(1) * static_cast<double>(kAlways)));
    }
    step.seed = from.has("seed") ? from.number("seed", 0, UINT32_MAX, kRange, 0) : plan_seed;
}

void read_own(const StepReader &from, FaultStep &step)
{
    switch (step.kind) {
    case FaultKind::data_nack:
        step.value = static_cast<uint16_t>(
            from.number("byte", 1, kMaxMessageLength, "1, the first one, to 8192", 1));
        break;
    case FaultKind::wrong_count:
        step.value = static_cast<uint16_t>(from.number("count", 0, 0xff, "0 to 255", kTooLong));
        break;
    case FaultKind::short_transfer:
        step.value = static_cast<uint16_t>(
            from.number("messages", 0, kMaxMessages - 1, "0 to 41", kMaxMessages));
        break;
    default:
        break;
    }
    if (from.words.keys.count("errno") != 0) {
        step.error = from.has("errno")
                         ? find_errno(read_text(from.reader, from.value, from.path, "errno"))
                         : EIO;
        if (step.error == 0) {
            from.complain("errno", "must be the name of an error, for example \"EOPNOTSUPP\"");
        }
    }
    if (from.words.keys.count("call") != 0) {
        const std::string call = read_text(from.reader, from.value, from.path, "call");
        step.call = find_call(call);
        if (step.call == 0 && !call.empty()) {
            from.complain("call", "must be \"open\" or an ioctl's name, for example \"I2C_RDWR\"");
        }
        if (step.call == kCallOpen && (from.has("device") || from.has("address"))) {
            from.complain(from.has("device") ? "device" : "address",
                          "an open is of a bus, and no device is meant by it yet");
        }
    }
}

void check_keys(const StepReader &from)
{
    static const std::set<std::string> all = all_fault_keys();
    for (const std::string &key : from.value.getMemberNames()) {
        if (all.count(key) == 0) {
            from.complain(key.c_str(), "unknown key");
        } else if (from.words.keys.count(key) == 0) {
            from.complain(key.c_str(), std::string("does not go with ") + from.words.name);
        }
    }
}

PlannedFault read_step(Reader &reader, const Json::Value &value, const std::string &path,
                       uint64_t plan_seed)
{
    PlannedFault fault;
    fault.step.chip = kNoChip;
    fault.step.address = kAnyAddress;
    if (!value.isObject()) {
        complain(reader, value, path, "must be an object");
        return fault;
    }
    const std::string name = read_text(reader, value, path, "fault");
    const FaultWords *const words = find_fault_words(name);
    if (words == nullptr) {
        if (!name.empty()) {
            complain(reader, value["fault"], join(path, "fault"),
                     "is no fault; qeli2c-sim inject --help lists them");
        }
        return fault;
    }
    const StepReader from = {reader, value, path, *words};
    fault.step.kind = words->kind;
    check_keys(from);
    read_filters(from, read_target(from, fault), fault.step);
    read_window(from, plan_seed, fault.step);
    read_own(from, fault.step);
    if (from.has("label")) {
        const std::string label = read_text(reader, value, path, "label");
        if (label.size() >= sizeof(fault.step.label)) {
            from.complain("label", "must have at most 31 characters");
        } else {
            std::snprintf(fault.step.label, sizeof(fault.step.label), "%s", label.c_str());
        }
    }
    return fault;
}

} // namespace

std::vector<PlannedFault> parse_fault_plan(const std::string &text, const BoardDescription &board,
                                           uint64_t seed, std::vector<DescriptionError> &errors)
{
    Json::Value root;
    if (!parse_json(text, root, errors)) {
        return {};
    }
    Reader reader = {text, errors, board};
    std::vector<PlannedFault> plan;
    if (check_object(reader, root, "", {"seed", "steps"})) {
        uint64_t plan_seed = 0;
        if (root.isMember("seed")) {
            plan_seed =
                read_number(reader, root, "", "seed", 0, UINT32_MAX, "0 to 4294967295").value_or(0);
        }
        const Json::Value *const steps = require(reader, root, "", "steps");
        if (steps != nullptr && (!steps->isArray() || steps->empty())) {
            complain(reader, *steps, "steps", "must be a list of at least one step");
        } else if (steps != nullptr) {
            for (Json::ArrayIndex i = 0; i < steps->size(); i++) {
                plan.push_back(
                    read_step(reader, (*steps)[i], join("steps", i), seed != 0 ? seed : plan_seed));
            }
        }
    }
    sort_by_line(errors);
    return plan;
}

PlannedFault make_fault(const std::vector<std::pair<std::string, std::string>> &members,
                        const BoardDescription &board, uint64_t seed,
                        std::vector<DescriptionError> &errors)
{
    Json::Value value(Json::objectValue);
    for (const auto &[key, text] : members) {
        value[key] = text;
    }
    const std::string no_text;
    Reader reader = {no_text, errors, board};
    return read_step(reader, value, "", seed);
}

} // namespace simboard
