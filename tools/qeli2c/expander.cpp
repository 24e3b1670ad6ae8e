// The registers of GPIO expanders (NXP PCA9535 and PCA9554 data sheets): input, output, polarity
// inversion and configuration, each with a bit for each pin.
#include "expander.h"

#include "failure.h"
#include "hold.h"
#include "number.h"

#include <algorithm>
#include <cerrno>

namespace tool
{

namespace
{

enum Register : uint32_t { INPUT, OUTPUT, POLARITY, CONFIGURATION };

// The PCA9535 has a pair of each, a byte for each port of eight pins.
uint32_t width_of(const Expander &expander)
{
    return expander.pins / 8;
}

int32_t read_register(const Hold &hold, const Expander &expander, Register number, uint32_t &value)
{
    const uint32_t width = width_of(expander);
    std::vector<Message> messages = {{false, {static_cast<uint8_t>(number * width)}},
                                     {true, std::vector<uint8_t>(width)}};
    const int32_t result = transfer_held(hold, expander.target.path.address, messages);
    if (result >= 0) {
        value = messages[1].bytes[0];
        if (width == 2)
            value |= static_cast<uint32_t>(messages[1].bytes[1]) << 8;
    }
    return result;
}

int32_t change_register(const Hold &hold, const Expander &expander, Register number, uint32_t mask,
                        uint32_t wanted)
{
    uint32_t value = 0;
    const int32_t result = read_register(hold, expander, number, value);
    if (result < 0 || mask == 0)
        return result;
    value = (value & ~mask) | (wanted & mask);
    std::vector<Message> messages(1);
    messages[0].bytes = {static_cast<uint8_t>(number * width_of(expander)),
                         static_cast<uint8_t>(value)};
    if (width_of(expander) == 2)
        messages[0].bytes.push_back(static_cast<uint8_t>(value >> 8));
    return transfer_held(hold, expander.target.path.address, messages);
}

void end_hold(Hold &hold, const Expander &expander, const char *doing, int32_t result)
{
    const int error = errno;
    hold.release(); // finding out what is missing takes the bus again
    if (result < 0)
        fail_transfer(expander.target, doing, result, error);
}

} // namespace

Expander find_expander(const Board &board, const std::string &device, const std::string &type)
{
    Expander expander;
    expander.target = resolve(board, device);
    const std::string kind = type.empty() ? expander.target.type : type;
    if (kind != "pca9535" && kind != "pca9554")
        throw usage_error(to_string(expander.target) +
                          (kind.empty() ? " is not in the board file: say --type pca9535 or pca9554"
                                        : " is no GPIO expander but of type " + kind));
    expander.pins = kind == "pca9535" ? 16 : 8;
    if (const simboard::DeviceDescription *known = device_at(board, expander.target.path))
        expander.names = known->pins;
    return expander;
}

uint32_t pin_number(const Expander &expander, const std::string &text)
{
    const auto found = std::find(expander.names.begin(), expander.names.end(), text);
    if (!text.empty() && found != expander.names.end())
        return static_cast<uint32_t>(found - expander.names.begin());
    if (!parse_number(text))
        throw usage_error("no pin '" + text + "' on " + to_string(expander.target) +
                          "; 'qeli2c gpio get' without pins shows those there are");
    return number_in(text, 0, expander.pins - 1, "pin");
}

std::string pin_name(const Expander &expander, uint32_t pin)
{
    const bool named = pin < expander.names.size() && !expander.names[pin].empty();
    return named ? expander.names[pin] : std::to_string(pin);
}

PinRegisters read_pins(const Expander &expander)
{
    PinRegisters registers;
    uint32_t *const values[] = {&registers.levels, &registers.outputs, &registers.inverted,
                                &registers.inputs};
    Hold hold(expander.target, "cannot read");
    int32_t result = 0;
    for (uint32_t number = INPUT; number <= CONFIGURATION && result >= 0; number++)
        result = read_register(hold, expander, static_cast<Register>(number), *values[number]);
    end_hold(hold, expander, "cannot read", result);
    return registers;
}

void change_pins(const Expander &expander, const PinChange &change)
{
    Hold hold(expander.target, "cannot write");
    int32_t result = change_register(hold, expander, OUTPUT, change.output_mask, change.outputs);
    if (result >= 0)
        result = change_register(hold, expander, CONFIGURATION, change.input_mask, change.inputs);
    end_hold(hold, expander, "cannot write", result);
}

} // namespace tool
