// Every exported call with each fallible thing it does failing: that one alone, with all later ones
// of its kind, and with everything later; in a process that has just started and in one that has
// used the bus before. The same promises are checked each time (fault_rules.h).
//
// A failure names call, kind, number and mode. To repeat one point alone:
//
//     QELI2C_FAULT_POINT=cold:17:later reliability_faults --gtest_filter='*/ei2c_rdwr_xfer_*'
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <set>
#include <sys/mman.h>
#include <sys/sem.h>
#include <sys/single_threaded.h>
#include <sys/wait.h>
#include <unistd.h>

#include "fault_rules.h"
#include "figures.h"
#include "simboard/testing.h"

namespace
{

using namespace faults;
using simboard::testing::Board;

constexpr char kDescription[] = R"({
  "name": "failures",
  "buses": [ { "bus": 4, "devices": [
    { "name": "plain", "type": "registers", "address": "0x60", "pattern": "04" },
    { "name": "io", "type": "pca9535", "address": "0x23" },
    { "name": "leds", "type": "pca9554", "address": "0x24" },
    { "name": "monitor", "type": "tpa626", "address": "0x44" },
    { "name": "upstream", "type": "pca9548", "address": "0x70", "channels": { "5": [
      { "name": "middle", "type": "registers", "address": "0x21", "pattern": "04" },
      { "name": "retimer", "type": "retimer", "address": "0x18", "pattern": "01 02 03" },
      { "name": "store", "type": "at24c512", "address": "0x50", "busy_after_write": false },
      { "name": "lattice", "type": "epld-lattice", "address": "0x40" },
      { "name": "pango", "type": "epld-pango", "address": "0x41" },
      { "name": "ef2", "type": "epld-anlogic-ef2", "address": "0x42" },
      { "name": "ef3", "type": "epld-anlogic-ef3", "address": "0x43" },
      { "name": "card", "type": "epld-subcard", "address": "0x31", "pattern": "05 06" },
      { "name": "near", "type": "pca9548", "address": "0x71", "channels": { "3": [
        { "name": "far", "type": "registers", "address": "0x22", "pattern": "04" } ] } }
    ] } } ] } ]
})";

// Processes are costly in instrumented builds, and what instruments asks for more than is shipped;
// they meet one point in so many.
#if defined(__SANITIZE_ADDRESS__) || !defined(NDEBUG)
constexpr bool kAsShipped = false;
#else
constexpr bool kAsShipped = true;
#endif
#ifdef __SANITIZE_ADDRESS__
constexpr size_t kShare = 16;
#else
constexpr size_t kShare = kAsShipped ? 1 : 4;
#endif

constexpr const char *kModes[] = {"once", "kind", "later", "timeout"};
constexpr unsigned kPatience = 20; // seconds
constexpr size_t kGuard = 32;
constexpr uint8_t kUntouched = 0xEE;

// What a child tells: the run with the fault, and the same call again without it.
struct Report {
    Trace run;
    Trace again;
    uint8_t area[kGuard + kWindow + kGuard];
    bool holds; // told to the child: the first call has left a lock taken
};

uint64_t points_met = 0;

// Not a static object: children end without taking it away.
std::unique_ptr<Board> &the_board()
{
    static auto *const one = new std::unique_ptr<Board>(new Board(kDescription));
    return *one;
}

Board &board()
{
    return *the_board();
}

// Ends a child; where lines are counted, so that they are.
[[noreturn]] void end()
{
#if defined(NDEBUG) || defined(__SANITIZE_ADDRESS__)
    _exit(0);
#else
    std::exit(0);
#endif
}

void make_call(const Row &row, Report &report, Trace &run, const Plan &plan)
{
    if (row.before != nullptr)
        row.before();
    std::memset(report.area, kUntouched, sizeof(report.area));
    record(run, plan);
    errno = 0;
    run.result = row.call();
    run.error = errno;
    stop();
    std::memcpy(run.window, window, kWindow);
    for (size_t i = 0; i < sizeof(report.area); ++i) {
        const bool inside = i >= kGuard && i < kGuard + row.written;
        if (!inside && report.area[i] != kUntouched)
            std::snprintf(run.wrong, sizeof(run.wrong), "wrote beyond its buffer");
    }
}

// The process under test. It does the call with the fault, and a second time without, and stops
// after each so that it can be looked at.
[[noreturn]] void child(const Row &row, bool warm, const Plan &plan, Report &report)
{
    const auto release = [&] {
        if (row.after != nullptr)
            row.after();
    };
    alarm(kPatience);
    window = report.area + kGuard;
    if (warm) {
        make_call(row, report, report.again, {});
        release();
    }
    make_call(row, report, report.run, plan);
    raise(SIGSTOP);
    if (report.holds)
        release();
    make_call(row, report, report.again, {});
    raise(SIGSTOP);
    release();
    end();
}

