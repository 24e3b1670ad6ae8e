// Process-shared semaphores: creation, one holder at a time, and who may release.
#include "tests/platform/process.h"
#include "tests/platform/semaphore_sets.h"

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <functional>
#include <sys/sem.h>
#include <thread>
#include <unistd.h>

namespace
{

// Takes and releases, and counts when somebody else was inside too.
struct Inside {
    std::atomic<int> now;
    std::atomic<int> crowded;
    std::atomic<int> turns;
};

int take_turn(int32_t id, Inside *inside)
{
    if (OAL_SemLockBySemId(id, kForever) != 0) {
        return 1;
    }
    if (inside->now.fetch_add(1) != 0) {
        ++inside->crowded;
    }
    usleep(200);
    ++inside->turns;
    inside->now.fetch_sub(1);
    return OAL_SemUnLockBySemId(id, kForever) == 0 ? 0 : 2;
}

void run_threads(int count, const std::function<void(size_t)> &body)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(body, static_cast<size_t>(i));
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

TEST_F(Semaphore, IsFreeWhenCreatedAndHeldOnce)
{
    EXPECT_EQ(value_of(key), 0);
    EXPECT_EQ(OAL_SemCreate(key), id);
    EXPECT_EQ(OAL_SemLockBySemId(id, kForever), 0);
    EXPECT_EQ(value_of(key), 1);
    EXPECT_EQ(end_of(start_child([this] {
                  return OAL_SemLockBySemId(OAL_SemCreate(key), 0) < 0 && errno == ETIMEDOUT ? 0
                                                                                             : 1;
              })),
              0);
    EXPECT_EQ(OAL_SemUnLockBySemId(id, kForever), 0);
    EXPECT_EQ(value_of(key), 0);
}

TEST_F(Semaphore, ADeadHolderFreesIt)
{
    for (const int death : {SIGKILL, SIGTERM, 0}) { // 0: ends without releasing
        const pid_t holder = start_child([&] {
            if (OAL_SemLockBySemId(id, kForever) != 0) {
                return 1;
            }
            return death == 0 ? 0 : raise(death);
        });
        EXPECT_EQ(end_of(holder), death == 0 ? 0 : 128 + death);
        EXPECT_EQ(value_of(key), 0);
    }
}

TEST_F(Semaphore, AWaiterFollowsAKilledHolder)
{
    const pid_t holder = start_holder();
    const pid_t waiter = start_waiter();
    kill_child(holder);
    EXPECT_EQ(end_of(waiter), 0);
    EXPECT_EQ(value_of(key), 0);
}

TEST_F(Semaphore, AKilledWaiterLeavesNoTrace)
{
    ASSERT_EQ(OAL_SemLockBySemId(id, kForever), 0);
    const pid_t waiter = start_waiter();
    kill_child(waiter);
    EXPECT_EQ(value_of(key), 1);
    EXPECT_EQ(OAL_SemUnLockBySemId(id, kForever), 0);
    EXPECT_EQ(value_of(key), 0);
}

TEST_F(Semaphore, WaitingSurvivesSignals)
{
    for (const uint32_t limit : {kForever, 60'000U}) {
        ASSERT_EQ(OAL_SemLockBySemId(id, kForever), 0);
        const pid_t waiter = start_child([&] {
            const SignalStorm storm;
            return OAL_SemLockBySemId(id, limit);
        });
        SignalStorm::wait_for_signals();
        EXPECT_EQ(OAL_SemUnLockBySemId(id, kForever), 0);
        EXPECT_EQ(end_of(waiter), 0);
    }
}

TEST_F(Semaphore, ATimeLimitIsKeptDespiteSignals)
{
    const pid_t holder = start_holder();
    for (const uint32_t limit : {0U, 1U, 100U, 700U}) {
        const SignalStorm storm;
        const int64_t start = monotonic_milliseconds();
        EXPECT_LT(OAL_SemLockBySemId(id, limit), 0);
        EXPECT_EQ(errno, ETIMEDOUT);
        EXPECT_GE(monotonic_milliseconds() - start + 1, limit);
    }
    kill_child(holder);
    EXPECT_EQ(OAL_SemLockBySemId(id, 0), 0);
}

TEST_F(Semaphore, ProcessesThatCreateItAtOnceShareIt)
{
    constexpr int kProcesses = 4;
    struct Round {
        std::atomic<int> arrived;
        Inside inside;
    };
    for (int round = 0; round < 25; ++round) {
        remove_set(key);
        const Shared<Round> shared;
        std::vector<pid_t> children;
        for (int i = 0; i < kProcesses; ++i) {
            children.push_back(start_child([&] {
                ++shared->arrived;
                while (shared->arrived < kProcesses) {
                }
                const int32_t mine = OAL_SemCreate(key + 0x80); // not known to the parent
                return mine < 0 ? 3 : take_turn(mine, &shared->inside);
            }));
        }
        for (const pid_t child : children) {
            EXPECT_EQ(end_of(child), 0);
        }
        EXPECT_EQ(shared->inside.turns, kProcesses);
        EXPECT_EQ(shared->inside.crowded, 0);
        remove_set(key + 0x80);
    }
}

TEST_F(Semaphore, ThreadsThatCreateItAtOnceGetOneHandle)
{
    constexpr int kThreads = 8;
    const uint32_t new_key = key + 0x80;
    std::array<int32_t, kThreads> ids{};
    std::atomic<int> arrived{0};
    run_threads(kThreads, [&](size_t i) {
        ++arrived;
        while (arrived < kThreads) {
        }
        ids[i] = OAL_SemCreate(new_key);
    });
    for (const int32_t result : ids) {
        EXPECT_EQ(result, ids[0]);
    }
    EXPECT_NE(ids[0], id);
    remove_set(new_key);
}

TEST_F(Semaphore, ThreadsExcludeEachOther)
{
    int count = 0; // plain: the thread sanitizer checks that holding orders the accesses
    run_threads(4, [&](size_t) {
        for (int turn = 0; turn < 500; ++turn) {
            EXPECT_EQ(OAL_SemLockBySemId(id, kForever), 0);
            ++count;
            EXPECT_EQ(OAL_SemUnLockBySemId(id, kForever), 0);
        }
    });
    EXPECT_EQ(count, 2000);
}

TEST_F(Semaphore, AFailedCreationIsTriedAgain)
{
    const uint32_t new_key = key + 0x80;
    for (const int error : {ENOSPC, EACCES}) {
        script_semget(1, error);
        EXPECT_LT(OAL_SemCreate(new_key), 0);
        EXPECT_EQ(errno, error);
    }
    const int32_t new_id = OAL_SemCreate(new_key);
    EXPECT_GE(new_id, 0);
    EXPECT_EQ(OAL_SemLockBySemId(new_id, 0), 0);
    EXPECT_EQ(value_of(new_key), 1);
    remove_set(new_key);
}

TEST_F(Semaphore, OnlySoManyKeysHaveAHandle)
{
    EXPECT_EQ(end_of(start_child([this] {
                  script_semget(1000, 0); // no sets are made
                  int32_t last = 0;
                  uint32_t created = 0;
                  while (created < 1000 && (last = OAL_SemCreate(0x10000 + created)) >= 0) {
                      ++created;
                  }
                  const int reason = errno;
                  script_semget(0, 0);
                  return reason == ENOSPC && created >= 17 && OAL_SemCreate(key) == id ? 0 : 1;
              })),
              0);
}

TEST_F(Semaphore, AReleaseWithoutAHoldIsAnError)
{
    const auto expect_refused = [this](const char *why, int value) {
        EXPECT_LT(OAL_SemUnLockBySemId(id, kForever), 0) << why;
        EXPECT_EQ(errno, EPERM) << why;
        EXPECT_EQ(value_of(key), value) << why;
    };
    expect_refused("never held", 0);
    ASSERT_EQ(OAL_SemLockBySemId(id, kForever), 0);
    ASSERT_EQ(OAL_SemUnLockBySemId(id, kForever), 0);
    expect_refused("released twice", 0);
    const pid_t holder = start_holder();
    expect_refused("held by another process", 1);
    EXPECT_LT(OAL_SemLockBySemId(id, 0), 0);
    kill_child(holder);
    ASSERT_EQ(OAL_SemLockBySemId(id, kForever), 0);
    ASSERT_EQ(semctl(semget(static_cast<key_t>(key), 0, 0), 0, SETVAL, 0), 0);
    expect_refused("reset by somebody", 0);
}

TEST_F(Semaphore, AChildInheritsNoHold)
{
    ASSERT_EQ(OAL_SemLockBySemId(id, kForever), 0);
    EXPECT_EQ(end_of(start_child([this] {
                  if (OAL_SemUnLockBySemId(id, kForever) >= 0 || errno != EPERM) {
                      return 1;
                  }
                  return OAL_SemLockBySemId(id, 0) < 0 && errno == ETIMEDOUT ? 0 : 2;
              })),
              0);
    EXPECT_EQ(value_of(key), 1) << "the end of the child frees nothing";
    const pid_t waiter = start_waiter();
    EXPECT_EQ(OAL_SemUnLockBySemId(id, kForever), 0);
    EXPECT_EQ(end_of(waiter), 0) << "a child can hold for itself";
}

TEST_F(Semaphore, OneThreadMayReleaseForAnother)
{
    std::thread([this] { EXPECT_EQ(OAL_SemLockBySemId(id, kForever), 0); }).join();
    EXPECT_EQ(value_of(key), 1);
    EXPECT_EQ(OAL_SemUnLockBySemId(id, kForever), 0);
    EXPECT_EQ(value_of(key), 0);
}

TEST_F(Semaphore, WhatIsNoHandleOrKeyIsRefused)
{
    for (const int32_t bad : {-1, INT_MIN, 63, 64, INT_MAX}) { // 63 is not in use
        EXPECT_LT(OAL_SemLockBySemId(bad, kForever), 0) << bad;
        EXPECT_EQ(errno, EINVAL);
        EXPECT_LT(OAL_SemUnLockBySemId(bad, kForever), 0) << bad;
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_LT(OAL_SemCreate(0), 0);
    EXPECT_EQ(errno, EINVAL);
}

} // namespace
