// Semaphore sets that are removed under the processes that use them.
#include "tests/platform/semaphore_sets.h"

#include <sstream>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

// While it exists, standard error is captured; all that is written there tells of the removal.
class RemovedSemaphore : public Semaphore
{
protected:
    void SetUp() override
    {
        Semaphore::SetUp();
        testing::internal::CaptureStderr();
    }
    void expect_told(int times) const
    {
        std::ostringstream name;
        name << "semaphore 0x" << std::hex << key << " was removed";
        std::istringstream lines(testing::internal::GetCapturedStderr());
        for (std::string line; std::getline(lines, line); --times) {
            EXPECT_NE(line.find(name.str()), std::string::npos) << line;
        }
        EXPECT_EQ(times, 0);
    }
    int release_error() const { return -outcome(OAL_SemUnLockBySemId(id, kForever)); }
};

TEST_F(RemovedSemaphore, IsMadeAgainAtTheNextTake)
{
    for (int round = 0; round < 2; ++round) {
        remove_set(key);
        EXPECT_TRUE(take(0)) << "removed while idle";
        EXPECT_EQ(value_of(key), 1);
        EXPECT_TRUE(release());
        EXPECT_TRUE(take(0)) << "told once";
        remove_set(key);
        EXPECT_EQ(release_error(), EIDRM);
        EXPECT_EQ(release_error(), EPERM);
    }
    expect_told(2);
}

TEST_F(RemovedSemaphore, WaitersMeetAtTheNewSet)
{
    struct State {
        std::atomic<int> now, crowded;
    };
    constexpr int kRounds = 10;
    constexpr int kWaiters = 3;
    auto &state = shared<State>();
    for (int round = 0; round < kRounds; ++round) {
        ASSERT_TRUE(take());
        std::vector<pid_t> waiters(kWaiters);
        for (pid_t &waiter : waiters) {
            waiter = start_child([&] {
                const bool taken = take();
                state.crowded += state.now++ == 0 ? 0 : 1;
                usleep(1000);
                --state.now;
                return taken && release();
            });
        }
        wait_until([this] { return waiters_for(key) == kWaiters; });
        remove_set(key);
        for (const pid_t waiter : waiters) {
            EXPECT_TRUE(ends_well(waiter));
        }
        EXPECT_EQ(release_error(), EIDRM);
        EXPECT_EQ(value_of(key), 0);
    }
    EXPECT_EQ(state.crowded, 0);
    // Each waiter tells, and from the second round on the process that held.
    expect_told(kRounds * kWaiters + kRounds - 1);
}

TEST_F(RemovedSemaphore, AVoidHoldDoesNotReleaseTheNextOneOfTheSameProcess)
{
    ASSERT_TRUE(take());
    std::atomic<bool> held{false}, may_release{false};
    std::thread next([&] {
        EXPECT_TRUE(take());
        held = true;
        wait_until([&] { return may_release.load(); });
        EXPECT_TRUE(release());
    });
    wait_until([this] { return waiters_for(key) == 1; });
    remove_set(key);
    wait_until([&] { return held.load(); });
    EXPECT_EQ(release_error(), EIDRM);
    EXPECT_EQ(value_of(key), 1);
    may_release = true;
    next.join();
    EXPECT_EQ(value_of(key), 0);
    expect_told(1);
}

TEST_F(RemovedSemaphore, EndsTheWaitWhenItCannotBeMadeAgain)
{
    remove_set(key);
    script_semget(1, ENOSPC);
    EXPECT_EQ(outcome(OAL_SemLockBySemId(id, kForever)), -ENOSPC);
    script_semget(2, 0); // gives twice an id that does not exist
    EXPECT_EQ(outcome(OAL_SemLockBySemId(id, kForever)), -EIDRM);
    EXPECT_TRUE(take()) << "the next call tries again";
    EXPECT_TRUE(release());
    expect_told(4);
}

} // namespace
