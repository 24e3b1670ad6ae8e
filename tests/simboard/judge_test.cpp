// The judge: what it counts, and what it lets pass.
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/sem.h>
#include <sys/wait.h>

#include <csignal>
#include <functional>
#include <thread>

#include "child.h"
#include "device.h"
#include "simboard/testing.h"
#include "simboard/trace_reader.h"

namespace
{

using simboard::Counters;
using simboard::testing::Board;
using simboard::testing::reference_board;

constexpr uint16_t kSwitch = 0x70;

TEST(ForeignTransfer, InsideTheOpenPathOfALiveTaskOnly)
{
    Board board(reference_board());
    const Device bus(4);
    Child owner([] {
        const Device own(4);
        return own.write(kSwitch, {0x20}) == 1 && own.write(0x21, {0}) == 1;
    });
    ASSERT_TRUE(owner.wait_ready());
    EXPECT_EQ(board.totals(4).foreign_transfers, 0U);

    EXPECT_EQ(bus.write(0x60, {0}), 1);
    EXPECT_EQ(board.totals(4).foreign_transfers, 1U);
    EXPECT_EQ(Device(7).write(0x30, {0}), 1); // another bus
    EXPECT_EQ(board.totals().foreign_transfers, 1U);

    owner.kill_and_reap();
    EXPECT_EQ(bus.write(0x60, {0}), 1);
    EXPECT_EQ(bus.write(0x60, {0}), 1);
    EXPECT_EQ(board.totals(4).foreign_transfers, 1U);
    EXPECT_EQ(board.totals(4).orphaned_paths, 1U); // a path is found orphaned once
    EXPECT_EQ(board.trace(4).at(2).findings, simboard::kFindingForeign);
    EXPECT_EQ(board.trace(4).at(3).findings, simboard::kFindingOrphan);
}

TEST(ForeignTransfer, AZombieHoldsNoPath)
{
    Board board(reference_board());
    const Device bus(4);
    Child owner([] { return Device(4).write(kSwitch, {0x20}) == 1; });
    ASSERT_TRUE(owner.wait_ready());
    owner.kill_and_leave();
    EXPECT_EQ(bus.write(0x60, {0}), 1);
    EXPECT_EQ(board.totals(4).foreign_transfers, 0U);
    EXPECT_EQ(board.totals(4).orphaned_paths, 1U);
}

TEST(ForeignTransfer, ThreadsAreTasksOfTheirOwn)
{
    Board board(reference_board());
    const Device bus(4);
    ASSERT_EQ(bus.write(kSwitch, {0x20}), 1);
    std::thread([&bus] { EXPECT_EQ(bus.write(0x60, {0}), 1); }).join();
    EXPECT_EQ(board.totals(4).foreign_transfers, 1U);
    ASSERT_EQ(bus.write(kSwitch, {0x00}), 1);
    std::thread([&bus] { EXPECT_EQ(bus.write(0x60, {0}), 1); }).join();
    EXPECT_EQ(board.totals(4).foreign_transfers, 1U);
}

int record_lock(int fd, int command, short type, short whence = SEEK_SET)
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = whence;
    return fcntl(fd, command, &lock);
}

struct LockKind {
    const char *name;
    std::function<int(int)> take;
    std::function<int(int)> release;
};

const LockKind LOCK_KINDS[] = {
    {"record lock", [](int fd) { return record_lock(fd, F_SETLKW, F_WRLCK); },
     [](int fd) { return record_lock(fd, F_SETLK, F_UNLCK); }},
    {"record lock from the offset",
     [](int fd) { return record_lock(fd, F_SETLK, F_WRLCK, SEEK_CUR); },
     [](int fd) { return record_lock(fd, F_SETLKW, F_UNLCK, SEEK_CUR); }},
    {"lock of the open file", [](int fd) { return record_lock(fd, F_OFD_SETLK, F_WRLCK); },
     [](int fd) { return record_lock(fd, F_OFD_SETLK, F_UNLCK); }},
    {"flock", [](int fd) { return flock(fd, LOCK_EX); }, [](int fd) { return flock(fd, LOCK_UN); }},
    {"lockf", [](int fd) { return lockf(fd, F_LOCK, 0); },
     [](int fd) { return lockf(fd, F_ULOCK, 0); }},
};

