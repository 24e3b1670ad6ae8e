// Threads that are cancelled, or end, in and between calls: nothing stays taken but a hold, and
// that is the process's.
#include "figures.h"
#include "watch.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <pthread.h>
#include <random>
#include <thread>
#include <unistd.h>

using simboard::testing::Board;
using simboard::testing::reference_board;

namespace
{

constexpr const char *kDevices[] = {"board-status", "psu0",        "id-registers", "log-eeprom",
                                    "riser-io",     "riser-power", "card-epld2",   "subcard-epld"};

// In a process of its own.
bool cancel_at_random(const Board &board, unsigned times)
{
    constexpr uint32_t kThreads = 4;
    mallopt(M_ARENA_MAX, 1);
    std::mt19937 random(1);
    size_t before = 0;
    for (unsigned i = 0; i < times; i += kThreads) {
        struct Busy {
            watch::Device device;
            watch::Device large; // read in one piece that is much memory
            void operator()() const
            {
                std::vector<uint8_t> bytes(8000);
                for (;;) {
                    (void)watch::do_rounds(device, 0, 1);
                    (void)i2cRead(&large.job.client, 8000, bytes.data(), 2, 0);
                    (void)i2cWrite(&large.job.client, 8000, bytes.data(), 2, 0);
                    pthread_testcancel(); // the calls need not come to another point
                }
            }
        };
        std::vector<Busy> busy;
        for (uint32_t thread = 0; thread < kThreads; thread++)
            busy.push_back(
                {watch::device(board, kDevices[(i + thread) % std::size(kDevices)], thread),
                 watch::device(board, "scratch-eeprom", thread)});
        std::vector<pthread_t> threads;
        for (Busy &work : busy)
            threads.push_back(watch::start_thread(work));
        for (const pthread_t thread : threads) {
            usleep(std::uniform_int_distribution<useconds_t>(0, 4000)(random));
            pthread_cancel(thread);
        }
        for (const pthread_t thread : threads) {
            if (!watch::is_cancelled(thread))
                return false;
        }
        if (i == 0)
            before = mallinfo2().uordblks;
    }
    // One leaked message of each thread would be ten times as much.
    const size_t after = mallinfo2().uordblks;
    if (!kSanitized && after > before + times * 800) {
        std::printf("%zu bytes of memory, then %zu\n", before, after);
        return false;
    }
    return watch::holds_nothing();
}

TEST(Cancel, AtRandomLeavesNothingBehind)
{
    constexpr unsigned kTimes = kSanitized ? 80 : 600;
    Board board(reference_board());
    EXPECT_TRUE(watch::succeeds([&] { return cancel_at_random(board, kTimes); }));
    EXPECT_TRUE(watch::succeeds(
        [&] { return watch::do_rounds(watch::device(board, "id-registers", 0), 0, 13); }));
    EXPECT_EQ(board.wrongs(), "");
    record_figure("cancel.random", kTimes, "cancellations of busy threads");
}

TEST(Cancel, OfAThreadThatWaitsForABusyBusTakesEffectWhenItHasHadItsTurn)
{
    Board board(reference_board());
    const watch::Device eeprom = watch::device(board, "log-eeprom", 0);
    EXPECT_TRUE(watch::succeeds([&] {
        int32_t fd = -1;
        int32_t semid = -1;
        for (const uint32_t lock : {eeprom.job.client.bus, watch::kEeproms}) {
            const bool bus = lock != watch::kEeproms;
            if ((bus ? ei2c_smbus_lock_adapter(&eeprom.job.client, &fd, &semid)
                     : ee_lock_eeprom()) < 0)
                return false;
            auto work = [&] {
                (void)watch::do_rounds(eeprom, 0, 0);
                pthread_testcancel();
            };
            const pthread_t thread = watch::start_thread(work);
            wait_until([&] { return watch::waiters(lock) == 1; });
            pthread_cancel(thread);
            usleep(50000);
            const bool still_waits = watch::waiters(lock) == 1;
            if ((bus ? ei2c_smbus_unlock_adapter(&eeprom.job.client, fd, semid)
                     : ee_unlock_eeprom()) < 0)
                return false;
            if (!watch::is_cancelled(thread) || !still_waits || !watch::holds_nothing() ||
                !watch::do_rounds(eeprom, 0, 0))
                return false;
        }
        return true;
    }));
    EXPECT_EQ(board.wrongs(), "");
}

TEST(Hold, OutlivesItsThreadAndEndsByAnotherThreadOrWithTheProcess)
{
    Board board(reference_board());
    const watch::Device device = watch::device(board, "id-registers", 0);
    const ei2c_client *client = &device.job.client;
    for (const bool given_back : {true, false}) {
        EXPECT_TRUE(watch::succeeds([&] {
            int32_t fd = -1;
            int32_t semid = -1;
            auto work = [&] {
                (void)ei2c_smbus_lock_adapter(client, &fd, &semid);
                pthread_exit(nullptr);
            };
            (void)watch::is_cancelled(watch::start_thread(work));
            if (watch::holds_nothing())
                return false;
            if (!given_back)
                return true;
            return ei2c_smbus_unlock_adapter(client, fd, semid) == 0 && watch::holds_nothing() &&
                   watch::do_rounds(device, 0, 4);
        }));
        EXPECT_EQ(watch::held_locks(), "");
        EXPECT_TRUE(watch::succeeds([&] { return watch::do_rounds(device, 0, 4); }));
    }
    EXPECT_EQ(board.wrongs(), "");
}

} // namespace
