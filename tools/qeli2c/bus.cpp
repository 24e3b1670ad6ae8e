// qeli2c bus: what can be seen of whole buses, and holding them.
#include "child.h"
#include "command_line.h"
#include "failure.h"
#include "hold.h"
#include "interrupt.h"
#include "number.h"
#include "output.h"
#include "owners.h"
#include "tool.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <map>
#include <new>
#include <optional>

namespace tool
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kSampleEvery(2);
constexpr uint32_t kForever = 100U * 365 * 86400; // seconds

struct BusArguments {
    std::string bus;
    std::vector<std::string> words;
    std::string seconds, interval, command;
};

std::vector<uint32_t> chosen_buses(const std::vector<std::string> &words, const Options &options)
{
    std::vector<uint32_t> buses;
    for (const std::string &word : words)
        buses.push_back(number_in(word, 0, kLastBus, "bus"));
    if (!buses.empty())
        return buses;
    const Board &board = load_board(options.board_file);
    if (!board.file.empty())
        return board.description.buses;
    for (uint32_t bus = 0; bus <= kLastBus; bus++)
        buses.push_back(bus);
    return buses;
}

void status(const BusArguments &arguments, const Options &options)
{
    const std::vector<uint32_t> buses = chosen_buses(arguments.words, options);
    Json::Value json;
    json["buses"] = Json::Value(Json::arrayValue);
    for (const uint32_t bus : buses) {
        uint8_t bit = 0;
        if (i2c_bus_status_check(bus, &bit) < 0)
            throw operation_failed("the status register of the controller of bus " +
                                   std::to_string(bus) +
                                   " cannot be read from /dev/mem; run as root");
        Json::Value entry;
        entry["bus"] = bus;
        entry["status"] = bit;
        json["buses"].append(entry);
        if (!options.json)
            std::cout << "bus " << bus << ": " << int{bit} << "\n";
    }
    if (options.json)
        print_json(json);
}

Json::Value json_of(const Owner &owner)
{
    Json::Value json;
    json["pid"] = owner.pid;
    json["alive"] = owner.alive;
    if (owner.alive)
        json["name"] = owner.name;
    return json;
}

std::string in_words(const Owner &owner)
{
    if (owner.pid == 0)
        return "nobody yet";
    return std::to_string(owner.pid) + (owner.alive ? " " + owner.name : " (has ended)");
}

void owners(const BusArguments &arguments, const Options &options)
{
    const std::vector<uint32_t> buses = chosen_buses(arguments.words, options);
    map_owners();
    Json::Value json;
    json["buses"] = Json::Value(Json::arrayValue);
    for (const uint32_t bus : buses) {
        const Owner owner = owner_of_pid(owner_pid(bus));
        Json::Value entry;
        entry["bus"] = bus;
        if (owner.pid)
            entry["owner"] = json_of(owner);
        json["buses"].append(entry);
        if (!options.json)
            std::cout << "bus " << bus << ": " << in_words(owner) << "\n";
    }
    if (options.json)
        print_json(json);
}

void hold(const BusArguments &arguments, const Options &)
{
    const uint32_t bus = number_in(arguments.bus, 0, kLastBus, "bus");
    defer_interrupts();
    Hold held({bus, {}, kFirstAddress}, Hold::With::bus_only);
    if (!held.failure().empty())
        throw operation_failed("cannot hold bus " + arguments.bus + ": " + held.failure());
    const int status = status_of_child(start_child(arguments.words));
    if (!held.release())
        throw operation_failed("the bus could not be released");
    if (status != EXIT_DONE)
        throw Failure{status, ""};
}

struct BusStatistics {
    uint32_t bus = 0;
    ui2c_adapter *adapter = nullptr;
    uint64_t samples = 0;
    uint64_t busy = 0; // samples that found the bus taken
    double busy_seconds = 0;
    double longest_wait = 0;
    Clock::time_point last = Clock::now(); // end of the sample before
    std::map<uint32_t, uint64_t> owners;   // samples that found each process to be the last owner
};

// Takes the semaphore alone, and gives it back: nothing goes over the bus, no owner is recorded.
void sample(BusStatistics &statistics)
{
    constexpr double kTaken = 200e-6; // a free semaphore is taken much faster
    const Clock::time_point before = Clock::now();
    const int32_t semaphore = ipc_lock_adapter(statistics.adapter);
    const std::chrono::duration<double> wait = Clock::now() - before;
    if (semaphore < 0)
        throw operation_failed("the semaphore of bus " + std::to_string(statistics.bus) +
                               " cannot be taken");
    ipc_unlock_adapter(semaphore);
    statistics.samples++;
    if (wait.count() > kTaken) { // then it is taken to have been so since the sample before
        const std::chrono::duration<double> taken = Clock::now() - statistics.last;
        statistics.busy++;
        statistics.busy_seconds += taken.count();
    }
    statistics.last = Clock::now();
    statistics.longest_wait = std::max(statistics.longest_wait, wait.count());
    if (const uint32_t pid = owner_pid(statistics.bus))
        statistics.owners[pid]++;
}

Json::Value json_of(const BusStatistics &statistics)
{
    Json::Value json;
    json["bus"] = statistics.bus;
    json["samples"] = Json::UInt64(statistics.samples);
    json["busy"] = Json::UInt64(statistics.busy);
    json["busy_seconds"] = statistics.busy_seconds;
    json["longest_wait_ms"] = statistics.longest_wait * 1e3;
    json["owners"] = Json::Value(Json::arrayValue);
    for (const auto &[pid, count] : statistics.owners) {
        Json::Value owner = json_of(owner_of_pid(pid));
        owner["samples"] = Json::UInt64(count);
        json["owners"].append(owner);
    }
    return json;
}

