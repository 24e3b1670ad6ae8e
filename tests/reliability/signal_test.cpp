// A process whose timer goes off a thousand times a second: no call ends early, fails or gives
// anything but right bytes.
#include "figures.h"
#include "watch.h"

#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

using simboard::testing::Board;
using simboard::testing::reference_board;

namespace
{

struct Counts {
    std::atomic<uint64_t> calls{0};
    std::atomic<uint64_t> signals{0};
    std::atomic<bool> stop{false};
};
Counts *counts = nullptr;

void start_timer()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { counts->signals++; }; // without SA_RESTART
    sigaction(SIGUSR1, &action, nullptr);
    watch::signal_after(SIGUSR1, 1'000'000, true);
}

// Keeps others waiting for the bus and for the EEPROMs, again and again.
bool keep_busy(const watch::Device &device)
{
    const ei2c_client *client = &device.job.client;
    while (!counts->stop) {
        int32_t fd = -1;
        int32_t semid = -1;
        if (ei2c_smbus_lock_adapter(client, &fd, &semid) != 0)
            return false;
        usleep(15000);
        if (ei2c_smbus_unlock_adapter(client, fd, semid) != 0 || ee_lock_eeprom() < 0)
            return false;
        usleep(15000);
        if (ee_unlock_eeprom() < 0)
            return false;
    }
    return true;
}

TEST(Signals, AThousandTimesASecondEndNoCall)
{
    Board board(reference_board(), "400k");
    counts = &shared<Counts>();
    const watch::Device busy = watch::device(board, "main-registers", 0);
    const pid_t holder = watch::start([&] { return keep_busy(busy); }, 300);
    EXPECT_TRUE(watch::succeeds([&] {
        start_timer();
        for (const char *name :
             {"main-registers", "id-registers", "board-status", "fru-eeprom", "log-eeprom",
              "riser-io", "slot1-leds", "riser-power", "slot0-retimer", "board-epld",
              "board-epld-pango", "board-epld-ef2", "card-epld3", "subcard-epld", "card-mctp"}) {
            uint64_t calls = 0;
            if (!watch::do_rounds(watch::device(board, name, 1), 0, kSanitized ? 13 : 27, &calls))
                return false;
            counts->calls += calls;
        }
        return true;
    }));
    counts->stop = true;
    EXPECT_EQ(watch::end_of(holder), 0);
    EXPECT_GT(counts->signals, 1000U);
    EXPECT_EQ(board.wrongs(), "");
    record_figure("signals.calls", counts->calls, "calls under a timer of 1 kHz");
    record_figure("signals.delivered", counts->signals, "signals");
}

} // namespace
