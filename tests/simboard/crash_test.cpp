// Tasks killed in the middle of transfers, and tasks that crowd one bus.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/time.h>
#include <time.h>

#include <random>
#include <set>
#include <thread>

#include "child.h"
#include "device.h"
#include "simboard/testing.h"

namespace
{

using simboard::Counters;
using simboard::testing::Board;
using simboard::testing::reference_board;

constexpr int kKills = kSanitized ? 60 : 300;

// One transfer that fills all 256 registers 32 times and a page of the EEPROM with one value.
int fill_everything(const Device &bus, uint8_t value)
{
    Bytes registers(8192, value);
    registers[0] = 0;
    Bytes page(130, value);
    page[0] = 0;
    page[1] = 0;
    return bus.transfer({{0x30, 0, 8192, registers.data()}, {0x50, 0, 130, page.data()}});
}

[[noreturn]] void fill_for_ever()
{
    const Device bus(7);
    for (uint8_t value = 0;; value++) {
        fill_everything(bus, value);
    }
}

bool is_uniform(const Bytes &bytes)
{
    return std::set<uint8_t>(bytes.begin(), bytes.end()).size() == 1;
}

// What one process wrote in one transfer is there whole or not at all, and everything that was
// counted was traced.
void check_consistency(Board &board)
{
    const Bytes registers = board.peek("scratch-registers", 0, 256);
    const Bytes page = board.peek("scratch-eeprom", 0, 128);
    ASSERT_TRUE(is_uniform(registers));
    ASSERT_TRUE(is_uniform(page));
    ASSERT_EQ(registers[0], page[0]);
    const auto trace = board.trace(7);
    ASSERT_FALSE(trace.empty());
    ASSERT_EQ(trace.back().number, board.totals(7).transfers);
    ASSERT_EQ(trace.back().messages[0].bytes.back(), registers[0]);
}

// Waits until a transfer on bus 7 has begun to change something.
void wait_for_transfer(Board &board)
{
    while (board.view().state->journals[7].count.load() == 0) {
        sched_yield();
    }
}

TEST(KilledTask, LeavesTheBoardAsBeforeItsTransfer)
{
    Board board(reference_board());
    const Device bus(7);
    std::mt19937 random(20221);
    std::uniform_int_distribution<long> delay_us(0, 1000);
    for (int i = 0; i < kKills; i++) {
        Child child([] {
            std::thread([] { fill_for_ever(); }).detach();
            return true;
        });
        ASSERT_TRUE(child.wait_ready());
        wait_for_transfer(board);
        const timespec delay = {0, delay_us(random) * 1000};
        nanosleep(&delay, nullptr);
        child.kill_and_reap();
        ASSERT_EQ(fill_everything(bus, static_cast<uint8_t>(i)), 2);
        check_consistency(board);
    }
    // Most of a child's life passes within transfers: without the journal this would have failed
    // long ago.
    EXPECT_GT(board.view().state->buses[7].recoveries.load(), kKills / 15U);
}

TEST(KilledTask, CutOffTransferNeverHappened)
{
    Board board(reference_board(), "100k"); // 740 ms a transfer, so that the kill strikes within
    const uint8_t before = board.peek("scratch-registers", 9);
    Child child([] {
        std::thread([] { fill_for_ever(); }).detach();
        return true;
    });
    ASSERT_TRUE(child.wait_ready());
    wait_for_transfer(board);
    const timespec delay = {0, 20'000'000};
    nanosleep(&delay, nullptr);
    child.kill_and_reap();
    EXPECT_EQ(board.peek("scratch-registers", 9), before);
    EXPECT_EQ(board.totals(7).transfers, 0U);
    EXPECT_TRUE(board.trace(7).empty());
    EXPECT_EQ(board.view().state->buses[7].recoveries.load(), 1U);
    EXPECT_EQ(Device(7).write(0x30, {9, 0x77}), 1);
    EXPECT_EQ(board.peek("scratch-registers", 9), 0x77);
}

volatile sig_atomic_t handled = 0;
int handler_device = -1;

void transfer_in_handler(int)
{
    uint8_t bytes[] = {0x80, 0x42};
    i2c_msg message = {0x30, 0, 2, bytes};
    i2c_rdwr_ioctl_data data = {&message, 1};
    handled = handled + (ioctl(handler_device, I2C_RDWR, &data) == 1 ? 1 : 0);
}

TEST(SignalHandler, MayTransferOnTheBusItInterrupted)
{
    Board board(reference_board());
    const Device bus(7);
    handler_device = bus.fd();
    struct sigaction action = {};
    action.sa_handler = transfer_in_handler;
    action.sa_flags = SA_RESTART;
    struct sigaction former;
    sigaction(SIGALRM, &action, &former);
    const itimerval often = {{0, 200}, {0, 200}};
    setitimer(ITIMER_REAL, &often, nullptr);
    uint64_t made = 0;
    while (handled < 200) {
        ASSERT_EQ(fill_everything(bus, 0x11), 2);
        made++;
    }
    const itimerval never = {};
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &former, nullptr);
    EXPECT_EQ(board.totals(7).transfers, made + static_cast<uint64_t>(handled));
}

// Writes its own value to a run of registers and reads it back in the same transfer.
bool write_and_read_back(const Device &bus, uint8_t value)
{
    Bytes write(65, value);
    write[0] = 0x20;
    Bytes pointer = {0x20};
    Bytes read(64);
    return bus.transfer({{0x30, 0, 65, write.data()},
                         {0x30, 0, 1, pointer.data()},
                         {0x30, I2C_M_RD, 64, read.data()}}) == 3 &&
           read == Bytes(64, value);
}

TEST(CrowdedBus, TransfersExcludeEachOther)
{
    constexpr unsigned TRANSFERS = 2000;
    constexpr unsigned THREADS = 3;
    const auto work = [](uint8_t first) {
        bool good[THREADS] = {};
        std::vector<std::thread> threads;
        for (uint8_t t = 0; t < THREADS; t++) {
            threads.emplace_back([&good, first, t] {
                const Device bus(7);
                good[t] = true;
                for (unsigned i = 0; i < TRANSFERS; i++) {
                    good[t] = write_and_read_back(bus, static_cast<uint8_t>(first + t)) && good[t];
                }
            });
        }
        for (std::thread &thread : threads) {
            thread.join();
        }
        return good[0] && good[1] && good[2];
    };
    Board board(reference_board());
    Child one([&work] { return work(0x10); });
    Child two([&work] { return work(0x20); });
    EXPECT_TRUE(work(0x30));
    EXPECT_TRUE(one.wait_ready());
    EXPECT_TRUE(two.wait_ready());
    const Counters totals = board.totals(7);
    EXPECT_EQ(totals.transfers, 3U * THREADS * TRANSFERS);
    EXPECT_EQ(totals.failed, 0U);
    EXPECT_EQ(board.wrongs(), "");
}

} // namespace
