// The load program as its users run it, on a board on which things go wrong, in two ways.
//
// storm KILLS SECONDS: 8 processes of 4 threads work on all buses and through all kinds of paths,
// and are killed one after the other wherever they are, each replaced at once: half of them while
// they transfer, half while they call everything the library has. No wrong byte, no failed access,
// no finding but paths of the dead, a board that passes its own check, and buses that go on
// working.
//
// soak TRANSFERS, or soak MINUTESmin: load of all kinds under faults, then on one bus of a sound
// board. No wrong byte, nothing for the judge, and on the one bus equal shares and no long wait.
#include "figures.h"

#include "simboard/consistency.h"
#include "simboard/testing.h"
#include "tests/tool/command.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <json/reader.h>
#include <json/value.h>
#include <sstream>

namespace
{

using simboard::testing::Board;
using simboard::testing::reference_board;

constexpr uint64_t kWaiters = 8 * 4 - 1;
constexpr uint64_t kLeastToCompare = 100000;      // transfers, for shares within 3 percent
constexpr uint64_t kLeastForEveryFault = 1000000; // transfers
constexpr char kLoad[] = "QELPLATFORM_LOG=all=none qeli2c-stress --json --processes 8 --threads 4 ";

// A device for each of the 32 threads: registers on every bus, then one or two of each other type.
constexpr char kDevices[] =
    "board-status,psu0,fan1,clock,id-registers,optic3,card-registers,scratch-registers,monitor8,"
    "monitor9,monitor10,monitor11,monitor12,monitor13,monitor14,bmc-registers,"
    "fru-eeprom,log-eeprom,board-io,riser-io,board-leds,slot1-leds,power-12v,riser-power,"
    "retimer0,riser-retimer,board-epld,card-epld1,board-epld-ef2,optics-epld,board-mctp,card-mctp";

constexpr char kFaults[] = R"({ "seed": 1, "steps": [
    { "fault": "address-nack", "device": "psu0", "probability": 0.01 },
    { "fault": "address-nack", "device": "riser-io", "probability": 0.2 },
    { "fault": "address-nack", "device": "card-mctp", "probability": 0.2 },
    { "fault": "data-nack", "device": "id-registers", "byte": 3, "probability": 0.01 },
    { "fault": "data-nack", "device": "log-eeprom", "probability": 0.3 },
    { "fault": "arbitration-lost", "device": "optic3", "probability": 0.02 },
    { "fault": "arbitration-lost", "device": "retimer0", "probability": 0.02 },
    { "fault": "bus-stuck", "device": "monitor12", "after": 100, "times": 1 },
    { "fault": "not-ready", "device": "monitor13", "after": 100, "times": 1 },
    { "fault": "bus-error", "device": "clock", "probability": 0.01 },
    { "fault": "bus-error", "device": "board-epld-ef2", "errno": "EREMOTEIO", "probability": 0.05 },
    { "fault": "short-transfer", "device": "card-registers", "messages": 1, "probability": 0.01 },
    { "fault": "wrong-count", "device": "scratch-registers", "probability": 0.02 },
    { "fault": "wrong-pec", "device": "monitor8", "probability": 0.2 },
    { "fault": "wrong-pec", "device": "board-status", "probability": 0.8 },
    { "fault": "call-fails", "device": "monitor9", "call": "I2C_RDWR", "errno": "EBUSY",
      "probability": 0.01 },
    { "fault": "call-fails", "device": "monitor10", "call": "I2C_SMBUS", "errno": "EOPNOTSUPP",
      "probability": 0.01 } ] })";

bool failed = false;

void require(bool good, const std::string &what)
{
    if (!good)
        std::printf("FAILED: %s\n", what.c_str());
    failed = failed || !good;
}

Json::Value load(const std::string &options)
{
    const Ended ended = run(kLoad + options);
    std::printf("%s%s", ended.out.c_str(), ended.err.c_str());
    require(ended.status == 0, "the load was not clean");
    Json::Value report;
    std::istringstream(ended.out) >> report;
    return report;
}

void judge(Board &board)
{
    require(board.wrongs().empty(), board.wrongs());
    for (const std::string &line :
         simboard::find_inconsistencies(board.view(), board.description(), 5000))
        require(false, line);
}

