// Board files and fault plans: any text, or one that is built of what they are made of. Each is
// accepted, then a board can be laid out by it and follow a plan, or refused in words that name a
// line of the text. Mostly a plan is for a board that is there already.
#include "simboard/build_state.h"
#include "simboard/fault_plan.h"
#include "simboard/fault_view.h"
#include "simboard/fault_words.h"
#include "tests/fuzz/input.h"

#include <cstddef>
#include <stdexcept>
#include <sys/mman.h>

namespace
{

using fuzz::broken;
using fuzz::Input;
using namespace simboard;

constexpr size_t kMostText = 600;

// A text that is made up of the words and values below, most of it in its proper place.
struct Writer {
    Input &in;
    std::string text;

    void quoted(const std::string &word) { text += "\"" + word + "\""; }
    void key(const char *name)
    {
        text += text.back() == '{' ? "" : ", ";
        quoted(name);
        text += ": ";
    }
    template <size_t Count>
    void one_of(const char *const (&words)[Count])
    {
        quoted(words[in.byte() % Count]);
    }
    // Something that is mostly wrong where it stands.
    void anything()
    {
        static constexpr const char *kValues[] = {"null",
                                                  "true",
                                                  "-1",
                                                  "4294967296",
                                                  "1e99",
                                                  "0.5",
                                                  "\"\"",
                                                  "\"\\u0000\"",
                                                  "[]",
                                                  "{}",
                                                  "\"-0x1\"",
                                                  "\"0x00000000ff\"",
                                                  "[[]]",
                                                  "{\"name\": 1}",
                                                  "9223372036854775808",
                                                  "\"\xc3\xbc\"",
                                                  "-9223372036854775809",
                                                  "\"99999999999\"",
                                                  "1.0",
                                                  "\" \""};
        text += kValues[in.byte() % std::size(kValues)];
    }
    void number(uint32_t most)
    {
        if (in.rarely())
            return anything();
        const uint32_t value = most < 0x100 ? in.byte() % (most + 1) : in.take<uint32_t>() % most;
        char digits[24];
        std::snprintf(digits, sizeof(digits), value % 2 == 0 ? "%u" : "\"0x%x\"", value);
        text += digits;
    }
    bool maybe() { return in.byte() % 4 == 3; }
    bool more() { return in.at != in.end && text.size() < kMostText && in.byte() % 8 != 7; }
};

const char *const kTypes[] = {
    "pca9548",          "registers", "at24c512",     "pca9535",    "pca9554",
    "tpa626",           "retimer",   "epld-lattice", "epld-pango", "epld-anlogic-ef2",
    "epld-anlogic-ef3", "mctp",      "epld-subcard", "registers2"};
const char *const kQuantities[] = {"inputs", "voltage_mv", "current_ma", "shunt_uohm",      "id",
                                   "eid",    "pattern",    "pins",       "busy_after_write"};
const char *const kNames[] = {"a", "b", "c", "d", "e", "f", "g.h", "1", "a b", "-"};

void write_list(Writer &to, void (*write)(Writer &))
{
    if (to.in.rarely())
        return to.anything();
    to.text += "[";
    while (to.more()) {
        to.text += to.text.back() == '[' ? "" : ", ";
        write(to);
    }
    to.text += "]";
}

void write_device(Writer &to)
{
    to.text += "{";
    if (!to.in.rarely()) {
        to.key("name");
        to.one_of(kNames);
    }
    const char *type = kTypes[to.in.byte() % std::size(kTypes)];
    to.key("type");
    to.quoted(type);
    to.key("address");
    to.number(0x7f);
    if (to.maybe()) {
        const char *quantity = kQuantities[to.in.byte() % std::size(kQuantities)];
        to.key(quantity);
        if (to.in.byte() % 4 != 0)
            to.number(40000);
        else if (to.maybe())
            write_list(to, [](Writer &pin) { pin.one_of(kNames); });
        else
            to.text += "\"00 7f\"";
    }
    if (type == kTypes[0]) {
        to.key("channels");
        to.text += "{";
        while (to.more()) {
            to.key(std::string(1, static_cast<char>('0' + to.in.byte() % 9)).c_str());
            write_list(to, write_device);
        }
        to.text += "}";
    }
    to.text += "}";
}

void write_bus(Writer &to)
{
    to.text += "{";
    to.key("bus");
    to.number(15);
    if (to.maybe()) {
        to.key("status");
        to.number(UINT32_MAX);
    }
    if (to.maybe()) {
        to.key("speed");
        to.one_of({"instant", "100k", "400k", "fast"});
    }
    to.key("devices");
    write_list(to, write_device);
    to.text += "}";
}

std::string write_board(Input &in)
{
    Writer to = {in, "{\"name\": \"x\", \"buses\": "};
    write_list(to, write_bus);
    return to.text + "}";
}

void write_step(Writer &to)
{
    static constexpr const char *kNumbers[] = {"register", "after", "times",    "probability",
                                               "byte",     "count", "messages", "seed"};
    const auto &faults = all_fault_words();
    to.text += "{";
    to.key("fault");
    to.quoted(faults[to.in.byte() % faults.size()].name);
    if (to.in.byte() % 2 == 0) {
        to.key("device");
        to.one_of(kNames);
    } else {
        to.key("bus");
        to.number(15);
    }
    while (to.maybe()) {
        switch (to.in.byte() % 8) {
        case 0:
            to.key("errno");
            to.one_of({"EIO", "ENXIO", "EOPNOTSUPP", "E"});
            break;
        case 1:
            to.key("call");
            to.one_of({"open", "I2C_RDWR", "I2C_SMBUS", "I2C_PEC", "close"});
            break;
        case 2:
            to.key("label");
            to.quoted(std::string(to.in.byte() % 40, 'l'));
            break;
        case 3:
            to.key("direction");
            to.one_of({"read", "write", "both"});
            break;
        case 4:
            to.key("address");
            to.number(0x7f);
            break;
        default:
            to.key(kNumbers[to.in.byte() % std::size(kNumbers)]);
            to.number(to.maybe() ? UINT32_MAX : 255);
        }
    }
    to.text += "}";
}

std::string write_plan(Input &in)
{
    Writer to = {in, "{\"seed\": 1, \"steps\": "};
    write_list(to, write_step);
    return to.text + "}";
}

void check_errors(const std::string &text, const std::vector<DescriptionError> &errors)
{
    // A lone carriage return ends a line for the JSON parser.
    const auto ends =
        std::count_if(text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; });
    const auto lines = static_cast<unsigned>(ends) + 1;
    for (const DescriptionError &error : errors) {
        if (error.message.empty() || to_string("file", error).size() < 8)
            broken("a refusal without words");
        if (error.line > lines)
            broken("a refusal of a line that is not there");
    }
}

