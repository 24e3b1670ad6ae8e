// qeli2c-sim trace: every transfer on a board.
#include "chosen_board.h"
#include "color.h"
#include "simboard/clock.h"
#include "tools/qeli2c/number.h"
#include "trace_session.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace runner
{

namespace
{

struct TraceArguments {
    std::string board;
    TraceChoice choice;
    bool json = false;
    std::string vcd;
    std::string color;
    bool follow = false;
    std::vector<std::string> buses;
    std::string address;
    std::string device;
    std::string pid;
    bool failed = false;
    std::string since;
    std::optional<uint64_t> last;
};

std::atomic<bool> interrupted{false};
simboard::State *followed = nullptr;

void interrupt(int)
{
    const int saved = errno;
    interrupted = true;
    simboard::call_followers(*followed);
    errno = saved;
}

void watch_signals(simboard::State &state)
{
    followed = &state;
    struct sigaction action = {};
    action.sa_handler = interrupt;
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND); // the second time it is final
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(number, &action, nullptr);
    }
}

uint64_t since_in(const std::string &text, const simboard::State &state)
{
    char *end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(seconds >= 0 && seconds < 1e9)) {
        throw UsageError("--since: '" + text + "' is no number of seconds");
    }
    return state.header.created_ns + static_cast<uint64_t>(seconds * 1e9);
}

TraceFilter filter_of(const TraceArguments &arguments, const simboard::BoardView &view)
{
    const simboard::State &state = *view.state;
    TraceFilter filter;
    for (const std::string &text : arguments.buses) {
        const uint32_t bus = tool::number_in(text, 0, simboard::kBuses - 1, "--bus");
        if (state.buses[bus].described == 0) {
            throw std::runtime_error("the board has no bus " + std::to_string(bus));
        }
        filter.buses.push_back(bus);
    }
    if (filter.buses.empty()) {
        filter.buses = described_buses(state);
    }
    if (!arguments.address.empty()) {
        filter.address =
            static_cast<uint16_t>(tool::number_in(arguments.address, 0, 0x3ff, "--address"));
    }
    if (!arguments.device.empty()) {
        filter.chip = &simboard::find_chip(view, arguments.device);
    }
    if (!arguments.pid.empty()) {
        filter.pid = static_cast<int32_t>(tool::number_in(arguments.pid, 0, INT32_MAX, "--pid"));
    }
    if (!arguments.since.empty()) {
        filter.since_ns = since_in(arguments.since, state);
    }
    filter.failed = arguments.failed;
    return filter;
}

int trace_board(TraceArguments arguments)
{
    TraceChoice &choice = arguments.choice;
    if (!arguments.vcd.empty()) {
        if (arguments.json || !choice.file.empty()) {
            throw UsageError("--vcd goes neither with --json nor with --output");
        }
        choice.format = TraceFormat::vcd;
        choice.file = arguments.vcd == "-" ? "" : arguments.vcd;
    } else if (arguments.json) {
        choice.format = TraceFormat::json;
    }
    choice.color =
        wants_color(arguments.color) && (choice.file.empty() || arguments.color == "always");
    ChosenBoard board(arguments.board);
    TraceSession session(board.view(), choice, filter_of(arguments, board.view()));
    if (arguments.follow) {
        watch_signals(*board.view().state);
        session.await();
    }
    if (arguments.last || !arguments.follow) {
        session.copy(arguments.last);
    }
    if (arguments.follow) {
        session.follow(interrupted);
    }
    session.finish();
    return kDone;
}

} // namespace

void add_trace(CLI::App &app, Runner &runner)
{
    const auto arguments = std::make_shared<TraceArguments>();
    CLI::App &trace = add_command(
        app, runner, "trace", "Print every transfer on a board, live or afterwards",
        "Formats and fields: docs/trace.md. With --follow, Ctrl-C ends it with status 0,\n"
        "as does the end of the board.",
        [arguments] { return trace_board(*arguments); });
    add_board_argument(trace, arguments->board);
    add_flag(trace, "-f,--follow", arguments->follow, "Go on with the transfers that come");
    add_flag(trace, "--json", arguments->json, "Print JSON, one document a line");
    add_option(trace, "--vcd", arguments->vcd, "FILE",
               "SCL and SDA of every bus as a VCD; - for stdout");
    add_option(trace, "-o,--output", arguments->choice.file, "FILE",
               "Write there instead of to standard output");
    add_options(trace, "--bus", arguments->buses, "N", "Only this bus; may be given again");
    add_option(trace, "--address", arguments->address, "ADDRESS",
               "Only transfers with a message to this address");
    add_option(trace, "--device", arguments->device, "DEVICE",
               "Only transfers to this device of the board file");
    add_option(trace, "--pid", arguments->pid, "PID", "Only transfers of this process");
    add_flag(trace, "--failed", arguments->failed, "Only transfers that failed");
    add_option(trace, "--since", arguments->since, "SECONDS",
               "Only from this time of the board on");
    add_number(trace, "--last", arguments->last, "N", "Of those that are there, only the last N");
    add_trace_style(trace, arguments->choice);
    add_color_option(trace, arguments->color);
}

} // namespace runner
