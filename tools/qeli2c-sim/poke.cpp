// qeli2c-sim poke: changes what a device holds or senses, while programs run.
#include "subject.h"
#include "tools/qeli2c/number.h"

#include <charconv>
#include <memory>

namespace runner
{

namespace
{

struct Arguments {
    std::string board;
    std::string subject;
    std::vector<std::string> values; // VALUE, or OFFSET and bytes
};

int64_t parse_value(const std::string &text)
{
    const bool negative = text.size() > 1 && text[0] == '-';
    const int64_t magnitude =
        tool::number_in(text.substr(negative ? 1 : 0), 0, UINT32_MAX, "value");
    return negative ? -magnitude : magnitude;
}

void poke_registers(ChosenBoard &board, simboard::Chip &chip, const std::vector<std::string> &words)
{
    if (words.size() < 2) {
        throw UsageError("registers are poked with an offset and bytes");
    }
    const uint32_t offset = parse_offset(chip, words[0]);
    std::vector<uint8_t> bytes;
    for (size_t i = 1; i < words.size(); i++) {
        bytes.push_back(static_cast<uint8_t>(tool::number_in(words[i], 0, 0xff, "byte")));
    }
    if (bytes.size() > count_registers(chip) - offset) {
        throw UsageError(std::string(chip.name) + " has " + std::to_string(count_registers(chip)) +
                         " bytes, and these go beyond them");
    }
    simboard::poke(board.view(), chip, offset, bytes);
}

int poke_at(const Arguments &arguments)
{
    ChosenBoard board(arguments.board);
    const Subject subject = find_subject(board, arguments.subject);
    if (subject.quantity.empty()) {
        poke_registers(board, *subject.chip, arguments.values);
    } else if (arguments.values.size() != 1) {
        throw UsageError(arguments.subject + " takes one value");
    } else {
        write_quantity(board, subject, parse_value(arguments.values[0]));
    }
    return kDone;
}

} // namespace

void add_poke(CLI::App &app, Runner &runner)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App &poke = add_command(
        app, runner, "poke", "Change what a device holds or senses, while programs run",
        "poke EEPROM 0x100 1 2 3           three bytes from 0x100 on\n"
        "poke MONITOR.voltage_mv 11400     the voltage at a power monitor\n"
        "poke EXPANDER.power-button 0      the level at a pin, by its number or its name\n"
        "Programs find the change with their next transfer; the bus has no traffic.",
        [arguments] { return poke_at(*arguments); });
    add_board_option(poke, arguments->board);
    add_argument(poke, "DEVICE[.QUANTITY]", arguments->subject, "What to change");
    add_arguments(poke, "[OFFSET] VALUE...", arguments->values,
                  "Its new value; of registers, an offset and bytes", 1);
}

} // namespace runner