// Memory for any board, all zeros when it is new.
State &new_memory()
{
    void *const memory =
        mmap(nullptr, sizeof(State) + kChips * (size_t{1} << 17), PROT_READ | PROT_WRITE,
             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    return *static_cast<State *>(memory);
}

void follow_plan(const BoardView &view, const std::string &text, const BoardDescription &board)
{
    std::vector<DescriptionError> errors;
    const std::vector<PlannedFault> plan = parse_fault_plan(text, board, 0, errors);
    check_errors(text, errors);
    if (!errors.empty())
        return;
    try {
        add_faults(view, plan);
    } catch (const std::runtime_error &error) { // no room
        if (*error.what() == '\0')
            broken("a refusal without words");
        return;
    }
    const std::vector<FaultRecord> faults = read_faults(view);
    if (faults.size() != plan.size())
        broken("steps of a plan are lost");
    for (const FaultRecord &fault : faults)
        if (fault.target.empty() || fault.text.empty())
            broken("a step that cannot be told");
    clear_faults(view);
}

State &lay_out_board(State &state, const BoardDescription &board)
{
    const uint64_t size = state_size(board);
    std::memset(static_cast<void *>(&state), 0, offsetof(State, processes));
    std::memset(static_cast<void *>(&state + 1), 0, size - sizeof(State));
    if (build_state(state, board, nullptr) != 0)
        broken("a board that is accepted cannot be laid out");
    if (state.header.chip_count != board.devices.size())
        broken("devices are lost");
    for (uint32_t i = 0; i < state.header.chip_count; i++) {
        const Chip &chip = state.chips[i];
        if (chip.name != board.devices[i].name || chip.memory_offset < sizeof(State) ||
            chip.memory_offset + chip.memory_size > size)
            broken("a device is not as described");
    }
    return state;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const BoardDescription known = {"board",
                                           {0, 3, 15},
                                           {0, 0, 0},
                                           {{}, {}, {}},
                                           {{"a", "pca9548", 0, 0x70},
                                            {"b", "at24c512", 3, 0x50},
                                            {"c", "registers", 0, 0x44, 0, 5},
                                            {"d", "mctp", 15, 0x20}}};
    static State &laid_out = lay_out_board(new_memory(), known);
    static State &memory = new_memory();
    Input in = {data, data + size};
    const uint8_t kind = in.byte();
    const bool as_written = kind < 0x80;
    const std::string rest(in.at, in.end);
    if (kind % 2 == 0) {
        follow_plan({&laid_out, ""}, as_written ? rest : write_plan(in), known);
        return 0;
    }
    const size_t end = std::min(rest.find('\0'), rest.size()); // a plan follows a NUL
    const std::string text = as_written ? rest.substr(0, end) : write_board(in);
    std::vector<DescriptionError> errors;
    const BoardDescription board = parse_board_description(text, errors);
    check_errors(text, errors);
    if (!errors.empty())
        return 0;
    State &state = lay_out_board(memory, board);
    if (as_written ? end < rest.size() : in.at != in.end)
        follow_plan({&state, ""}, as_written ? rest.substr(end + 1) : write_plan(in), board);
    return 0;
}
