// Many threads come to a bus, a device or the owner table for the first time together.
#include "tests/unit/scripted_kernel.h"

#include "bus/ui2c_ioctls/core.h"
#include "include/qeli2c.h"

#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace scripted;

namespace
{

constexpr int thread_count = 32;

// Lets all threads loose at once; gives their results and the events they caused.
template <class Result, class Call>
std::vector<std::string> race(std::vector<Result> &results, const std::vector<Answer> &exceptions,
                              Call call)
{
    results.resize(thread_count);
    return observe(exceptions, [&] {
        std::atomic<int> waiting = thread_count;
        std::vector<std::thread> threads;
        for (int i = 0; i < thread_count; ++i)
            threads.emplace_back([&, i] {
                --waiting;
                while (waiting > 0)
                    std::this_thread::yield();
                results[static_cast<size_t>(i)] = call(i);
            });
        for (std::thread &thread : threads)
            thread.join();
    });
}

TEST(FirstUse, OfOneDeviceGivesAllThreadsTheSameRecord)
{
    const uint32_t bus = fresh_bus();
    std::vector<ui2c_client *> results;
    race(results, {}, [bus](int i) {
        return ui2c_to_client(bus, static_cast<uint16_t>(0x50 + i % 2), 0x00700071, 0);
    });
    EXPECT_EQ(std::set<ui2c_client *>(results.begin(), results.end()).size(), 2U);
    EXPECT_EQ(allocations(), 5U); // adapter, two switches, two clients
    EXPECT_EQ(results[0]->swi, results[1]->swi);
}

TEST(FirstUse, ThatFailsIsRepeatedByALaterCall)
{
    const uint32_t bus = fresh_bus();
    ui2c_adapter *adapter = ui2c_to_adapter(bus);
    std::vector<int32_t> results;
    const auto events = race(results, {{"sigwrap_open", 1, 1, -1, ENFILE}},
                             [adapter](int) { return ui2c_adapter_fd(adapter); });
    EXPECT_LE(
        std::count_if(events.begin(), events.end(),
                      [](const std::string &event) { return event.starts_with("sigwrap_open"); }),
        2);
    EXPECT_EQ(results.size(),
              static_cast<size_t>(std::count(results.begin(), results.end(), -1) +
                                  std::count(results.begin(), results.end(), fd_of(bus))));
    EXPECT_NE(std::count(results.begin(), results.end(), -1), 0);
    observe({}, [&] { EXPECT_EQ(ui2c_adapter_fd(adapter), fd_of(bus)); });
}

TEST(FirstUse, ReadersOfAKnownDeviceNeverWaitForABrokenLink)
{
    // Lookups rewrite the upstream link while others walk the same lists: nothing but the mutex may
    // order them.
    const uint32_t bus = fresh_bus();
    std::vector<ui2c_switch *> results;
    race(results, {}, [bus](int i) {
        for (int times = 0; times < 50; ++times)
            ui2c_to_client(bus, static_cast<uint16_t>(0x20 + times),
                           i % 2 != 0 ? 0x71U : 0x00700071U, 0);
        return ui2c_to_client(bus, 0x20, 0x71, 0)->swi;
    });
    EXPECT_EQ(std::set<ui2c_switch *>(results.begin(), results.end()).size(), 1U);
    EXPECT_EQ(allocations(), 3U + 50U);
}

TEST(FirstUse, GoingOnInTheParentDoesNotBlockAForkedChild)
{
    ui2c_adapter *adapter = ui2c_to_adapter(fresh_bus());
    Answer open = {"sigwrap_open"};
    open.meanwhile = [] {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            ui2c_adapter other = {};
            const bool has_data = __adapter_data(&other) != nullptr;
            end(); // what exit() does is no concern of the library
            exit(has_data ? 0 : 1);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    };
    begin({open});
    EXPECT_EQ(ui2c_adapter_fd(adapter), fd_of(adapter->bus));
    EXPECT_EQ(end().size(), 1U);
}

} // namespace
