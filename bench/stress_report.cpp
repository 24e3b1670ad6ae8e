// The load program's report, as text and as JSON.
#include "stress.h"

#include "tools/qeli2c/number.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <json/value.h>
#include <json/writer.h>
#include <memory>

namespace bench
{

namespace
{

struct Process {
    uint64_t transfers = 0;
    double share = 0;     // percent of all transfers
    double deviation = 0; // percent of the mean share
    bool dead = false;
};

struct Totals {
    uint64_t transfers = 0, errors = 0, wrong_bytes = 0;
    std::vector<Process> processes;
    std::unique_ptr<Histogram> waits = std::make_unique<Histogram>();
    double largest_deviation = 0;
};

Totals add_up(const Plan &plan, const Shared &shared, const Outcome &outcome)
{
    Totals totals;
    totals.processes.resize(plan.processes);
    for (uint32_t worker = 0; worker < plan.processes * plan.threads; worker++) {
        const Worker &result = shared.workers[worker];
        totals.transfers += result.transfers;
        totals.errors += result.errors;
        totals.wrong_bytes += result.wrong_bytes;
        totals.processes[worker / plan.threads].transfers += result.transfers;
        add(*totals.waits, result.waits);
    }
    const double mean = static_cast<double>(totals.transfers) / plan.processes;
    for (Process &process : totals.processes) {
        if (totals.transfers == 0)
            break;
        process.share =
            100.0 * static_cast<double>(process.transfers) / static_cast<double>(totals.transfers);
        process.deviation = 100.0 * (static_cast<double>(process.transfers) - mean) / mean;
        totals.largest_deviation = std::max(totals.largest_deviation, std::fabs(process.deviation));
    }
    for (const uint32_t dead : outcome.dead)
        totals.processes[dead].dead = true;
    return totals;
}

std::string duration(uint64_t nanoseconds)
{
    char text[32];
    const auto value = static_cast<double>(nanoseconds);
    if (nanoseconds < 1000000)
        std::snprintf(text, sizeof text, "%.1f us", value / 1e3);
    else if (nanoseconds < 1000000000)
        std::snprintf(text, sizeof text, "%.2f ms", value / 1e6);
    else
        std::snprintf(text, sizeof text, "%.2f s", value / 1e9);
    return text;
}

void print_text(const Totals &totals, const Outcome &outcome)
{
    std::printf("transfers    %llu in %.2f s, %.0f a second\n",
                static_cast<unsigned long long>(totals.transfers), outcome.seconds,
                static_cast<double>(totals.transfers) / std::max(outcome.seconds, 1e-9));
    std::printf("errors       %llu\n", static_cast<unsigned long long>(totals.errors));
    std::printf("wrong bytes  %llu\n", static_cast<unsigned long long>(totals.wrong_bytes));
    if (outcome.kills > 0)
        std::printf("kills        %u, each process replaced at once\n", outcome.kills);
    std::printf("waits        median %s, 99th percentile %s, longest %s\n",
                duration(quantile(*totals.waits, 0.5)).c_str(),
                duration(quantile(*totals.waits, 0.99)).c_str(),
                duration(totals.waits->largest).c_str());
    std::printf("process   transfers     share  from mean\n");
    for (size_t i = 0; i < totals.processes.size(); i++) {
        const Process &process = totals.processes[i];
        std::printf("%7zu  %10llu  %6.2f %%   %+6.2f %%%s\n", i,
                    static_cast<unsigned long long>(process.transfers), process.share,
                    process.deviation, process.dead ? "  died" : "");
    }
}

void print_json(const Totals &totals, const Outcome &outcome)
{
    Json::Value json;
    json["transfers"] = static_cast<Json::UInt64>(totals.transfers);
    json["errors"] = static_cast<Json::UInt64>(totals.errors);
    json["wrong_bytes"] = static_cast<Json::UInt64>(totals.wrong_bytes);
    json["kills"] = outcome.kills;
    json["seconds"] = outcome.seconds;
    json["interrupted"] = outcome.interrupted;
    json["waits_ns"]["median"] = static_cast<Json::UInt64>(quantile(*totals.waits, 0.5));
    json["waits_ns"]["p99"] = static_cast<Json::UInt64>(quantile(*totals.waits, 0.99));
    json["waits_ns"]["max"] = static_cast<Json::UInt64>(totals.waits->largest);
    json["processes"] = Json::Value(Json::arrayValue);
    for (const Process &process : totals.processes) {
        Json::Value entry;
        entry["transfers"] = static_cast<Json::UInt64>(process.transfers);
        entry["share_percent"] = process.share;
        entry["deviation_percent"] = process.deviation;
        entry["died"] = process.dead;
        json["processes"].append(entry);
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "  ";
    builder["commentStyle"] = "None";
    builder["enableYAMLCompatibility"] = true; // "key": value
    builder["precision"] = 5;
    std::cout << Json::writeString(builder, json) << std::endl;
}

// The first failure of each worker that had one, on standard error.
void explain(const Plan &plan, const Shared &shared)
{
    for (uint32_t worker = 0; worker < plan.processes * plan.threads; worker++) {
        const Worker &result = shared.workers[worker];
        const std::string who = "qeli2c-stress: process " + std::to_string(worker / plan.threads) +
                                " on " + to_string(plan.devices[worker % plan.devices.size()]) +
                                ": ";
        if (result.errors && !plan.faulty)
            std::cerr << who << result.errors << " failed; the first with result "
                      << result.first_result << ", " << std::strerror(result.first_errno) << "\n";
        if (result.wrong_bytes) {
            const uint32_t wrong = result.first_wrong;
            std::cerr << who << result.wrong_bytes << " wrong bytes; the first in register "
                      << tool::hex(wrong >> 16, 2) << ", " << tool::hex(wrong & 0xff, 2)
                      << " where " << tool::hex(wrong >> 8 & 0xff, 2) << " was written\n";
        }
    }
}

} // namespace

bool report(const Plan &plan, const Shared &shared, const Outcome &outcome, double most_deviation,
            bool json)
{
    const Totals totals = add_up(plan, shared, outcome);
    if (json)
        print_json(totals, outcome);
    else
        print_text(totals, outcome);
    std::fflush(stdout);
    explain(plan, shared);
    if (!outcome.dead.empty())
        std::cerr << "qeli2c-stress: " << outcome.dead.size() << " of the processes died\n";
    const bool unfair = most_deviation >= 0 && totals.largest_deviation > most_deviation;
    if (unfair)
        std::cerr << "qeli2c-stress: the shares deviate from their mean by up to "
                  << totals.largest_deviation << " %; " << most_deviation << " % are allowed\n";
    if (totals.transfers == 0)
        std::cerr << "qeli2c-stress: nothing was transferred\n";
    return totals.transfers > 0 && (totals.errors == 0 || plan.faulty) && totals.wrong_bytes == 0 &&
           outcome.dead.empty() && !unfair;
}

} // namespace bench
