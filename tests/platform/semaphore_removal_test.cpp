// Semaphore sets that are removed under the processes that use them.
#include "tests/platform/process.h"
#include "tests/platform/semaphore_sets.h"

#include <array>
#include <cerrno>
#include <thread>
#include <unistd.h>

namespace
{

// The one error line a process writes when it notices the removal of the key's set.
bool is_removal_line(const std::string &line, uint32_t key)
{
    std::array<char, 16> hexadecimal{};
    snprintf(hexadecimal.data(), hexadecimal.size(), "0x%x", key);
    return line.find(hexadecimal.data()) != std::string::npos &&
           line.find("removed") != std::string::npos;
}

TEST_F(Semaphore, RemovedWhileIdleIsNoticedAndMadeAgain)
{
    remove_set(key);
    const CapturedErrors captured;
    EXPECT_EQ(OAL_SemLockBySemId(id, 0), 0);
    EXPECT_EQ(value_of(key), 1);
    EXPECT_EQ(OAL_SemUnLockBySemId(id, kForever), 0);
    EXPECT_EQ(OAL_SemLockBySemId(id, 0), 0);
    EXPECT_EQ(OAL_SemUnLockBySemId(id, kForever), 0);
    ASSERT_EQ(captured.lines().size(), 1U);
    EXPECT_TRUE(is_removal_line(captured.lines()[0], key)) << captured.lines()[0];
}

TEST_F(Semaphore, RemovedUnderAHolderIsAFailedRelease)
{
    ASSERT_EQ(OAL_SemLockBySemId(id, kForever), 0);
    remove_set(key);
    EXPECT_LT(OAL_SemUnLockBySemId(id, kForever), 0);
    EXPECT_EQ(errno, EIDRM);
    EXPECT_LT(OAL_SemUnLockBySemId(id, kForever), 0);
    EXPECT_EQ(errno, EPERM);
}

TEST_F(Semaphore, RemovedUnderWaitersTheyMeetAtTheNewSet)
{
    struct State {
        std::atomic<int> now;
        std::atomic<int> crowded;
        std::atomic<int> lines;
    };
    constexpr int kWaiters = 3;
    for (int round = 0; round < 10; ++round) {
        const Shared<State> state;
        const CapturedErrors
            captured; // keeps a line that this process should not write out of sight
        ASSERT_EQ(OAL_SemLockBySemId(id, kForever), 0);
        std::vector<pid_t> waiters;
        for (int i = 0; i < kWaiters; ++i) {
            waiters.push_back(start_child([&] {
                const CapturedErrors own;
                if (OAL_SemLockBySemId(id, kForever) != 0) {
                    return 1;
                }
                state->crowded += state->now.fetch_add(1) != 0 ? 1 : 0;
                usleep(1000);
                state->now.fetch_sub(1);
                if (OAL_SemUnLockBySemId(id, kForever) != 0) {
                    return 2;
                }
                const auto lines = own.lines();
                return lines.size() == 1 && is_removal_line(lines[0], key) ? 0 : 3;
            }));
        }
        wait_until([this] { return waiters_for(key) == kWaiters; });
        remove_set(key);
        for (const pid_t waiter : waiters) {
            EXPECT_EQ(end_of(waiter), 0);
        }
        EXPECT_EQ(state->crowded, 0);
        EXPECT_LT(OAL_SemUnLockBySemId(id, kForever), 0);
        EXPECT_EQ(errno, EIDRM);
        EXPECT_EQ(value_of(key), 0);
    }
}

TEST_F(Semaphore, AVoidHoldDoesNotReleaseTheNextOneOfTheSameProcess)
{
    ASSERT_EQ(OAL_SemLockBySemId(id, kForever), 0);
    const CapturedErrors captured;
    std::atomic<bool> held{false};
    std::atomic<bool> release{false};
    std::thread next([&] {
        EXPECT_EQ(OAL_SemLockBySemId(id, kForever), 0);
        held = true;
        wait_until([&] { return release.load(); });
        EXPECT_EQ(OAL_SemUnLockBySemId(id, kForever), 0);
    });
    wait_until([this] { return waiters_for(key) == 1; });
    remove_set(key);
    wait_until([&] { return held.load(); });
    EXPECT_LT(OAL_SemUnLockBySemId(id, kForever), 0);
    EXPECT_EQ(errno, EIDRM);
    EXPECT_EQ(value_of(key), 1);
    release = true;
    next.join();
    EXPECT_EQ(value_of(key), 0);
    EXPECT_EQ(captured.lines().size(), 1U);
}

TEST_F(Semaphore, ThatCannotBeMadeAgainEndsTheWait)
{
    remove_set(key);
    const CapturedErrors captured;
    script_semget(1, ENOSPC);
    EXPECT_LT(OAL_SemLockBySemId(id, kForever), 0);
    EXPECT_EQ(errno, ENOSPC);
    ASSERT_EQ(captured.lines().size(), 1U);
    EXPECT_TRUE(is_removal_line(captured.lines()[0], key));
    script_semget(2, 0); // gives twice an id that does not exist
    EXPECT_LT(OAL_SemLockBySemId(id, kForever), 0);
    EXPECT_EQ(errno, EIDRM);
    EXPECT_EQ(OAL_SemLockBySemId(id, kForever), 0) << "the next call tries again";
    EXPECT_EQ(OAL_SemUnLockBySemId(id, kForever), 0);
}

} // namespace
