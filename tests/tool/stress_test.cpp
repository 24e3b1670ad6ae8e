// The load program: what it finds out about load that goes well, and that it notices what does not.
#include "command.h"

#include "simboard/testing.h"

#include <csignal>
#include <gtest/gtest.h>
#include <thread>

using simboard::testing::Board;
using simboard::testing::reference_board;

namespace
{

TEST(Stress, RefusesWrongUsage)
{
    Board board(reference_board());
    const struct {
        const char *options, *reason;
    } rows[] = {
        {"", "--device is required"},
        {"--device id-registers", "either --transfers or --seconds"},
        {"--device id-registers --transfers 1 --seconds 1", "either --transfers or --seconds"},
        {"--device id-registers,nothing --transfers 1", "no device named 'nothing'"},
        {"--device id-registers --transfers 1 --kills 1", "spread over --seconds"},
        {"--device sw-main --transfers 1", "is of type pca9548"},
        {"--device id-registers --transfers 1 --processes 13 --threads 5", "too many workers"},
    };
    for (const auto &row : rows) {
        const Ended ended = run(std::string("qeli2c-stress ") + row.options);
        EXPECT_EQ(ended.status, 2) << row.options;
        EXPECT_NE(ended.err.find(row.reason), std::string::npos) << ended.err;
    }
    EXPECT_EQ(board.totals().transfers, 0U);
}

TEST(Stress, CountsEveryTransferOnThreeBuses)
{
    Board board(reference_board());
    const Ended ended = run("qeli2c-stress --processes 3 --threads 2 --transfers 3000 "
                            "--device board-status,fan0,id-registers --json");
    EXPECT_EQ(ended.status, 0) << ended.err;
    EXPECT_EQ(ended.err, "");
    EXPECT_NE(ended.out.find("\"transfers\": 3000,"), std::string::npos) << ended.out;
    EXPECT_NE(ended.out.find("\"wrong_bytes\": 0"), std::string::npos) << ended.out;
    EXPECT_EQ(board.wrongs(), "");
    EXPECT_GE(board.totals().transfers, 3000U);
}

TEST(Stress, FailsOnErrorsWrongBytesAndDeadProcesses)
{
    Board board(reference_board());
    const Ended absent = run("qeli2c-stress --transfers 10 --device 4/0x70.5/0x44");
    EXPECT_EQ(absent.status, 1);
    EXPECT_NE(absent.err.find("10 failed; the first with result -1, No such device"),
              std::string::npos)
        << absent.err;

    board.reset();
    const Command command =
        start("exec qeli2c-stress --processes 1 --seconds 60 --device id-registers");
    for (int i = 0; i < 60000 && board.totals().transfers < 100; i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
    while (std::chrono::steady_clock::now() < end) // somebody else writes into the worker's window
        board.poke("id-registers", 0, std::vector<uint8_t>(32, 0x55));
    kill(command.child, SIGINT);
    const Ended disturbed = end_of(command);
    EXPECT_EQ(disturbed.status, 1);
    EXPECT_NE(disturbed.err.find(" wrong bytes; the first in register 0x"), std::string::npos)
        << disturbed.err;

    const Ended dead = run("qeli2c-stress --processes 2 --seconds 60 --device id-registers & "
                           "sleep 0.3; kill -9 $(ps -o pid= --ppid $!  | head -n 1); wait $!");
    EXPECT_EQ(dead.status, 1);
    EXPECT_NE(dead.err.find("1 of the processes died"), std::string::npos) << dead.err;
}

} // namespace
