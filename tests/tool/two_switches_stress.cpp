// 8 processes of 4 threads on one device behind two switches, for so many transfers as the argument
// says: no wrong byte, nothing for the judge, and shares of the processes within 10 percent of
// their mean.
#include "command.h"

#include "simboard/testing.h"

#include <cstdio>

int main(int, char **arguments)
{
    simboard::testing::Board board(simboard::testing::reference_board());
    const Ended ended = run("qeli2c-stress --processes 8 --threads 4 --max-share-deviation 10"
                            " --device id-registers --transfers " +
                            std::string(arguments[1]));
    const std::string wrongs = board.wrongs();
    std::printf("%s%s%s", ended.out.c_str(), ended.err.c_str(), wrongs.c_str());
    return ended.status != 0 || !wrongs.empty();
}
