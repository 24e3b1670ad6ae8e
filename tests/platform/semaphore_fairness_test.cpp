// Under contention every process gets its share of the turns.
#include "tests/platform/process.h"
#include "tests/platform/semaphore_sets.h"

#include <array>
#include <csignal>
#include <sys/time.h>
#include <unistd.h>

namespace
{

constexpr int kProcesses = 4;

struct Turns {
    std::atomic<int> total;
    std::array<std::atomic<int>, kProcesses> of;
};

// Takes turns of `microseconds` until all processes together have had `total`.
int take_turns(int32_t id, Turns *turns, int me, int total, useconds_t microseconds)
{
    bool more = true;
    while (more) {
        if (OAL_SemLockBySemId(id, kForever) != 0) {
            return 1;
        }
        usleep(microseconds);
        more = turns->total.fetch_add(1) < total;
        ++turns->of[static_cast<size_t>(me)];
        if (OAL_SemUnLockBySemId(id, kForever) != 0) {
            return 2;
        }
    }
    return 0;
}

// All processes start waiting while this one holds: none has a start over the others.
template <typename Body>
void compete(uint32_t key, int32_t id, const Body &body)
{
    ASSERT_EQ(OAL_SemLockBySemId(id, kForever), 0);
    std::vector<pid_t> children;
    for (int i = 0; i < kProcesses; ++i) {
        children.push_back(start_child([&body, i] { return body(i); }));
    }
    wait_until([key] { return waiters_for(key) == kProcesses; });
    ASSERT_EQ(OAL_SemUnLockBySemId(id, kForever), 0);
    for (const pid_t child : children) {
        EXPECT_EQ(end_of(child), 0);
    }
}

TEST_F(Semaphore, GivesEveryProcessItsShare)
{
    constexpr int kTotal = 800;
    const Shared<Turns> turns;
    compete(key, id, [&](int me) { return take_turns(id, turns.get(), me, kTotal, 200); });
    for (const auto &share : turns->of) {
        EXPECT_GT(share, kTotal / kProcesses / 2);
    }
}

// An interrupted waiter loses its place in the kernel's queue; it must be served all the same.
TEST_F(Semaphore, DoesNotStarveAProcessUnderSignals)
{
    constexpr int kTotal = 200;
    const Shared<Turns> turns;
    compete(key, id, [&](int me) {
        if (me == 0) {
            const SignalStorm storm; // faster than its turn comes: the others take 6 ms
            return take_turns(id, turns.get(), me, kTotal, 2000);
        }
        return take_turns(id, turns.get(), me, kTotal, 2000);
    });
    EXPECT_GT(turns->of[0], kTotal / kProcesses / 5);
}

} // namespace
