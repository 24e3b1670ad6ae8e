// 8 processes of 4 threads work on all buses and through all kinds of paths, and are killed one
// after the other wherever they are, as often and in as many seconds as the arguments say, each
// replaced at once: half of them while they transfer, half while they call everything the library
// has. No wrong byte, no failed access, no finding but paths of the dead, a board that passes its
// own check, and buses that go on working.
#include "figures.h"

#include "simboard/consistency.h"
#include "simboard/testing.h"
#include "tests/tool/command.h"

#include <cstdio>
#include <cstdlib>

namespace
{

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

int fail(const std::string &what)
{
    std::printf("FAILED: %s\n", what.c_str());
    return 1;
}

int storm(uint64_t kills, const std::string &seconds, bool all, uint64_t &within)
{
    simboard::testing::Board board(simboard::testing::reference_board());
    const std::string load = std::string("QELPLATFORM_LOG=all=none qeli2c-stress --processes 8") +
                             " --threads 4 " + (all ? "--mixed --device " : "--device ") +
                             list_devices(board.description(), all);
    const Ended storm = run(load + " --kills " + std::to_string(kills) + " --seconds " + seconds);
    std::printf("%s%s", storm.out.c_str(), storm.err.c_str());
    for (const simboard::Bus &bus : board.view().state->buses)
        within += bus.recoveries.load();
    std::printf("paths of the dead %llu\n",
                static_cast<unsigned long long>(board.totals().orphaned_paths));
    int status = storm.status != 0 ? fail("the load was not clean") : 0;
    if (!board.wrongs().empty())
        status = fail(board.wrongs());
    for (const std::string &line :
         simboard::find_inconsistencies(board.view(), board.description(), 5000))
        status = fail(line);
    const Ended after = run(load + " --transfers 3200");
    if (after.status != 0)
        status = fail("the load afterwards: " + after.err);
    return status;
}

} // namespace

int main(int count, char **arguments)
{
    if (count != 3) {
        std::fprintf(stderr, "usage: reliability_storm KILLS SECONDS\n");
        return 2;
    }
    const auto kills = std::strtoull(arguments[1], nullptr, 10);
    const std::string seconds = std::to_string(std::atof(arguments[2]) / 2);
    uint64_t within = 0;
    int status = storm(kills - kills / 2, seconds, false, within);
    status |= storm(kills / 2, seconds, true, within);
    if (kills >= 1000 && within == 0)
        status = fail("no kill struck within a transfer");
    record_figure("kills.random", kills, "kills of random processes at random times");
    record_figure("kills.random_in_transfers", within, "of them within a transfer");
    return status;
}