TEST(PathLeftOpen, CountsAtTheReleaseOfAnyFileLock)
{
    for (const LockKind &kind : LOCK_KINDS) {
        SCOPED_TRACE(kind.name);
        Board board(reference_board());
        const Device bus(4);
        ASSERT_EQ(kind.take(bus.fd()), 0);
        ASSERT_EQ(bus.write(kSwitch, {0x20}), 1);
        ASSERT_EQ(bus.write(kSwitch, {0x00}), 1);
        ASSERT_EQ(kind.release(bus.fd()), 0);
        EXPECT_EQ(board.wrongs(), "");

        ASSERT_EQ(kind.take(bus.fd()), 0);
        ASSERT_EQ(bus.write(kSwitch, {0x20}), 1);
        ASSERT_EQ(kind.release(bus.fd()), 0);
        EXPECT_EQ(board.totals(4).paths_left_open, 1U);
        EXPECT_EQ(board.totals(4).unbalanced_unlocks, 0U);
    }
}

TEST(PathLeftOpen, SomebodyElsesPathIsNotTheReleasers)
{
    Board board(reference_board());
    Child owner([] { return Device(4).write(kSwitch, {0x20}) == 1; });
    ASSERT_TRUE(owner.wait_ready());
    const Device bus(4);
    ASSERT_EQ(record_lock(bus.fd(), F_SETLK, F_WRLCK), 0);
    ASSERT_EQ(record_lock(bus.fd(), F_SETLK, F_UNLCK), 0);
    EXPECT_EQ(board.wrongs(), "");
}

TEST(UnbalancedUnlock, AReleaseWithoutALock)
{
    Board board(reference_board());
    const Device bus(4);
    EXPECT_EQ(record_lock(bus.fd(), F_SETLK, F_UNLCK), 0);
    EXPECT_EQ(board.totals(4).unbalanced_unlocks, 1U);
    EXPECT_EQ(record_lock(bus.fd(), F_SETLK, F_WRLCK), 0);
    EXPECT_EQ(record_lock(bus.fd(), F_SETLK, F_UNLCK), 0);
    EXPECT_EQ(board.totals(4).unbalanced_unlocks, 1U);
}

// Locks that depend on the offset would not meet, since the offset holds what each descriptor was
// told.
TEST(FileLock, ExcludesOtherProcessesWhateverTheAddress)
{
    Board board(reference_board());
    const Device bus(4);
    ASSERT_EQ(bus.request(I2C_SLAVE, 0x60), 0);
    ASSERT_EQ(lockf(bus.fd(), F_TLOCK, 1), 0);
    Child other([] {
        const Device own(4);
        return own.request(I2C_SLAVE, 0x21) == 0 && lockf(own.fd(), F_TEST, 1) == -1 &&
               errno == EACCES && lockf(own.fd(), F_TLOCK, 1) == -1;
    });
    EXPECT_TRUE(other.wait_ready());
}

TEST(Counters, BelongToTheProcessThatMadeThem)
{
    Board board(reference_board());
    const Device bus(7);
    EXPECT_EQ(bus.write(0x30, {0, 1, 2}), 1);
    EXPECT_EQ(bus.write(0x31, {0}), -ENXIO);
    Child other([] { return Device(0).write(0x20, {5}) == 1; });
    ASSERT_TRUE(other.wait_ready());
    const auto processes = read_counters(board.view());
    ASSERT_EQ(processes.size(), 2U);
    EXPECT_EQ(processes[0].pid, getpid());
    EXPECT_EQ(processes[1].pid, other.pid());
    const Counters &own = processes[0].by_bus[7];
    EXPECT_EQ(own.transfers, 2U);
    EXPECT_EQ(own.messages, 1U);
    EXPECT_EQ(own.bytes, 3U);
    EXPECT_EQ(own.failed, 1U);
    EXPECT_EQ(own.address_nacks, 1U);
    EXPECT_EQ(processes[1].by_bus[0].transfers, 1U);
    EXPECT_EQ(processes[1].by_bus[7].transfers, 0U);
}

TEST(Counters, NothingIsLostWhenManyProcessesComeAndGo)
{
    Board board(reference_board());
    // More than there are records; fewer where making a process takes a tenth of a second.
    constexpr unsigned MANY = kSanitized ? 20 : simboard::kProcesses + 50;
    for (unsigned i = 0; i < MANY; i++) {
        Child child([] { return Device(7).write(0x30, {0}) == 1; });
        ASSERT_TRUE(child.wait_ready());
        child.kill_and_reap();
    }
    EXPECT_EQ(board.totals(7).transfers, MANY);
    EXPECT_LE(read_counters(board.view()).size(), simboard::kProcesses);
}

bool operate(int semaphore, short change)
{
    sembuf operations[] = {{0, 0, 0}, {0, change, SEM_UNDO}};
    const bool takes = change > 0;
    return semop(semaphore, takes ? operations : operations + 1, takes ? 2 : 1) == 0;
}

