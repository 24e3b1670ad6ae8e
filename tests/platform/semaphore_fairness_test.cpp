// Under contention a process that is interrupted all the time gets its share too; that those left
// alone do is shown with the whole library (stress.two_switches).
#include "tests/platform/process.h"
#include "tests/platform/semaphore_sets.h"

#include <unistd.h>

namespace
{

struct Turns {
    std::atomic<int> all, interrupted;
};

// An interrupted waiter loses its place in the kernel's queue; it must be served all the same.
TEST_F(Semaphore, DoesNotStarveAProcessUnderSignals)
{
    constexpr int kProcesses = 4;
    constexpr int kTotal = 200;
    const Shared<Turns> turns;
    const auto take_turns = [&](std::atomic<int> *own) {
        for (bool more = true; more;) {
            if (OAL_SemLockBySemId(id, kForever) != 0) {
                return 1;
            }
            usleep(2000);
            more = turns->all.fetch_add(1) < kTotal;
            *own += 1;
            if (OAL_SemUnLockBySemId(id, kForever) != 0) {
                return 2;
            }
        }
        return 0;
    };
    // All start waiting while this process holds: none has a start over the others.
    ASSERT_EQ(OAL_SemLockBySemId(id, kForever), 0);
    std::vector<pid_t> children = {start_child([&] {
        const SignalStorm storm; // faster than its turn comes: the others take 6 ms
        return take_turns(&turns->interrupted);
    })};
    while (children.size() < kProcesses) {
        children.push_back(start_child([&] {
            std::atomic<int> ignored{0};
            return take_turns(&ignored);
        }));
    }
    wait_until([this] { return waiters_for(key) == kProcesses; });
    ASSERT_EQ(OAL_SemUnLockBySemId(id, kForever), 0);
    for (const pid_t child : children) {
        EXPECT_EQ(end_of(child), 0);
    }
    EXPECT_GT(turns->interrupted, kTotal / kProcesses / 5);
}

} // namespace
