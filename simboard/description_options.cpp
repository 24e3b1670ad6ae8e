// Reading the keys of a device that depend on its type.
#include <algorithm>

#include "simboard/chip_kind.h"
#include "simboard/description_check.h"
#include "simboard/description_reader.h"

namespace simboard
{

namespace
{

// One key of one device.
struct Option {
    Reader &reader;
    const Json::Value &value;
    std::string path;

    void complain(const std::string &message) const
    {
        simboard::complain(reader, value, path, message);
    }
};

void read_busy(const Option &option, DeviceDescription &device)
{
    if (device.type != "at24c512") {
        option.complain("only an at24c512 is busy after a write");
    } else if (!option.value.isBool()) {
        option.complain("must be true or false");
    } else {
        device.busy_after_write = option.value.asBool();
    }
}

bool parse_hex_bytes(const Json::Value &value, std::vector<uint8_t> &bytes)
{
    if (!value.isString()) {
        return false;
    }
    std::string digits = value.asString();
    digits.erase(std::remove(digits.begin(), digits.end(), ' '), digits.end());
    if (digits.empty() || digits.size() % 2 != 0 || digits.size() > 2 * kPatternSize ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return false;
    }
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return true;
}

void read_pattern(const Option &option, const ChipKind &kind, DeviceDescription &device)
{
    if (!kind.has_pattern) {
        option.complain("a " + device.type + " has no memory that a pattern could fill");
    } else if (!parse_hex_bytes(option.value, device.pattern)) {
        option.complain("must be 1 to " + std::to_string(kPatternSize) +
                        " bytes in hexadecimal, for example \"00 7f\"");
    }
}

void read_pins(const Option &option, const ChipKind &kind, DeviceDescription &device)
{
    if (kind.pins == 0) {
        option.complain("a " + device.type + " has no pins to name");
        return;
    }
    if (!option.value.isArray() || option.value.size() > kind.pins) {
        option.complain("must be a list of at most " + std::to_string(kind.pins) + " names");
        return;
    }
    for (Json::ArrayIndex i = 0; i < option.value.size(); i++) {
        const Option pin = {option.reader, option.value[i], join(option.path, i)};
        const std::string name = pin.value.isString() ? pin.value.asString() : " ";
        if (!name.empty() && !is_device_name(name)) {
            pin.complain("must start with a letter and hold letters, digits, '-', '_' and '.', "
                         "or be empty");
        } else if (!name.empty() &&
                   std::find(device.pins.begin(), device.pins.end(), name) != device.pins.end()) {
            pin.complain("\"" + name + "\" is already the name of a pin");
        }
        device.pins.push_back(name);
    }
}

void read_stimulus(const Option &option, const std::string &key, const ChipKind &kind,
                   DeviceDescription &device)
{
    const Stimulus *const stimulus = find_stimulus(kind, key);
    if (stimulus == nullptr) {
        option.complain("a " + device.type + " has no \"" + key + "\"");
        return;
    }
    const std::optional<int64_t> number = parse_number(option.value);
    if (!number || *number < stimulus->low || *number > stimulus->high) {
        option.complain("must be a number from " + std::to_string(stimulus->low) + " to " +
                        std::to_string(stimulus->high) + ": " + stimulus->meaning);
        return;
    }
    device.surroundings[key] = *number;
}

} // namespace

std::set<std::string> device_keys()
{
    std::set<std::string> keys = stimulus_keys();
    keys.insert({"name", "type", "address", "channels", "busy_after_write", "pattern", "pins"});
    return keys;
}

void read_options(Reader &reader, const Json::Value &value, const std::string &path,
                  DeviceDescription &device)
{
    if (device.type.empty()) {
        return;
    }
    const ChipKind &kind = chip_kind(chip_type(device.type));
    static const std::set<std::string> numbers = stimulus_keys();
    for (const std::string &key : value.getMemberNames()) {
        const Option option = {reader, value[key], join(path, key)};
        if (key == "channels" && device.type != "pca9548") {
            option.complain("only a pca9548 has channels");
        } else if (key == "busy_after_write") {
            read_busy(option, device);
        } else if (key == "pattern") {
            read_pattern(option, kind, device);
        } else if (key == "pins") {
            read_pins(option, kind, device);
        } else if (numbers.count(key) != 0) {
            read_stimulus(option, key, kind, device);
        }
    }
}

} // namespace simboard