// The locks that keep others off bus 4, each taken and given back.
bool switch_lock(const std::string &kind, const Device &bus, bool on)
{
    if (kind == "semaphore") {
        return operate(semget(0x3064, 1, IPC_CREAT | 0600), on ? 1 : -1);
    }
    return kind == "flock" ? flock(bus.fd(), on ? LOCK_EX : LOCK_UN) == 0
                           : record_lock(bus.fd(), F_SETLKW, on ? F_WRLCK : F_UNLCK) == 0;
}

TEST(Locks, HoldsAndWaitsAreTimed)
{
    constexpr uint64_t HELD_NS = 20'000'000;
    for (const char *kind : {"semaphore", "flock", "record lock"}) {
        SCOPED_TRACE(kind);
        Board board(reference_board());
        // Again until this process came early enough to wait.
        for (int tries = 0; tries < 100 && board.totals(4).longest_wait_ns < HELD_NS / 2; tries++) {
            int ends[2];
            ASSERT_EQ(pipe(ends), 0);
            const pid_t child = fork();
            if (child == 0) {
                const Device bus(4);
                bool good = switch_lock(kind, bus, true) && write(ends[1], "x", 1) == 1;
                usleep(HELD_NS / 1000);
                good = switch_lock(kind, bus, false) && good;
                _exit(good ? 0 : 1);
            }
            char byte;
            ASSERT_EQ(read(ends[0], &byte, 1), 1);
            const Device bus(4);
            EXPECT_TRUE(switch_lock(kind, bus, true));
            EXPECT_TRUE(switch_lock(kind, bus, false));
            int status;
            EXPECT_EQ(waitpid(child, &status, 0), child);
            EXPECT_EQ(status, 0);
            close(ends[0]);
            close(ends[1]);
        }
        EXPECT_GE(board.totals(4).longest_wait_ns, HELD_NS / 2);
        EXPECT_GE(board.totals(4).longest_hold_ns, HELD_NS);
        EXPECT_EQ(board.totals(5).longest_hold_ns, 0U);
        EXPECT_EQ(board.wrongs(), "");
    }
}

TEST(Trace, TellsWhoWhenAndThroughWhichPath)
{
    Board board(reference_board());
    const Device bus(4);
    ASSERT_EQ(bus.write(0x70, {0x20}), 1);
    ASSERT_EQ(bus.write(0x71, {0x08}), 1);
    ASSERT_EQ(bus.write(0x22, {1, 2}), 1);
    const auto trace = board.trace(4);
    ASSERT_EQ(trace.size(), 3U);
    EXPECT_TRUE(trace[0].path.empty());
    const auto &last = trace[2];
    EXPECT_EQ(last.number, 3U);
    EXPECT_EQ(last.task.pid, getpid());
    EXPECT_EQ(last.task.tid, gettid());
    EXPECT_EQ(last.result, 1);
    EXPECT_EQ(last.smbus_size, -1);
    EXPECT_GE(last.end_ns, last.start_ns);
    EXPECT_GE(last.start_ns, trace[1].end_ns);
    ASSERT_EQ(last.path.size(), 2U);
    EXPECT_EQ(last.path[0].address, 0x70);
    EXPECT_EQ(last.path[1].channels, 0x08);
}

TEST(Trace, KeepsTheNewestWithEveryByteAndSaysWhatAReaderMissed)
{
    Board board(reference_board());
    const Device bus(7);
    simboard::TraceCursor cursor;
    std::deque<simboard::TraceEntry> entries;
    ASSERT_EQ(bus.write(0x30, {0x11, 0x22}), 1);
    EXPECT_TRUE(read_further(board.view(), 7, cursor, entries));
    EXPECT_FALSE(read_further(board.view(), 7, cursor, entries));
    Bytes big(8192, 0x42);
    const std::vector<i2c_msg> largest(42, {0x30, 0, 8192, big.data()});
    for (int i = 0; i < 10; i++) {
        ASSERT_EQ(bus.transfer(largest), 42);
    }
    while (read_further(board.view(), 7, cursor, entries)) {
    }
    ASSERT_GT(entries.size(), 2U);
    EXPECT_EQ(entries[1].lost, entries[1].record.number - 2);
    EXPECT_EQ(entries.back().record.number, 11U);
    EXPECT_EQ(entries.back().lost, 0U);
    for (const simboard::MessageRecord &message : entries.back().record.messages) {
        EXPECT_EQ(message.bytes, big);
    }
    board.reset();
    ASSERT_EQ(bus.write(0x30, {0x33}), 1);
    entries.clear();
    EXPECT_TRUE(read_further(board.view(), 7, cursor, entries));
    EXPECT_EQ(entries.front().record.number, 1U);
}

} // namespace
