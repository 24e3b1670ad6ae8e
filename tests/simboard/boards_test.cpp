// Boards beside each other; what is left of them afterwards is in the transcripts.
#include <gtest/gtest.h>
#include <sys/sem.h>

#include "device.h"
#include "simboard/testing.h"

namespace
{

using simboard::testing::Board;
using simboard::testing::reference_board;

TEST(TwoBoards, DoNotMeetInDevicesNorSemaphores)
{
    Board first(reference_board());
    const Device on_first(7);
    const int first_semaphore = semget(0x3067, 1, IPC_CREAT | 0600);
    {
        Board second(reference_board());
        const Device on_second(7);
        EXPECT_EQ(on_second.write(0x30, {0, 2}), 1);
        EXPECT_EQ(on_first.write(0x30, {0, 1}), 1); // the descriptor stays with its board
        EXPECT_EQ(first.peek("scratch-registers"), 1);
        EXPECT_EQ(second.peek("scratch-registers"), 2);
        EXPECT_EQ(second.totals().transfers, 1U);
        EXPECT_EQ(semget(0x3067, 0, 0), -1);
        const int second_semaphore = semget(0x3067, 1, IPC_CREAT | 0600);
        EXPECT_GE(second_semaphore, 0);
        EXPECT_NE(second_semaphore, first_semaphore);
    }
    EXPECT_EQ(semget(0x3067, 0, 0), first_semaphore);
    EXPECT_EQ(on_first.write(0x30, {0, 3}), 1);
}

} // namespace
