// The System V sets behind the semaphores, looked at from outside, for tests.
#ifndef TESTS_PLATFORM_SEMAPHORE_SETS_H
#define TESTS_PLATFORM_SEMAPHORE_SETS_H

#include "platform/qelplatform.h"
#include "tests/platform/process.h"

#include <gtest/gtest.h>

constexpr uint32_t kForever = 65535;

// Replaces semget for the next `count` calls of this process: it fails with `error`, or gives
// 1'000'000 for 0.
void script_semget(int count, int error);

// How often the threads of this process have asked the kernel for a release.
int releases_tried();

// What the set of a key says; -1 when there is none.
int value_of(uint32_t key);
int waiters_for(uint32_t key);
void remove_set(uint32_t key);

// Gives each test two keys that no other test process uses, the first one's semaphore created, and
// removes the sets afterwards.
class Semaphore : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;
    bool take(uint32_t limit = kForever) const { return OAL_SemLockBySemId(id, limit) == 0; }
    bool release() const { return OAL_SemUnLockBySemId(id, kForever) == 0; }
    // Children that hold until they are killed, and that take and release once; they have begun to
    // hold, and to wait for who holds.
    pid_t start_holder() const;
    pid_t start_waiter() const;

    uint32_t key = 0, new_key = 0;
    int32_t id = -1;
};

#endif