void print_statistics(const std::vector<BusStatistics> &all, double seconds, const Options &options)
{
    Json::Value json;
    json["seconds"] = seconds;
    json["buses"] = Json::Value(Json::arrayValue);
    if (!options.json)
        std::printf("%-4s %7s  %9s  %s\n", "bus", "busy", "max wait", "last owners");
    for (const BusStatistics &statistics : all) {
        json["buses"].append(json_of(statistics));
        if (options.json)
            continue;
        std::string owners;
        for (const auto &[pid, count] : statistics.owners) {
            const std::string owner = in_words(owner_of_pid(pid)) + " " +
                                      std::to_string(count * 100 / statistics.samples) + " %";
            const bool fits = owners.size() + owner.size() + 2 <= 54;
            if (fits)
                owners += (owners.empty() ? "" : ", ") + owner;
        }
        std::printf("%-4u %5.1f %%  %6.2f ms  %s\n", statistics.bus,
                    100.0 * statistics.busy_seconds / seconds, statistics.longest_wait * 1e3,
                    owners.empty() ? "-" : owners.c_str());
    }
    if (options.json)
        print_json_line(json);
    flush_results();
}

std::vector<BusStatistics> fresh(const std::vector<uint32_t> &buses)
{
    std::vector<BusStatistics> all;
    for (const uint32_t bus : buses) {
        all.emplace_back();
        all.back().bus = bus;
        const ui2c_client *const found = ui2c_to_client(bus, kFirstAddress, 0, 0);
        if (!found || !found->adapter)
            throw std::bad_alloc();
        all.back().adapter = found->adapter;
    }
    return all;
}

// Looks until `end` has come, a signal, or the end of `child` if there is one. False after the
// latter two; what there is to tell is told in any case.
bool watch_until(std::vector<BusStatistics> &all, Clock::time_point end, pid_t child, int &status)
{
    while (Clock::now() < end) {
        for (BusStatistics &statistics : all)
            sample(statistics);
        if (child ? child_ended(child, status) : interrupted())
            return false;
        pause_unless_interrupted(kSampleEvery);
    }
    return true;
}

void stats(const BusArguments &arguments, const Options &options)
{
    const std::string &command = arguments.command;
    const std::vector<uint32_t> buses = chosen_buses(arguments.words, options);
    const std::chrono::seconds most(
        arguments.seconds.empty() ? kForever : number_in(arguments.seconds, 1, 86400, "--seconds"));
    const std::chrono::seconds interval(!arguments.interval.empty()
                                            ? number_in(arguments.interval, 1, 86400, "--interval")
                                        : command.empty() ? 1U
                                                          : kForever);
    if (!command.empty() && !arguments.seconds.empty())
        throw usage_error("--seconds and --while contradict each other");
    map_owners();
    defer_interrupts();
    std::vector<BusStatistics> all = fresh(buses);
    int status = EXIT_DONE;
    const pid_t child = command.empty() ? 0 : start_child({"sh", "-c", command});
    const Clock::time_point start = Clock::now();
    Clock::time_point end = start;
    for (bool more = true; more && (child || end - start < most);) {
        end = child ? end + interval : std::min(end + interval, start + most);
        more = watch_until(all, end, child, status);
        const std::chrono::duration<double> passed = Clock::now() - start;
        print_statistics(all, passed.count(), options);
        all = fresh(buses);
    }
    if (status != EXIT_DONE)
        throw Failure{status, ""};
}

} // namespace

void add_bus(CLI::App &app, Tool &tool)
{
    CLI::App &group = add_group(app, "bus", "Whole buses: status, owners, holds, load");
    const auto [status_command, of_status] =
        add_command(group, tool, "status", "Show the status bit of bus controllers", "", status);
    const auto [owners_command, of_owners] =
        add_command(group, tool, "owners", "Show which process took each bus last", "", owners);
    const auto [stats_command, of_stats] =
        add_command(group, tool, "stats", "Show how busy buses are, and with whom",
                    "Looks at each bus every other millisecond until Ctrl-C: whether it is taken,\n"
                    "how long one waits for it, who took it last. Nothing goes over the bus.\n"
                    "Example: qeli2c bus stats 4 --while 'qeli2c scan 4 >/dev/null'",
                    stats);
    add_arguments(status_command, "BUS...", of_status.words, "Buses; all if none", Number::any);
    add_arguments(owners_command, "BUS...", of_owners.words, "Buses; all if none", Number::any);
    add_arguments(stats_command, "BUS...", of_stats.words, "Buses; all if none", Number::any);
    add_option(stats_command, "--while", of_stats.command, "COMMAND",
               "Look while the shell runs this, then end as it does");
    add_option(stats_command, "--seconds", of_stats.seconds, "N", "End after so many seconds");
    add_option(stats_command, "--interval", of_stats.interval, "N",
               "Seconds between two tables, else 1");
    const auto [hold_command, of_hold] = add_command(
        group, tool, "hold", "Keep a bus to oneself while a command runs",
        "The command can use i2cget and others that know nothing of holds; what takes\n"
        "the bus itself, as qeli2c does, waits without end. The exit status is that of\n"
        "the command. Example: qeli2c bus hold 4 -- i2cget -y 4 0x60 0x10",
        hold);
    add_argument(hold_command, "BUS", of_hold.bus, "Number of the bus");
    add_arguments(hold_command, "COMMAND...", of_hold.words, "What to run", Number::at_least_one);
}

} // namespace tool
