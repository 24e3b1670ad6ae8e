// Load of all kinds on a board on which things go wrong, then on one bus of a sound one: for so
// many transfers as the argument says, or so many minutes ("10min"). No wrong byte, nothing for the
// judge, and on the one bus equal shares and no long wait.
#include "figures.h"

#include "simboard/consistency.h"
#include "simboard/testing.h"
#include "tests/tool/command.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <json/reader.h>
#include <json/value.h>
#include <sstream>

namespace
{

constexpr uint64_t kWaiters = 8 * 4 - 1;
constexpr uint64_t kLeastToCompare = 100000;      // transfers, for shares within 3 percent
constexpr uint64_t kLeastForEveryFault = 1000000; // transfers
constexpr char kLoad[] = "qeli2c-stress --json --processes 8 --threads 4 ";

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
    const Ended ended = run("QELPLATFORM_LOG=all=none " + (kLoad + options));
    std::printf("%s%s", ended.out.c_str(), ended.err.c_str());
    require(ended.status == 0, "the load was not clean");
    Json::Value report;
    std::istringstream(ended.out) >> report;
    return report;
}

void judge(simboard::testing::Board &board)
{
    require(board.wrongs().empty(), board.wrongs());
    require(board.totals().orphaned_paths == 0, "a path was left behind");
    for (const std::string &line :
         simboard::find_inconsistencies(board.view(), board.description(), 5000))
        require(false, line);
}

// A short load may be over before a rare fault strikes.
void soak_all(simboard::testing::Board &board, const std::string &length, bool is_short)
{
    board.inject(kFaults);
    const Json::Value report = load(length + " --mixed --faulty --device " + std::string(kDevices));
    judge(board);
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

void soak_one_bus(simboard::testing::Board &board, const std::string &length)
{
    const Json::Value report =
        load(length + " --max-share-deviation 3 --device id-registers,port0-registers");
    judge(board);
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

} // namespace

int main(int count, char **arguments)
{
    const std::string length = count > 1 ? arguments[1] : "";
    const uint64_t number = std::strtoull(length.c_str(), nullptr, 10);
    if (number == 0) {
        std::fprintf(stderr, "usage: reliability_soak TRANSFERS | MINUTESmin\n");
        return 2;
    }
    const bool timed = length.find("min") != std::string::npos;
    const auto part = [&](uint64_t of_ten, uint64_t at_least) {
        return timed ? "--seconds " + std::to_string(number * 6 * of_ten)
                     : "--transfers " + std::to_string(std::max(number * of_ten / 10, at_least));
    };
    {
        simboard::testing::Board board(simboard::testing::reference_board());
        soak_all(board, part(timed ? 8 : 11, 0), !timed && number < kLeastForEveryFault);
    }
    simboard::testing::Board board(simboard::testing::reference_board());
    soak_one_bus(board, part(2, kLeastToCompare));
    return failed ? 1 : 0;
}