// What another process sees of the bus's locks and switches.
struct Outside {
    int semaphore;
    int eeprom;
    int file;
    uint8_t near;
    uint8_t upstream;
    std::string wrongs;
};

int semaphore_value(key_t key)
{
    const int set = semget(key, 1, 0600);
    return set < 0 ? 0 : semctl(set, 0, GETVAL);
}

Outside look()
{
    static const int fd = open("/dev/i2c-4", O_RDWR | O_CLOEXEC);
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    EXPECT_EQ(fcntl(fd, F_GETLK, &lock), 0);
    return {semaphore_value(0x3064), semaphore_value(0x3001),  lock.l_type == F_UNLCK ? 0 : 1,
            board().peek("near"),    board().peek("upstream"), board().wrongs()};
}

class FaultPoints : public testing::TestWithParam<size_t>
{
protected:
    const Row &row() const { return kRows[GetParam()]; }

    static void SetUpTestSuite()
    {
        report_ = static_cast<Report *>(mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE,
                                             MAP_SHARED | MAP_ANONYMOUS, -1, 0));
        (void)board();
        (void)look();
        install(Hooks::all);
        // A lookup takes the registry's mutex and no other.
        Outside outside[2];
        EXPECT_TRUE(meet(kRows[0], false, {}, outside));
        EXPECT_STREQ(kRows[0].name, "ui2c_to_client");
        const Trace &run = report_->run;
        for (uint32_t i = 0; i < run.calls && registry_mutex == 0; ++i)
            registry_mutex = run.call[i].kind == Kind::mutex ? run.call[i].detail : 0;
    }

    // Runs one child and looks at the board after each of its calls; false when it did not come to
    // its end.
    static bool meet(const Row &row, bool warm, const Plan &plan, Outside (&outside)[2])
    {
        board().reset();
        std::memset(report_, 0, offsetof(Report, run.window));
        const pid_t pid = fork();
        if (pid == 0)
            child(row, warm, plan, *report_);
        int status = -1;
        for (Outside &here : outside) {
            if (waitpid(pid, &status, WUNTRACED) != pid || !WIFSTOPPED(status))
                return false;
            here = look();
            report_->holds = here.semaphore + here.file + here.eeprom != 0;
            kill(pid, SIGCONT);
        }
        return waitpid(pid, &status, 0) == pid && status == 0;
    }

    // What holds whatever failed.
    void check_always(const Trace &run, const Outside &outside, bool held, bool eeprom)
    {
        EXPECT_STREQ(run.wrong, "");
        EXPECT_EQ(run.held.buffers, 0) << "memory not given back";
        EXPECT_EQ(run.held.mutexes, 0) << "mutexes kept";
        EXPECT_EQ(run.held.other_files, 0) << "files left open";
        EXPECT_LE(run.held.device_files, 1);
        EXPECT_LE(run.held.mappings, 1);
        const uint32_t flags = held ? row().flags : 0;
        EXPECT_EQ(outside.semaphore, (flags & (kHolds | kHoldsSemaphore)) != 0 ? 1 : 0);
        EXPECT_EQ(outside.file, (flags & (kHolds | kHoldsFile)) != 0 ? 1 : 0);
        EXPECT_EQ(outside.eeprom, eeprom && (row().flags & kHoldsEeprom) != 0 ? 1 : 0);
    }

    void check_path(const Point &point, const Plan &plan, bool held)
    {
        if (held && (row().flags & kKeepsPath) != 0)
            return;
        const bool near_may = may_stay_open(row(), point, plan, report_->run, false);
        const bool upstream_may = may_stay_open(row(), point, plan, report_->run, true);
        EXPECT_TRUE(outside_[0].near == 0 || near_may) << "near switch left open";
        EXPECT_TRUE(outside_[0].upstream == 0 || upstream_may) << "upstream switch left open";
        const bool let_go = row().family == Family::bridge && point.site == Site::take_file_lock;
        if (!near_may && !upstream_may && !let_go) { // the bridge releases what it did not get
            EXPECT_EQ(outside_[0].wrongs, "");
        }
    }

    void check(const Point &point, const Plan &plan, const Trace &clean)
    {
        const Trace &run = report_->run;
        const Outcome outcome = expected(row(), point, plan.mode);
        const int32_t result = row().results.of[outcome];
        if ((row().flags & kNoResult) == 0) {
            EXPECT_EQ(run.result, result);
        }
        const bool held = outcome == ok || outcome == pathless;
        const Site site = site_met(point, plan.mode);
        check_always(run, outside_[0], held,
                     site != Site::eeprom_semaphore && site != Site::take_eeprom);
        const bool unchanged = (row().flags & kLastCounts) == 0 || point.behind == 0;
        if (held && unchanged && (row().flags & kNoResult) == 0) {
            EXPECT_EQ(std::memcmp(run.window, clean.window, kWindow), 0) << "other data";
        } else if (!held && (row().flags & kRaw) == 0) {
            EXPECT_EQ(std::count(run.window, run.window + kWindow, kUntouched), kWindow)
                << "wrote what it did not read";
        }
        const int error = promised_error(row(), run);
        if (run.result < 0 && error >= 0) {
            EXPECT_EQ(run.error, error) << "errno is of another request";
        }
        check_path(point, plan, held);

        // The same call again, with nothing failing any more.
        const Trace &again = report_->again;
        EXPECT_EQ(again.result, row().results.of[ok]) << "the call after the failure";
        EXPECT_EQ(std::memcmp(again.window, clean.window, kWindow), 0) << "data after the failure";
        check_always(again, outside_[1], true, true);
        EXPECT_LE(again.held.records, clean.held.records + 3)
            << "records of the failure and of the rest";
    }

    bool chosen(bool warm, size_t number, size_t mode)
    {
        const char *point = std::getenv("QELI2C_FAULT_POINT");
        if (point != nullptr)
            return (warm ? "warm:" : "cold:") + std::to_string(number) + ":" + kModes[mode] ==
                   point;
        return (number + mode) % kShare == GetParam() % kShare;
    }

    void meet_all(bool warm, const Trace &clean)
    {
        const std::vector<Point> points = points_of(row(), clean);
        for (size_t number = 0; number < points.size(); ++number) {
            for (size_t m = 0; m < 4; ++m) {
                const bool timeout = m == 3;
                if ((timeout && clean.call[number].kind != Kind::wait) || !chosen(warm, number, m))
                    continue;
                SCOPED_TRACE(std::string(row().name) + " " + name_of(clean.call[number].kind) +
                             ", point " + (warm ? "warm:" : "cold:") + std::to_string(number) +
                             ":" + kModes[m]);
                const Plan plan = {static_cast<int>(number),
                                   timeout ? Mode::kind : static_cast<Mode>(m), timeout};
                ASSERT_TRUE(meet(row(), warm, plan, outside_)) << "hangs or crashes";
                ASSERT_GT(report_->run.calls, number);
                EXPECT_EQ(report_->run.call[number].kind, clean.call[number].kind);
                check(points[number], plan, clean);
                ++points_met;
            }
        }
    }

    static Report *report_;
    Outside outside_[2];
};

