// A process killed, or a thread cancelled, at each call that the library makes: nothing stays
// taken, and whoever comes next has the bus, and right bytes.
#include "figures.h"
#include "imports.h"
#include "watch.h"

#include "simboard/consistency.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

using simboard::testing::Board;
using simboard::testing::reference_board;

namespace
{

constexpr double kAtOnce = kSanitized ? 5000 : 1000; // ms, with room for a busy machine
constexpr int kStruck = 3;

enum Flags : uint8_t {
    kSlow = 1, // killed within calls that take their time on the wire, too
    kHold = 2, // holds the bus between its calls: a cancelled thread's hold is its process's
    kBusy = 4, // refuses the next access for a while
};

const struct Case {
    const char *device;
    uint64_t first, last; // rounds
    const char *plain;    // what the next one on that bus looks at, too
    uint8_t flags = 0;
} kCases[] = {
    {"board-status", 0, 1, "board-status", kSlow},
    {"psu0", 5, 11, "psu1", kSlow},                                 // SMBus
    {"id-registers", 0, 1, "main-registers", kSlow},                // behind two switches
    {"id-registers", 6, 7, "main-registers"},                       // by SMBus
    {"port0-registers", 2, 2, "main-registers", kSlow | kHold},     // with the path open,
    {"port0-registers", 3, 3, "main-registers", kHold},             // without,
    {"slot1-registers", 12, 12, "main-registers", kHold},           // by SMBus,
    {"card-registers", 4, 4, "backplane-registers", kSlow | kHold}, // and as a bridge
    {"log-eeprom", 0, 0, "main-registers", kBusy},
    {"log-eeprom", 3, 3, "main-registers", kHold}, // of the EEPROMs; not busy then
    {"riser-io", 0, 1, "main-registers"},
    {"slot1-leds", 0, 0, "main-registers"},
    {"riser-power", 0, 0, "main-registers"},
    {"slot0-retimer", 0, 1, "main-registers"},
    {"card-epld2", 0, 0, "backplane-registers"},
    {"subcard-epld", 0, 0, "backplane-registers"},
    {"card-mctp", 0, 0, "backplane-registers", kHold},
};

void kill_here()
{
    kill(getpid(), SIGKILL);
}

// A little later, so that the call has begun.
void kill_soon()
{
    watch::signal_after(SIGKILL, 150'000, false);
}

void cancel_here()
{
    pthread_cancel(pthread_self());
}

// In a process of its own, where `action` is done at call number `at`.
bool work(const watch::Device &victim, const watch::Device &next, const Case &row, long at,
          void (*action)())
{
    const auto rounds = [&] {
        imports::trap(at, action);
        return watch::do_rounds(victim, row.first, row.last);
    };
    if (action != cancel_here)
        return rounds();
    auto thread = [&] {
        (void)rounds();
        imports::trap(0, nullptr);
        pthread_testcancel();
    };
    if (watch::is_cancelled(watch::start_thread(thread)))
        _exit(watch::holds_nothing() && watch::do_rounds(next, row.first, row.last) ? kStruck : 1);
    return true;
}

// Does `action` at each call of a case, until that comes to its end before; returns how often.
unsigned at_each_call(const Board &board, const Case &row, void (*action)(), double &longest)
{
    SCOPED_TRACE(row.device + std::string(", round ") + std::to_string(row.first));
    const watch::Device victim = watch::device(board, row.device, 0);
    const bool busy = (row.flags & kBusy) != 0;
    const watch::Device next = watch::device(board, busy ? row.plain : row.device, 1);
    const watch::Device plain = watch::device(board, row.plain, 2);
    // Forks of a program under a sanitizer take their time.
    const long step = kSanitized ? 12 : 1;
    for (long at = 1; !testing::Test::HasFailure(); at += step) {
        const int status =
            watch::end_of(watch::start([&] { return work(victim, next, row, at, action); }));
        if (status == 0) {
            EXPECT_GT(at, 10);
            return static_cast<unsigned>((at - 1) / step);
        }
        const int64_t struck = bench::monotonic_nanoseconds();
        const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
        EXPECT_TRUE(action == cancel_here ? WEXITSTATUS(status) == kStruck : killed)
            << "at call " << at << ": " << status;
        EXPECT_EQ(watch::held_locks(), "") << "at call " << at;
        EXPECT_TRUE(watch::succeeds([&] {
            return watch::do_rounds(next, row.first, row.last) && watch::do_rounds(plain, 0, 0);
        })) << "after call "
            << at;
        longest =
            std::max(longest, static_cast<double>(bench::monotonic_nanoseconds() - struck) / 1e6);
    }
    return 0;
}

TEST(Kill, AtEachCallOfTheLibraryLeavesTheBusFree)
{
    unsigned kills = 0;
    double longest = 0;
    for (const bool instant : {true, false}) {
        Board board(reference_board(), instant ? "instant" : "400k");
        for (const Case &row : kCases) {
            if (instant || (!kSanitized && (row.flags & kSlow) != 0))
                kills += at_each_call(board, row, instant ? kill_here : kill_soon, longest);
        }
        EXPECT_EQ(board.wrongs(), "");
        EXPECT_TRUE(kSanitized || board.totals().orphaned_paths != 0);
        unsigned undone = 0;
        for (const simboard::Bus &bus : board.view().state->buses)
            undone += bus.recoveries.load();
        // On the wire of the slow board they died within transfers.
        EXPECT_EQ(undone == 0, instant || kSanitized);
        for (const auto &line :
             simboard::find_inconsistencies(board.view(), board.description(), 5000))
            ADD_FAILURE() << line;
    }
    EXPECT_LT(longest, kAtOnce);
    record_figure("kills.steps", kills, "kills");
    record_figure("kills.steps_next_access_max_us", static_cast<uint64_t>(longest * 1000), "us");
}

// The address sanitizer does not see that a cancelled thread's frames are gone.
#ifndef __SANITIZE_ADDRESS__
TEST(Cancel, AtEachCallOfTheLibraryIsPutOffUntilEverythingIsGivenBack)
{
    Board board(reference_board());
    unsigned cancelled = 0;
    double longest = 0;
    for (const Case &row : kCases) {
        if ((row.flags & kHold) == 0)
            cancelled += at_each_call(board, row, cancel_here, longest);
    }
    EXPECT_EQ(board.wrongs(), "");
    EXPECT_EQ(board.totals().orphaned_paths, 0U);
    record_figure("cancel.steps", cancelled, "cancellations at a call");
}
#endif

} // namespace
