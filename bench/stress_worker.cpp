// One worker of the load: writes, reads back, compares.
#include "device_work.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace bench
{

namespace
{

using Pattern = std::array<uint8_t, 1 + kLargestWindow>; // the register number, then the values

bool draw(const Plan &plan, Shared &shared)
{
    if (shared.stop.load(std::memory_order_relaxed))
        return false;
    if (plan.transfers)
        return shared.drawn.fetch_add(1, std::memory_order_relaxed) < plan.transfers;
    return monotonic_nanoseconds() < shared.deadline.load(std::memory_order_relaxed);
}

bool timed_transfer(const Job &job, i2c_msg *messages, uint32_t count, Worker &result)
{
    return attempt(result, static_cast<int32_t>(count),
                   [&] { return ei2c_rdwr_xfer(&job.client, messages, count); });
}

Pattern make_pattern(const Job &job, uint64_t sequence)
{
    Pattern pattern{job.window.first};
    for (uint32_t i = 0; i < job.window.size; i++)
        pattern[1 + i] = pattern_byte(job.number, sequence, i);
    return pattern;
}

bool write_pattern(const Job &job, Pattern &pattern, Worker &result)
{
    i2c_msg message{job.client.addr, 0, static_cast<uint16_t>(1 + job.window.size), pattern.data()};
    return timed_transfer(job, &message, 1, result);
}

bool read_window(const Job &job, std::array<uint8_t, kLargestWindow> &values, Worker &result)
{
    uint8_t first = job.window.first;
    i2c_msg messages[2] = {{job.client.addr, 0, 1, &first},
                           {job.client.addr, I2C_M_RD, job.window.size, values.data()}};
    return timed_transfer(job, messages, 2, result);
}

void compare(const Job &job, const Pattern &pattern,
             const std::array<uint8_t, kLargestWindow> &values, Worker &result)
{
    for (uint32_t i = 0; i < job.window.size; i++) {
        if (values[i] != pattern[1 + i])
            note_wrong_byte(result, job.window.first + i, pattern[1 + i], values[i]);
    }
}

// What a killed worker was writing is there, or what it had written before. Returns which.
uint64_t check_inheritance(const Job &job, Worker &result)
{
    const uint64_t sequence = result.sequence;
    std::array<uint8_t, kLargestWindow> values{};
    if (sequence < 2)
        return 0;
    if (!read_window(job, values, result))
        return sequence;
    const Pattern last = make_pattern(job, sequence);
    if (std::equal(values.begin(), values.begin() + job.window.size, last.begin() + 1))
        return sequence;
    compare(job, make_pattern(job, sequence - 1), values, result);
    return sequence - 1;
}

// By one kind of transfer alone: the shares of the workers can be compared.
void fill_registers(const Plan &plan, Shared &shared, const Job &job, Worker &result)
{
    uint64_t sequence = check_inheritance(job, result);
    while (draw(plan, shared)) {
        result.sequence = ++sequence;
        Pattern pattern = make_pattern(job, sequence);
        std::array<uint8_t, kLargestWindow> values{};
        if (write_pattern(job, pattern, result) && draw(plan, shared) &&
            read_window(job, values, result))
            compare(job, pattern, values, result);
    }
}

void do_rounds(const Plan &plan, Shared &shared, const Job &job, Work work, Worker &result)
{
    uint64_t done = result.transfers;
    while (draw(plan, shared)) {
        work(job, result.sequence.fetch_add(1), result);
        const uint64_t now = result.transfers;
        shared.drawn.fetch_add(now > done ? now - done - 1 : 0, std::memory_order_relaxed);
        done = now;
    }
}

} // namespace

int64_t monotonic_nanoseconds()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

std::optional<Window> window_of(const Plan &plan, uint32_t worker)
{
    const auto devices = static_cast<uint32_t>(plan.devices.size());
    const uint32_t workers = plan.processes * plan.threads;
    const uint32_t sharing = (workers + devices - 1) / devices; // workers on the busiest device
    const uint32_t size = std::min(kRegisters / sharing, kLargestWindow);
    if (size < kSmallestWindow)
        return std::nullopt;
    return Window{static_cast<uint8_t>(worker / devices * size), static_cast<uint8_t>(size)};
}

void work(const Plan &plan, Shared &shared, uint32_t worker)
{
    Worker &result = shared.workers[worker];
    const auto devices = static_cast<uint32_t>(plan.devices.size());
    const uint32_t first = worker % devices; // of the device's workers
    const tool::Target &device = plan.devices[first];
    const bool alone = first + devices >= plan.processes * plan.threads;
    const Job job{to_client(device.path), *window_of(plan, worker), worker, alone, plan.faulty};
    const Work rounds = work_on(device.type);
    if (rounds == work_on("registers") && !plan.mixed)
        fill_registers(plan, shared, job, result);
    else
        do_rounds(plan, shared, job, rounds, result);
}

} // namespace bench