Report *FaultPoints::report_ = nullptr;

TEST_P(FaultPoints, KeepWhatIsPromised)
{
    uint32_t calls = 0;
    for (const bool warm : {false, true}) {
        ASSERT_TRUE(meet(row(), warm, {}, outside_)) << row().name;
        static Trace clean;
        clean = report_->run;
        EXPECT_EQ(clean.result, row().results.of[ok]) << row().name;
        check_always(clean, outside_[0], true, true);
        if (warm && clean.calls == calls)
            break; // nothing is done at first use alone
        calls = clean.calls;
        meet_all(warm, clean);
    }
}

std::string name_of_row(const testing::TestParamInfo<size_t> &info)
{
    return std::string(kRows[info.param].name) + "_" + std::to_string(info.param);
}

INSTANTIATE_TEST_SUITE_P(Calls, FaultPoints, testing::Range(size_t{0}, kRows.size()), name_of_row);

TEST(FaultTable, HasEveryExportedCall)
{
    std::set<std::string> missing;
    std::ifstream names(QELI2C_EXPORTED_NAMES);
    for (std::string name; std::getline(names, name);)
        missing.insert(name);
    EXPECT_GT(missing.size(), 100U);
    for (const char *global : {"tpidMap", "mapFlag", "pid", "g_dwEi2cLog"})
        missing.erase(global);
    for (const Row &row : kRows)
        missing.erase(row.name);
    EXPECT_EQ(missing, std::set<std::string>());
}

TEST(FaultTable, KnowsEverythingTheLibraryAsksOthersFor)
{
    if (!kAsShipped)
        GTEST_SKIP() << "instrumented";
    EXPECT_EQ(unknown(), std::vector<std::string>());
}

// Last of all, by its name.
class Figures : public testing::Environment
{
public:
    // What may fail does so as in a process of several threads, which puts cancellations off.
    void SetUp() override { __libc_single_threaded = 0; }
    void TearDown() override
    {
        the_board().reset();
        if (points_met == 0)
            return;
        std::set<std::string> calls;
        for (const Row &row : kRows)
            calls.insert(row.name);
        record_figure("faults.calls", calls.size(), "calls");
        record_figure("faults.points", points_met, "points");
    }
};
const testing::Environment *const figures = testing::AddGlobalTestEnvironment(new Figures);

} // namespace
