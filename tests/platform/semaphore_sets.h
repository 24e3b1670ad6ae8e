// The System V sets behind the semaphores, looked at from outside, for tests.
#ifndef TESTS_PLATFORM_SEMAPHORE_SETS_H
#define TESTS_PLATFORM_SEMAPHORE_SETS_H

#include "platform/qelplatform.h"

#include <gtest/gtest.h>
#include <sys/types.h>

constexpr uint32_t kForever = 65535;

// Replaces semget for the next `count` calls of this process: it fails with `error`, or gives
// 1'000'000 for 0.
void script_semget(int count, int error);

// What the set of a key says; -1 when there is none.
int value_of(uint32_t key);
int waiters_for(uint32_t key);
void remove_set(uint32_t key);

// Gives each test a key that no other test process uses, and removes the set afterwards.
class Semaphore : public testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;
    // Children that hold until they are killed, and that take and release once; they have begun to
    // hold, and to wait for who holds.
    pid_t start_holder() const;
    pid_t start_waiter() const;

    uint32_t key = 0;
    int32_t id = -1;
};

#endif
