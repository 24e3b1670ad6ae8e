// qeli2c gpio: the pins of GPIO expanders.
#include "command_line.h"
#include "expander.h"
#include "failure.h"
#include "interrupt.h"
#include "number.h"
#include "output.h"
#include "tool.h"

#include <chrono>
#include <cstdio>
#include <iomanip>
#include <iostream>

namespace tool
{

namespace
{

struct GpioArguments {
    std::string device, type;
    std::vector<std::string> pins;
    std::string interval = "100", count; // of watch
};

struct Pins {
    std::vector<uint32_t> numbers; // in the order they were asked for
    uint32_t mask = 0, levels = 0; // levels: where they were given
};

Expander expander_of(const GpioArguments &arguments, const Options &options)
{
    return find_expander(load_board(options.board_file), arguments.device, arguments.type);
}

void add_pin(Pins &pins, const Expander &expander, const std::string &text)
{
    const uint32_t pin = pin_number(expander, text);
    if (pins.mask >> pin & 1)
        throw usage_error("pin '" + text + "' is named twice");
    pins.numbers.push_back(pin);
    pins.mask |= 1U << pin;
}

// Without any, all of them.
Pins parse_pins(const Expander &expander, const std::vector<std::string> &words)
{
    Pins pins;
    for (const std::string &word : words)
        add_pin(pins, expander, word);
    if (words.empty())
        for (uint32_t pin = 0; pin < expander.pins; pin++)
            add_pin(pins, expander, std::to_string(pin));
    return pins;
}

Pins parse_levels(const Expander &expander, const std::vector<std::string> &words)
{
    Pins pins;
    for (const std::string &word : words) {
        const size_t equals = word.rfind('=');
        if (equals == std::string::npos)
            throw usage_error("'" + word + "' gives no level: write PIN=0 or PIN=1");
        add_pin(pins, expander, word.substr(0, equals));
        pins.levels |= number_in(word.substr(equals + 1), 0, 1, "level") << pins.numbers.back();
    }
    return pins;
}

bool level_of(const PinRegisters &registers, uint32_t pin)
{
    return registers.levels >> pin & 1;
}

void print_pins_json(const Expander &expander, const PinRegisters &registers, const Pins &pins)
{
    Json::Value json = json_of(expander.target);
    json["pins"] = Json::Value(Json::arrayValue);
    for (const uint32_t pin : pins.numbers) {
        Json::Value entry;
        entry["pin"] = pin;
        if (pin_name(expander, pin) != std::to_string(pin))
            entry["name"] = pin_name(expander, pin);
        entry["direction"] = registers.inputs >> pin & 1 ? "input" : "output";
        entry["level"] = static_cast<int>(level_of(registers, pin));
        entry["output"] = static_cast<int>(registers.outputs >> pin & 1);
        entry["inverted"] = (registers.inverted >> pin & 1) != 0;
        json["pins"].append(entry);
    }
    print_json(json);
}

void print_pin_table(const Expander &expander, const PinRegisters &registers)
{
    for (uint32_t pin = 0; pin < expander.pins; pin++) {
        const std::string name = pin_name(expander, pin);
        std::cout << std::right << std::setw(2) << pin << "  " << std::left << std::setw(20)
                  << (name == std::to_string(pin) ? "-" : name) << "  " << std::setw(6)
                  << (registers.inputs >> pin & 1 ? "input" : "output") << "  "
                  << level_of(registers, pin) << (registers.inverted >> pin & 1 ? "  inverted" : "")
                  << "\n";
    }
}

void get(const GpioArguments &arguments, const Options &options)
{
    const Expander expander = expander_of(arguments, options);
    const Pins pins = parse_pins(expander, arguments.pins);
    defer_interrupts();
    const PinRegisters registers = read_pins(expander);
    if (options.json)
        print_pins_json(expander, registers, pins);
    else if (arguments.pins.empty())
        print_pin_table(expander, registers);
    else if (pins.numbers.size() == 1)
        std::cout << level_of(registers, pins.numbers[0]) << "\n";
    else
        for (const uint32_t pin : pins.numbers)
            std::cout << pin_name(expander, pin) << "=" << level_of(registers, pin) << "\n";
}

enum class Do { set, input, output };

template <Do What>
void change(const GpioArguments &arguments, const Options &options)
{
    const Expander expander = expander_of(arguments, options);
    const Pins pins = What == Do::input ? parse_pins(expander, arguments.pins)
                                        : parse_levels(expander, arguments.pins);
    PinChange change;
    if (What != Do::input)
        change.output_mask = pins.mask;
    if (What != Do::set)
        change.input_mask = pins.mask;
    change.outputs = pins.levels;
    change.inputs = What == Do::input ? pins.mask : 0;
    defer_interrupts();
    change_pins(expander, change);
    if (options.json)
        print_pins_json(expander, read_pins(expander), pins);
}

void print_event(const Expander &expander, uint32_t pin, bool level, double seconds, bool as_json)
{
    if (as_json) {
        Json::Value event;
        event["pin"] = pin;
        if (pin_name(expander, pin) != std::to_string(pin))
            event["name"] = pin_name(expander, pin);
        event["level"] = static_cast<int>(level);
        event["seconds"] = seconds;
        print_json_line(event);
    } else {
        std::printf("%10.3f  %-20s  %s\n", seconds, pin_name(expander, pin).c_str(),
                    level ? "0 -> 1" : "1 -> 0");
        flush_results();
    }
}

void watch(const GpioArguments &arguments, const Options &options)
{
    using Clock = std::chrono::steady_clock;
    const Expander expander = expander_of(arguments, options);
    const Pins pins = parse_pins(expander, arguments.pins);
    const std::chrono::milliseconds interval(
        number_in(arguments.interval, 1, 3600000, "--interval"));
    uint32_t left =
        arguments.count.empty() ? UINT32_MAX : number_in(arguments.count, 1, UINT32_MAX, "--count");
    defer_interrupts();
    const Clock::time_point start = Clock::now();
    PinRegisters before = read_pins(expander);
    if (!options.quiet)
        tell("watching " + to_string(expander.target) + ", Ctrl-C ends");
    while (left > 0 && pause_unless_interrupted(interval)) {
        const PinRegisters now = read_pins(expander);
        const std::chrono::duration<double> seconds = Clock::now() - start;
        for (const uint32_t pin : pins.numbers) {
            if (left == 0 || level_of(now, pin) == level_of(before, pin))
                continue;
            print_event(expander, pin, level_of(now, pin), seconds.count(), options.json);
            left -= arguments.count.empty() ? 0U : 1U;
        }
        before = now;
    }
}

void add(CLI::App &group, Tool &tool, const char *name, const char *description, const char *footer,
         const char *pins, const char *about_pins, Number number,
         void (*run)(const GpioArguments &, const Options &))
{
    const auto [command, arguments] = add_command(group, tool, name, description, footer, run);
    add_device(command, arguments.device);
    add_arguments(command, pins, arguments.pins, about_pins, number);
    add_option(command, "--type", arguments.type, "TYPE",
               "pca9535 or pca9554, unless the board file says", {"pca9535", "pca9554"});
    if (run != watch)
        return;
    add_option(command, "--interval", arguments.interval, "MS",
               "Milliseconds between two looks, else 100");
    add_option(command, "--count", arguments.count, "N", "End after so many changes");
}

} // namespace

void add_gpio(CLI::App &app, Tool &tool)
{
    CLI::App &group = add_group(app, "gpio", "Pins of GPIO expanders",
                                "Pins are given by number or by their name in the board file.\n"
                                "Changes read a register and write it back while the bus is held,\n"
                                "so that two at once do not undo each other.");
    add(group, tool, "get", "Show levels; of all pins, with directions, if none", "", "PIN...",
        "Pins, by number or name", Number::any, get);
    add(group, tool, "set", "Set the levels outputs drive; directions stay", "", "PIN=LEVEL...",
        "Pins and their levels, 0 or 1", Number::at_least_one, change<Do::set>);
    add(group, tool, "input", "Make pins inputs", "", "PIN...", "Pins, by number or name",
        Number::at_least_one, change<Do::input>);
    add(group, tool, "output", "Make pins outputs that drive these levels",
        "The level is set first: a pin never drives what it was not told.", "PIN=LEVEL...",
        "Pins and their levels, 0 or 1", Number::at_least_one, change<Do::output>);
    add(group, tool, "watch", "Show changes of levels as they come",
        "Each line is a change: seconds since the start, pin, levels. With --json\n"
        "each is an object on a line of its own.",
        "PIN...", "Pins, by number or name", Number::any, watch);
}

} // namespace tool
