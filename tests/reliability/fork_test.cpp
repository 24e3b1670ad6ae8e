// Processes that fork, execute and start threads while they use the library.
#include "figures.h"
#include "imports.h"
#include "watch.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using simboard::testing::Board;
using simboard::testing::reference_board;

namespace
{

constexpr uint64_t kOwnerTable = 0xB8210000;

// How many descriptors a program has that a child of this process executes.
int descriptors_of_executed()
{
    return WEXITSTATUS(watch::end_of(watch::start([] {
        execl("/bin/sh", "sh", "-c", "exit $(ls /proc/self/fd | wc -l)", nullptr);
        return false;
    })));
}

TEST(Fork, ParentAndChildGoOnBothAndAreRecordedAsWhoMappedTheTable)
{
    Board board(reference_board());
    pid_t &user = shared<pid_t>();
    EXPECT_TRUE(watch::succeeds([&] {
        user = getpid();
        const watch::Device own = watch::device(board, "id-registers", 0);
        if (!watch::do_rounds(own, 0, 0))
            return false;
        // On a bus its parent has a descriptor of, and on one that nobody has used yet.
        const pid_t child = watch::start([&] {
            return watch::do_rounds(watch::device(board, "id-registers", 1), 0, 300) &&
                   watch::do_rounds(watch::device(board, "optic1", 1), 0, 300);
        });
        const bool good = watch::do_rounds(own, 0, 300);
        return watch::end_of(child) == 0 && good;
    }));
    EXPECT_EQ(board.physical(kOwnerTable + 4 * 5), static_cast<uint32_t>(user));
    // One that comes before any use has a table of its own.
    EXPECT_TRUE(watch::succeeds([&] {
        return watch::end_of(watch::start([&] {
                   user = getpid();
                   return watch::do_rounds(watch::device(board, "optic1", 1), 0, 0);
               })) == 0;
    }));
    EXPECT_EQ(board.physical(kOwnerTable + 4 * 5), static_cast<uint32_t>(user));
    EXPECT_EQ(board.wrongs(), "");
}

TEST(Fork, WhileOtherThreadsAreWithinCallsGivesAChildThatWorks)
{
    constexpr int kForks = kSanitized ? 100 : 1000;
    constexpr uint32_t kThreads = 4;
    Board board(reference_board());
    EXPECT_TRUE(watch::succeeds([&] {
        std::atomic<bool> stop{false};
        std::atomic<int> wrong{0};
        std::vector<std::thread> threads;
        for (uint32_t i = 0; i < kThreads; i++)
            threads.emplace_back([&, i] {
                const watch::Device device =
                    watch::device(board, i % 2 == 0 ? "id-registers" : "optic1", i);
                while (!stop)
                    wrong += watch::do_rounds(device, 0, 12) ? 0 : 1;
            });
        for (int i = 0; i < kForks; i++) {
            const char *device = i % 3 == 0 ? "id-registers" : i % 3 == 1 ? "optic1" : "psu0";
            const watch::Device own = watch::device(board, device, kThreads);
            const auto round = static_cast<uint64_t>(i % 13);
            wrong += watch::succeeds([&] { return watch::do_rounds(own, round, round); }) ? 0 : 1;
        }
        stop = true;
        for (std::thread &thread : threads)
            thread.join();
        return wrong == 0;
    }));
    EXPECT_EQ(board.wrongs(), "");
    record_figure("fork.children", kForks, "forked while four threads transferred");
}

TEST(Fork, ExecutedProgramInheritsNoDescriptor)
{
    Board board(reference_board());
    EXPECT_TRUE(watch::succeeds([&] {
        const int before = descriptors_of_executed();
        for (const char *device : {"id-registers", "optic1", "psu0", "log-eeprom"}) {
            if (!watch::do_rounds(watch::device(board, device, 0), 3, 3))
                return false;
        }
        return before > 0 && descriptors_of_executed() == before;
    }));
}

TEST(Threads, ThatComeToTheLibraryTogetherCreateEverythingOnce)
{
    constexpr uint32_t kThreads = 64;
    constexpr int kRounds = kSanitized ? 4 : 40;
    Board board(reference_board());
    for (int round = 0; round < kRounds; round++) {
        EXPECT_TRUE(watch::succeeds([&] {
            std::atomic<uint32_t> missing = kThreads;
            std::atomic<int> wrong{0};
            std::vector<std::thread> threads;
            for (uint32_t i = 0; i < kThreads; i++)
                threads.emplace_back([&, i] {
                    const watch::Device device =
                        watch::device(board, i % 2 == 0 ? "id-registers" : "optic1", i / 2);
                    missing--;
                    while (missing > 0)
                        std::this_thread::yield();
                    wrong += watch::do_rounds(device, 0, 0) && ee_eeprom_semid() >= 0 ? 0 : 1;
                });
            for (std::thread &thread : threads)
                thread.join();
            const int devices = imports::made(imports::Kind::device_file);
            const int semaphores = imports::made(imports::Kind::sem_create);
            const int maps = imports::made(imports::Kind::map);
            std::printf("%d opened, %d semaphores, %d maps\n", devices, semaphores, maps);
            return wrong == 0 && devices == 2 && semaphores == 3 && maps == 1;
        }));
    }
    EXPECT_EQ(board.wrongs(), "");
    record_figure("threads.first_use", kRounds, "first uses by 64 threads at once");
}

} // namespace
