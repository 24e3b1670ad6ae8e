// qeli2c-sim inject: faults for a board, while programs run.
#include "chosen_board.h"
#include "faults.h"
#include "json_output.h"
#include "simboard/fault_words.h"

#include <cstdio>
#include <cstring>
#include <memory>

namespace runner
{

namespace
{

struct Option {
    const char *name; // "--" and the plan's key
    const char *type;
    const char *help;
};

constexpr Option kOptions[] = {
    {"--device", "DEVICE", "What it strikes: a device,"},
    {"--bus", "N", "or a bus"},
    {"--address", "A", "on that bus, only this address"},
    {"--direction", "DIR", "Only messages of this direction: read or write"},
    {"--register", "R", "Only messages about this register"},
    {"--after", "N", "Lets so many by first"},
    {"--times", "N", "Strikes so often at most, else forever"},
    {"--probability", "P", "Strikes with this probability, at most 1"},
    {"--byte", "N", "data-nack: that byte is refused, else 1, the first"},
    {"--count", "N", "wrong-count: the count that comes, else 33"},
    {"--messages", "N", "short-transfer: messages done, else all but one"},
    {"--errno", "NAME", "bus-error, call-fails: the error, else EIO"},
    {"--call", "CALL", "call-fails: open, I2C_SMBUS, I2C_RDWR, ..."},
    {"--label", "TEXT", "A name for the step in reports"},
};

struct Arguments {
    std::string board;
    std::string fault;
    std::string values[std::size(kOptions)];
    std::optional<uint64_t> seed;
    std::string plan;
    bool list = false;
    bool clear = false;
    bool json = false;
};

// The fault of the command line; empty when it names none. Every mistake in it is told.
std::optional<std::vector<simboard::PlannedFault>>
read_fault(const Arguments &arguments, const simboard::BoardDescription &board, uint64_t seed)
{
    std::vector<std::pair<std::string, std::string>> members;
    for (size_t i = 0; i < std::size(kOptions); i++) {
        if (!arguments.values[i].empty()) {
            members.emplace_back(kOptions[i].name + std::strlen("--"), arguments.values[i]);
        }
    }
    if (arguments.fault.empty()) {
        if (!members.empty()) {
            throw UsageError("--" + members[0].first + " needs a FAULT to go with");
        }
        return std::vector<simboard::PlannedFault>();
    }
    members.emplace_back("fault", arguments.fault);
    std::vector<simboard::DescriptionError> errors;
    const simboard::PlannedFault fault = simboard::make_fault(members, board, seed, errors);
    for (const simboard::DescriptionError &error : errors) {
        if (error.key == "fault") { // says itself where to look
            std::fprintf(stderr, "qeli2c-sim: %s: %s\n", arguments.fault.c_str(),
                         error.message.c_str());
        } else {
            usage_failure("--" + error.key + ": " + error.message);
        }
    }
    if (!errors.empty()) {
        return std::nullopt;
    }
    return std::vector<simboard::PlannedFault>{fault};
}

int inject(const Arguments &arguments)
{
    const bool adds = !arguments.fault.empty() || !arguments.plan.empty();
    const bool lists = arguments.list || arguments.json;
    ChosenBoard board(arguments.board);
    simboard::BoardView &view = board.view();
    const uint32_t given = parse_seed(arguments.seed);
    const uint64_t seed = given != 0 ? given : view.state->header.seed;
    const simboard::BoardDescription description = board.description();
    auto faults = read_fault(arguments, description, seed);
    if (!faults) {
        return kUsage;
    }
    if (!adds && !lists && !arguments.clear) {
        throw UsageError("what to inject? A FAULT, --plan, --list or --clear");
    }
    if (!arguments.plan.empty()) {
        const auto planned = read_fault_plan(arguments.plan, description, seed);
        faults->insert(faults->begin(), planned.begin(), planned.end());
    }
    if (arguments.clear) {
        simboard::clear_faults(view);
    }
    simboard::add_faults(view, *faults);
    if (!lists) {
        return kDone;
    }
    const auto there = simboard::read_faults(view);
    if (arguments.json) {
        print_json(faults_to_json(there));
    } else {
        print_faults(there);
    }
    return kDone;
}

std::string tell_faults()
{
    std::string text = "Faults:\n";
    for (const simboard::FaultWords &words : simboard::all_fault_words()) {
        char line[kWidth];
        std::snprintf(line, sizeof(line), "  %-17s%s\n", words.name, words.meaning);
        text += line;
    }
    return text +
           "They strike until --clear, unless --times says otherwise. Transfers that --after\n"
           "lets by, and that --times counts, are those the step is meant for.";
}

} // namespace

void add_inject(CLI::App &app, Runner &runner)
{
    const auto arguments = std::make_shared<Arguments>();
    CLI::App &command =
        add_command(app, runner, "inject", "Let faults strike the transfers and calls of programs",
                    tell_faults().c_str(), [arguments] { return inject(*arguments); });
    add_board_option(command, arguments->board);
    add_optional_argument(command, "FAULT", arguments->fault, "One of those below");
    for (size_t i = 0; i < std::size(kOptions); i++) {
        add_option(command, kOptions[i].name, arguments->values[i], kOptions[i].type,
                   kOptions[i].help);
    }
    add_number(command, "--seed", arguments->seed, "N", "Seed of its probability, or of the plan");
    add_option(command, "--plan", arguments->plan, "FILE", "Adds the steps of a fault plan");
    add_flag(command, "--clear", arguments->clear, "Takes away all steps, before adding any");
    add_flag(command, "--list", arguments->list, "Prints the steps and how often each struck");
    add_flag(command, "--json", arguments->json, "Prints that as JSON");
}

} // namespace runner
