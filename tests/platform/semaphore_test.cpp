// Process-shared semaphores: creation, one holder at a time, who may release, and a fair share.
#include "tests/platform/semaphore_sets.h"

#include <array>
#include <climits>
#include <sched.h>
#include <sys/sem.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

// Of processes that take and release it, and notice when somebody else is inside too.
struct Turns {
    std::atomic<int> arrived, inside, crowded, all, interrupted;
};

bool take_turn(int32_t id, Turns &turns, useconds_t length)
{
    if (OAL_SemLockBySemId(id, kForever) != 0) {
        return false;
    }
    turns.crowded += turns.inside++ == 0 ? 0 : 1;
    usleep(length);
    ++turns.all;
    --turns.inside;
    return OAL_SemUnLockBySemId(id, kForever) == 0;
}

// Waits without sleeping, for a start at the same moment.
void meet(std::atomic<int> &arrived, int count)
{
    ++arrived;
    while (arrived < count) {
    }
}

void run_threads(size_t count, const std::function<void(size_t)> &body)
{
    std::vector<std::thread> threads;
    for (size_t i = 0; i < count; ++i) {
        threads.emplace_back(body, i);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

// Where there is more than one, threads on different ones run in parallel even when others work.
void stay_on_cpu(size_t cpu)
{
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(cpu, &cpus);
    sched_setaffinity(0, sizeof cpus, &cpus);
}

TEST_F(Semaphore, IsFreeWhenCreatedAndHeldByOneProcess)
{
    EXPECT_EQ(value_of(key), 0);
    EXPECT_EQ(OAL_SemCreate(key), id);
    EXPECT_TRUE(take());
    EXPECT_EQ(value_of(key), 1);
    EXPECT_TRUE(in_child(
        [this] { return outcome(OAL_SemLockBySemId(OAL_SemCreate(key), 0)) == -ETIMEDOUT; }));
    EXPECT_TRUE(release());
    EXPECT_EQ(value_of(key), 0);
}

TEST_F(Semaphore, TheDeadHoldNothingAndWaitForNothing)
{
    EXPECT_TRUE(in_child([this] { return take(); })) << "ends without a release";
    EXPECT_EQ(value_of(key), 0);
    const pid_t holder = start_holder();
    const pid_t heir = start_waiter();
    kill_child(holder);
    EXPECT_TRUE(ends_well(heir));
    EXPECT_EQ(value_of(key), 0);
    ASSERT_TRUE(take());
    kill_child(start_waiter());
    EXPECT_EQ(value_of(key), 1);
    EXPECT_TRUE(release());
    EXPECT_EQ(value_of(key), 0);
}

TEST_F(Semaphore, ProcessesThatCreateItAtOnceShareIt)
{
    constexpr int kProcesses = 4;
    for (int round = 0; round < 25; ++round) {
        auto &turns = shared<Turns>();
        std::vector<pid_t> children(kProcesses);
        for (pid_t &child : children) {
            child = start_child([&] {
                meet(turns.arrived, kProcesses);
                return take_turn(OAL_SemCreate(new_key), turns, 200);
            });
        }
        for (const pid_t child : children) {
            EXPECT_TRUE(ends_well(child));
        }
        EXPECT_EQ(turns.crowded, 0);
        remove_set(new_key);
    }
}

TEST_F(Semaphore, ThreadsThatCreateItAtOnceShareIt)
{
    const uint32_t other_key = new_key + 1;
    constexpr int kThreads = 8;
    std::array<int32_t, kThreads> ids{};
    std::array<int, 2>
        counts{}; // plain: the thread sanitizer checks that holding orders the accesses
    std::atomic<int> arrived{0};
    run_threads(kThreads, [&](size_t i) {
        meet(arrived, kThreads);
        ids[i] = OAL_SemCreate(i % 2 == 0 ? new_key : other_key);
        for (int turn = 0; turn < 250; ++turn) {
            EXPECT_EQ(OAL_SemLockBySemId(ids[i], kForever), 0);
            ++counts[i % 2];
            EXPECT_EQ(OAL_SemUnLockBySemId(ids[i], kForever), 0);
        }
    });
    for (size_t i = 2; i < kThreads; ++i) {
        EXPECT_EQ(ids[i], ids[i % 2]);
    }
    EXPECT_NE(ids[0], ids[1]);
    EXPECT_EQ(counts, (std::array{1000, 1000}));
    remove_set(other_key);
}

TEST_F(Semaphore, CreationIsRefusedForALackAndTriedAgain)
{
    EXPECT_EQ(outcome(OAL_SemCreate(0)), -EINVAL);
    for (const int error : {ENOSPC, EACCES}) {
        script_semget(1, error);
        EXPECT_EQ(outcome(OAL_SemCreate(new_key)), -error);
    }
    const int32_t new_id = OAL_SemCreate(new_key);
    EXPECT_EQ(OAL_SemLockBySemId(new_id, 0), 0);
    EXPECT_EQ(value_of(new_key), 1);
    EXPECT_TRUE(in_child([this] {
        script_semget(1000, 0); // no sets are made
        uint32_t created = 0;
        while (created < 1000 && OAL_SemCreate(0x10000 + created) >= 0) {
            ++created;
        }
        return errno == ENOSPC && created >= 17 && OAL_SemCreate(key) == id;
    })) << "handles are used up";
}

TEST_F(Semaphore, AReleaseWithoutAHoldIsAnError)
{
    const auto expect_refused = [this](const char *why, int value) {
        EXPECT_EQ(outcome(OAL_SemUnLockBySemId(id, kForever)), -EPERM) << why;
        EXPECT_EQ(value_of(key), value) << why;
    };
    for (const bool had_threads : {false, true}) { // a process without has a shorter way
        if (had_threads) {
            run_threads(1, [](size_t) {});
        }
        expect_refused("not held, or already released", 0);
        ASSERT_TRUE(take());
        ASSERT_TRUE(release());
        expect_refused("released twice", 0);
        const pid_t holder = start_holder();
        expect_refused("held by another process", 1);
        EXPECT_FALSE(take(0));
        kill_child(holder);
        ASSERT_TRUE(take());
        ASSERT_EQ(semctl(semget(static_cast<key_t>(key), 0, 0), 0, SETVAL, 0), 0);
        expect_refused("reset by somebody", 0);
    }
    for (const int32_t bad : {-1, INT_MIN, 63, 64, INT_MAX}) { // 63 is not in use
        EXPECT_EQ(outcome(OAL_SemLockBySemId(bad, kForever)), -EINVAL) << bad;
        EXPECT_EQ(outcome(OAL_SemUnLockBySemId(bad, kForever)), -EINVAL) << bad;
    }
}

TEST_F(Semaphore, AChildInheritsNoHold)
{
    ASSERT_TRUE(take());
    EXPECT_TRUE(in_child([this] {
        return outcome(OAL_SemUnLockBySemId(id, kForever)) == -EPERM &&
               outcome(OAL_SemLockBySemId(id, 0)) == -ETIMEDOUT;
    }));
    EXPECT_EQ(value_of(key), 1) << "the end of the child frees nothing";
    const pid_t waiter = start_waiter();
    EXPECT_TRUE(release());
    EXPECT_TRUE(ends_well(waiter)) << "a child can hold for itself";
}

// One thread may release for another. A second release would free the semaphore of the process that
// is next in line.
TEST_F(Semaphore, OfThreadsThatReleaseAtOnceOneReleases)
{
    constexpr int kHolds = 100'000;
    const int before = releases_tried();
    int holds = 0;
    std::atomic<bool> over{false};
    run_threads(2, [&](size_t i) {
        stay_on_cpu(i);
        while (i == 1 && !over) {
            release();
        }
        while (i == 0 && holds < kHolds && take(10'000)) {
            std::atomic<int> pause{holds++ % 128}; // so that the two meet at every step
            while (--pause > 0) {
            }
            release();
        }
        over = true;
    });
    EXPECT_EQ(holds, kHolds);
    EXPECT_EQ(releases_tried() - before, kHolds);
}

// An interrupted waiter loses its place in the kernel's queue; it must be served all the same. That
// those left alone are is shown with the whole library (stress.two_switches).
TEST_F(Semaphore, DoesNotStarveAProcessUnderSignals)
{
    constexpr int kProcesses = 4;
    constexpr int kTurns = 200;
    auto &turns = shared<Turns>();
    const auto take_turns = [&](std::atomic<int> &own) {
        for (; turns.all < kTurns; ++own) {
            if (!take_turn(id, turns, 2000)) {
                return false;
            }
        }
        return true;
    };
    ASSERT_TRUE(take()); // all wait before the first has its turn: none has a start over the others
    std::vector<pid_t> children = {start_child([&] {
        const SignalStorm storm; // faster than its turn comes: the others take 6 ms
        return take_turns(turns.interrupted);
    })};
    while (children.size() < kProcesses) {
        children.push_back(start_child([&] {
            std::atomic<int> ignored{0};
            return take_turns(ignored);
        }));
    }
    wait_until([this] { return waiters_for(key) == kProcesses; });
    ASSERT_TRUE(release());
    for (const pid_t child : children) {
        EXPECT_TRUE(ends_well(child));
    }
    EXPECT_EQ(turns.crowded, 0);
    EXPECT_GT(turns.interrupted, kTurns / kProcesses / 5);
}

} // namespace
