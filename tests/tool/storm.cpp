// 8 processes of 4 threads work on all buses and through all kinds of paths, and are killed one
// after the other wherever they are, as often and in as many seconds as the arguments say, each
// replaced at once. No wrong byte, no failed access, no finding but paths of the dead, a board that
// passes its own check, and buses that go on working.
#include "command.h"

#include "simboard/consistency.h"
#include "simboard/testing.h"

#include <cstdio>
#include <cstdlib>

namespace
{

std::string list_devices(const simboard::BoardDescription &board)
{
    std::string list;
    for (const simboard::DeviceDescription &device : board.devices) {
        if (device.type == "registers")
            list += (list.empty() ? "" : ",") + device.name;
    }
    return list;
}

int fail(const std::string &what)
{
    std::printf("FAILED: %s\n", what.c_str());
    return 1;
}

} // namespace

int main(int, char **arguments)
{
    simboard::testing::Board board(simboard::testing::reference_board());
    const std::string load =
        "qeli2c-stress --processes 8 --threads 4 --device " + list_devices(board.description());
    const Ended storm = run(load + " --kills " + arguments[1] + " --seconds " + arguments[2]);
    std::printf("%s%s", storm.out.c_str(), storm.err.c_str());

    unsigned undone = 0;
    for (const simboard::Bus &bus : board.view().state->buses)
        undone += bus.recoveries.load();
    const simboard::Counters totals = board.totals();
    std::printf("kills within transfers %u, paths of the dead %llu, failed transfers %llu\n",
                undone, static_cast<unsigned long long>(totals.orphaned_paths),
                static_cast<unsigned long long>(totals.failed));
    int status = storm.status != 0 ? fail("the load was not clean") : 0;
    if (std::atoi(arguments[1]) >= 1000 && undone == 0)
        status = fail("no kill struck within a transfer");
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