// An EEPROM whose writer was killed is busy for a while, and refuses the next access.
std::string list_devices(const simboard::BoardDescription &board, bool all)
{
    std::string list;
    for (const simboard::DeviceDescription &device : board.devices) {
        if (device.type == "registers" ||
            (all && device.type != "at24c512" && device.type != "pca9548"))
            list += (list.empty() ? "" : ",") + device.name;
    }
    return list;
}

// How many of the kills struck within a transfer.
uint64_t storm(uint64_t kills, double seconds, bool all)
{
    Board board(reference_board());
    const std::string devices =
        (all ? " --mixed --device " : " --device ") + list_devices(board.description(), all);
    load("--kills " + std::to_string(kills) + " --seconds " + std::to_string(seconds) + devices);
    judge(board);
    uint64_t within = 0;
    for (const simboard::Bus &bus : board.view().state->buses)
        within += bus.recoveries.load();
    load("--transfers 3200" + devices);
    return within;
}

void storms(uint64_t kills, double seconds)
{
    const uint64_t within =
        storm(kills - kills / 2, seconds / 2, false) + storm(kills / 2, seconds / 2, true);
    require(kills < 1000 || within != 0, "no kill struck within a transfer");
    record_figure("kills.random", kills, "kills of random processes at random times");
    record_figure("kills.random_in_transfers", within, "of them within a transfer");
}

// A short load may be over before a rare fault strikes.
void soak_all(Board &board, const std::string &length, bool is_short)
{
    board.inject(kFaults);
    const Json::Value report = load(length + " --mixed --faulty --device " + std::string(kDevices));
    judge(board);
    require(board.totals().orphaned_paths == 0, "a path was left behind");
    require(is_short || board.unfired().empty(), board.unfired());
    uint64_t struck = 0;
    for (const simboard::FaultRecord &fault : board.faults())
        struck += fault.step.fired;
    require(struck > 0, "no fault struck");
    record_figure("soak.transfers", report["transfers"].asUInt64(), "calls that succeeded");
    record_figure("soak.failed", report["errors"].asUInt64(), "calls that failed, as they had to");
    record_figure("soak.faults", struck, "faults struck");
    record_figure("soak.wrong_bytes", report["wrong_bytes"].asUInt64(), "bytes");
}

void soak_one_bus(Board &board, const std::string &length)
{
    const Json::Value report =
        load(length + " --max-share-deviation 3 --device id-registers,port0-registers");
    judge(board);
    require(board.totals().orphaned_paths == 0, "a path was left behind");
    double spread = 0;
    for (const Json::Value &process : report["processes"])
        spread = std::max(spread, std::abs(process["deviation_percent"].asDouble()));
    const simboard::Counters totals = board.totals();
    require(totals.longest_wait_ns <= 3 * kWaiters * totals.longest_hold_ns,
            "somebody waited longer than three turns of all others");
    record_figure("soak.contended_transfers", report["transfers"].asUInt64(), "on one bus");
    record_figure("soak.share_spread_permille", static_cast<uint64_t>(spread * 10), "permille");
    record_figure("soak.longest_wait_us", totals.longest_wait_ns / 1000, "us");
    record_figure("soak.longest_hold_us", totals.longest_hold_ns / 1000, "us");
}

void soak(const std::string &length, uint64_t number)
{
    const bool timed = length.find("min") != std::string::npos;
    const auto part = [&](uint64_t of_ten, uint64_t at_least) {
        return timed ? "--seconds " + std::to_string(number * 6 * of_ten)
                     : "--transfers " + std::to_string(std::max(number * of_ten / 10, at_least));
    };
    {
        Board board(reference_board());
        soak_all(board, part(timed ? 8 : 11, 0), !timed && number < kLeastForEveryFault);
    }
    Board board(reference_board());
    soak_one_bus(board, part(2, kLeastToCompare));
}

} // namespace

int main(int count, char **arguments)
{
    const std::string way = count > 2 ? arguments[1] : "";
    const uint64_t number = count > 2 ? std::strtoull(arguments[2], nullptr, 10) : 0;
    if (way == "storm" && count == 4 && number != 0) {
        storms(number, std::atof(arguments[3]));
    } else if (way == "soak" && count == 3 && number != 0) {
        soak(arguments[2], number);
    } else {
        std::fputs(
            "usage: reliability_load storm KILLS SECONDS | soak TRANSFERS | soak MINUTESmin\n",
            stderr);
        return 2;
    }
    return failed ? 1 : 0;
}
