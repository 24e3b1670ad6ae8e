// qeli2c-sim report: what the board has counted.
#include "chosen_board.h"
#include "faults.h"
#include "json_output.h"
#include "report_locks.h"

#include <cstdio>
#include <memory>

namespace runner
{

namespace
{

using simboard::Counters;
using simboard::ProcessCounters;

struct Field {
    const char *key;     // in JSON
    const char *heading; // in the table, null when it is told in words
    int width;
    uint64_t Counters::*count;
};

constexpr Field kFields[] = {
    {"transfers", "transfers", 10, &Counters::transfers},
    {"messages", "messages", 9, &Counters::messages},
    {"bytes", "bytes", 11, &Counters::bytes},
    {"failed", "failed", 8, &Counters::failed},
    {"address_nacks", "addr NACK", 10, &Counters::address_nacks},
    {"data_nacks", "data NACK", 10, &Counters::data_nacks},
    {"orphaned_paths", nullptr, 0, &Counters::orphaned_paths},
    {"conflicts", nullptr, 0, &Counters::conflicts},
    {"foreign_transfers", nullptr, 0, &Counters::foreign_transfers},
    {"paths_left_open", nullptr, 0, &Counters::paths_left_open},
    {"two_channels", nullptr, 0, &Counters::two_channels},
    {"unbalanced_unlocks", nullptr, 0, &Counters::unbalanced_unlocks},
    {"longest_hold_ns", nullptr, 0, &Counters::longest_hold_ns},
    {"longest_wait_ns", nullptr, 0, &Counters::longest_wait_ns},
};

struct Findings {
    std::vector<ProcessCounters> processes;
    Counters by_bus[simboard::kBuses] = {};
    Counters totals = {};
    uint64_t undone = 0; // transfers of processes killed in the middle of them
    std::vector<simboard::FaultRecord> faults;
};

std::string list_wrongs(const Findings &findings, const std::string &prefix)
{
    return simboard::describe_wrongs(findings.totals, prefix) +
           simboard::describe_unfired(findings.faults, prefix);
}

Findings collect(const simboard::BoardView &view)
{
    Findings findings;
    findings.processes = simboard::read_counters(view);
    for (uint32_t bus = 0; bus < simboard::kBuses; bus++) {
        for (const ProcessCounters &process : findings.processes) {
            simboard::add_counters(findings.by_bus[bus], process.by_bus[bus]);
        }
        simboard::add_counters(findings.totals, findings.by_bus[bus]);
        findings.undone += view.state->buses[bus].recoveries.load();
    }
    findings.faults = simboard::read_faults(view);
    return findings;
}

Counters sum_of(const ProcessCounters &process)
{
    Counters sum = {};
    for (const Counters &counters : process.by_bus) {
        simboard::add_counters(sum, counters);
    }
    return sum;
}

void print_row(const std::string &label, const Counters &counters)
{
    std::printf("%-21.21s", label.c_str());
    for (const Field &field : kFields) {
        if (field.heading != nullptr) {
            std::printf(" %*llu", field.width - 1,
                        static_cast<unsigned long long>(counters.*field.count));
        }
    }
    std::printf("\n");
}

void print_heading(const char *label)
{
    std::printf("%-21s", label);
    for (const Field &field : kFields) {
        if (field.heading != nullptr) {
            std::printf("%*s", field.width, field.heading);
        }
    }
    std::printf("\n");
}

void print_text(const simboard::BoardView &view, const Findings &findings)
{
    std::printf("board %s (%s)\n\n", view.state->header.name, view.directory.c_str());
    print_heading("bus");
    for (uint32_t bus = 0; bus < simboard::kBuses; bus++) {
        if (findings.by_bus[bus].transfers > 0) {
            print_row(std::to_string(bus), findings.by_bus[bus]);
        }
    }
    print_row("all", findings.totals);
    std::printf("\n");
    print_heading("process");
    for (const ProcessCounters &process : findings.processes) {
        print_row(process_label(process), sum_of(process));
    }
    print_locks(findings.processes);
    if (findings.totals.orphaned_paths > 0) {
        std::printf("\npaths found open whose task had died: %llu\n",
                    static_cast<unsigned long long>(findings.totals.orphaned_paths));
    }
    if (findings.undone > 0) {
        std::printf("\n%llu transfers undone because their process died in the middle\n",
                    static_cast<unsigned long long>(findings.undone));
    }
    if (!findings.faults.empty()) {
        std::printf("\n");
        print_faults(findings.faults);
    }
    const std::string wrongs = list_wrongs(findings, "WRONG: ");
    std::printf("\n%s", wrongs.empty() ? "nothing wrong was seen\n" : wrongs.c_str());
}

Json::Value to_json(const Counters &counters)
{
    Json::Value value(Json::objectValue);
    for (const Field &field : kFields) {
        value[field.key] = Json::UInt64(counters.*field.count);
    }
    return value;
}

// What the process did on each bus that it used.
Json::Value buses_of(const ProcessCounters &process)
{
    Json::Value buses(Json::arrayValue);
    for (uint32_t bus = 0; bus < simboard::kBuses; bus++) {
        const Counters &counters = process.by_bus[bus];
        if (counters.transfers > 0 || counters.longest_wait_ns > 0) {
            Json::Value entry = to_json(counters);
            entry["bus"] = bus;
            buses.append(entry);
        }
    }
    return buses;
}

void print_findings(const simboard::BoardView &view, const Findings &findings, bool good)
{
    Json::Value root(Json::objectValue);
    root["board"] = view.state->header.name;
    root["directory"] = view.directory;
    root["good"] = good;
    root["undone"] = Json::UInt64(findings.undone);
    root["totals"] = to_json(findings.totals);
    root["faults"] = faults_to_json(findings.faults);
    root["buses"] = Json::Value(Json::arrayValue);
    root["processes"] = Json::Value(Json::arrayValue);
    for (uint32_t bus = 0; bus < simboard::kBuses; bus++) {
        if (view.state->buses[bus].described != 0) {
            Json::Value entry = to_json(findings.by_bus[bus]);
            entry["bus"] = bus;
            root["buses"].append(entry);
        }
    }
    for (const ProcessCounters &process : findings.processes) {
        Json::Value entry = to_json(sum_of(process));
        entry["pid"] = process.pid;
        entry["name"] = process.name;
        entry["buses"] = buses_of(process);
        root["processes"].append(entry);
    }
    print_json(root);
}

int report_board(const std::string &name, bool json)
{
    ChosenBoard board(name);
    const Findings findings = collect(board.view());
    const bool good = list_wrongs(findings, "").empty();
    if (json) {
        print_findings(board.view(), findings, good);
    } else {
        print_text(board.view(), findings);
    }
    return good ? kDone : kFailed;
}

} // namespace

void add_report(CLI::App &app, Runner &runner)
{
    struct Arguments {
        std::string name;
        bool json = false;
    };
    const auto arguments = std::make_shared<Arguments>();
    CLI::App &report =
        add_command(app, runner, "report", "Print what was counted and what the judge has found",
                    "Exit status 1 when something went wrong on the board.",
                    [arguments] { return report_board(arguments->name, arguments->json); });
    add_board_argument(report, arguments->name);
    add_flag(report, "--json", arguments->json, "Print it as JSON");
}

} // namespace runner
