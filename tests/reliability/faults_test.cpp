// Every exported call with each fallible thing it does failing: that one alone, with all later ones
// of its kind, and with everything later; in a process that has just started and in one that has
// used the bus before. The same promises are checked each time (fault_rules.h).
//
// A failure names call, kind, number and mode. To repeat one point alone:
//
//     QELI2C_FAULT_POINT=cold:17:later reliability_faults --gtest_filter='*/ei2c_rdwr_xfer_*'
#include <algorithm>
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
#include <sys/sem.h>
#include <sys/single_threaded.h>
#include <sys/wait.h>
#include <unistd.h>

#include "fault_rules.h"
#include "figures.h"
#include "simboard/testing.h"
#include "tests/calls/call.h"
#include "tests/calls/notation.h"
#include "tests/platform/process.h"

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

// What a child tells: the run with the fault, and the same call again without it; in memory shared
// with its parent.
struct Made {
    char result[32];
    char outputs[1024];
    int error;
    Trace trace;
};
struct Report {
    Made run;
    Made again;
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

// The calls that a row has in front of its own or behind it, and its own. Each adds its result and
// outputs to the words that the following may name.
class Sequence
{
public:
    explicit Sequence(const Row &row) : row_(row) {}
    void make(Made &run, const Plan &plan)
    {
        words_.clear();
        call_all(row_.before);
        const Call call = prepared(row_.call);
        record(run.trace, plan);
        errno = 0;
        const std::string result = call.run();
        run.error = errno;
        stop();
        std::snprintf(run.result, sizeof(run.result), "%s", result.c_str());
        std::snprintf(run.outputs, sizeof(run.outputs), "%s", outputs_of(call).c_str());
        add_words(result + outputs_of(call));
    }
    void release() { call_all(row_.after); }

private:
    void call_all(const std::string &calls)
    {
        for (const std::string &line : notation::split(calls, ';')) {
            if (line.empty())
                continue;
            const Call call = prepared(line);
            const std::string result = call.run();
            add_words(result + outputs_of(call));
        }
    }
    void add_words(const std::string &text)
    {
        for (const std::string &word : notation::split(text, ' '))
            words_.push_back(word);
    }
    Call prepared(std::string line) const
    {
        for (size_t at = line.find('$'); at != std::string::npos; at = line.find('$'))
            line.replace(at, 2, words_.at(static_cast<size_t>(line[at + 1] - '0')));
        return call_of(line, [](const ei2c_client &) {});
    }

    const Row &row_;
    std::vector<std::string> words_;
};

// The process under test. It does the call with the fault, and a second time without, and stops
// after each so that it can be looked at.
[[noreturn]] void child(const Row &row, bool warm, const Plan &plan, Report &report) noexcept
{
    alarm(kPatience);
    Sequence sequence(row);
    if (warm) {
        sequence.make(report.again, {});
        sequence.release();
    }
    sequence.make(report.run, plan);
    raise(SIGSTOP);
    if (report.holds)
        sequence.release();
    sequence.make(report.again, {});
    raise(SIGSTOP);
    sequence.release();
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

bool has_word(const std::string &words, const std::string &word)
{
    return (" " + words + " ").find(" " + word + " ") != std::string::npos;
}

bool is_untouched(const Made &run)
{
    const auto words = notation::split(run.outputs, ' ');
    return std::all_of(words.begin(), words.end(),
                       [](const std::string &word) { return word.empty() || word == "untouched"; });
}

bool any_failed(const Trace &trace, Kind kind)
{
    return std::any_of(trace.call, trace.call + trace.calls,
                       [kind](const Step &call) { return call.failed && call.kind == kind; });
}

class FaultPoints : public testing::TestWithParam<size_t>
{
protected:
    const Row &row() const { return kRows[GetParam()]; }

    static void SetUpTestSuite()
    {
        report_ = &shared<Report>();
        (void)board();
        (void)look();
        install(Hooks::all);
        // A lookup takes the registry's mutex and no other.
        Outside outside[2];
        EXPECT_EQ(name_of(kRows[0]), "ui2c_to_client");
        EXPECT_TRUE(meet(kRows[0], false, {}, outside));
        const Trace &trace = report_->run.trace;
        for (uint32_t i = 0; i < trace.calls && registry_mutex == 0; ++i)
            registry_mutex = trace.call[i].kind == Kind::mutex ? trace.call[i].detail : 0;
    }

    // Runs one child and looks at the board after each of its calls; false when it did not come to
    // its end.
    static bool meet(const Row &row, bool warm, const Plan &plan, Outside (&outside)[2])
    {
        board().reset();
        *report_ = {};
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
    void check_always(const Made &run, const Outside &outside, bool good)
    {
        const Holdings &held = run.trace.held;
        EXPECT_STREQ(run.trace.wrong, "");
        EXPECT_EQ(std::strstr(run.outputs, "written-outside"), nullptr);
        EXPECT_EQ(held.buffers, 0) << "memory not given back";
        EXPECT_EQ(held.mutexes, 0) << "mutexes kept";
        EXPECT_EQ(held.other_files, 0) << "files left open";
        EXPECT_LE(held.device_files, 1);
        EXPECT_LE(held.mappings, 1);
        const uint32_t flags = good ? row().flags : 0;
        EXPECT_EQ(outside.semaphore, (flags & (kHolds | kHoldsSemaphore)) != 0 ? 1 : 0);
        EXPECT_EQ(outside.file, (flags & (kHolds | kHoldsFile)) != 0 ? 1 : 0);
        if ((row().flags & kHoldsEeprom) == 0 || !any_failed(run.trace, Kind::sem_lock)) {
            EXPECT_EQ(outside.eeprom, (flags & kHoldsEeprom) != 0 ? 1 : 0);
        }
    }

    void check_path(const Plan &plan, bool good)
    {
        const Trace &trace = report_->run.trace;
        if (good && (row().flags & kKeepsPath) != 0)
            return;
        const bool near_may = may_stay_open(row(), plan, trace, kNearSwitch);
        const bool upstream_may = may_stay_open(row(), plan, trace, kUpstreamSwitch);
        EXPECT_TRUE(outside_[0].near == 0 || near_may) << "near switch left open";
        EXPECT_TRUE(outside_[0].upstream == 0 || upstream_may) << "upstream switch left open";
        const bool not_taken =
            (row().flags & kReleasesAll) != 0 && any_failed(trace, Kind::file_lock);
        if (!near_may && !upstream_may && !not_taken) {
            EXPECT_EQ(outside_[0].wrongs, "");
        }
    }

    void check(const Plan &plan, const Made &clean)
    {
        const Made &run = report_->run;
        const Verdict verdict = judge(row(), plan, run.trace, clean.trace);
        const bool failure = has_word(row().failures, run.result);
        const bool silent = failure && is_untouched(run);
        const bool good =
            succeeded(row(), run.result) && verdict.may_succeed && !(silent && verdict.may_fail);
        EXPECT_TRUE(good || (failure && verdict.may_fail)) << "gives " << run.result;
        check_always(run, outside_[0], good);
        if (good && (row().flags & kLastCounts) == 0) {
            EXPECT_STREQ(run.outputs, clean.outputs) << "other data";
        } else if (!good && (row().flags & kRaw) == 0) {
            EXPECT_TRUE(is_untouched(run)) << "wrote what it did not read:" << run.outputs;
        }
        if (run.result[0] == '-' && verdict.error != 0) {
            EXPECT_EQ(run.error, verdict.error) << "errno is of another request";
        }
        check_path(plan, good);

        // The same call again, with nothing failing any more.
        const Made &again = report_->again;
        EXPECT_TRUE(succeeded(row(), again.result)) << "then gives " << again.result;
        EXPECT_STREQ(again.outputs, clean.outputs) << "data after the failure";
        check_always(again, outside_[1], true);
        EXPECT_LE(again.trace.held.records, clean.trace.held.records + 3)
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

    void meet_all(bool warm, const Made &clean)
    {
        for (size_t number = 0; number < clean.trace.calls; ++number) {
            const Kind kind = clean.trace.call[number].kind;
            for (size_t m = 0; m < 4; ++m) {
                const bool timeout = m == 3;
                if ((timeout && kind != Kind::wait) || !chosen(warm, number, m))
                    continue;
                SCOPED_TRACE(name_of(row()) + " " + name_of(kind) + ", point " +
                             (warm ? "warm:" : "cold:") + std::to_string(number) + ":" + kModes[m]);
                const Plan plan = {static_cast<int>(number),
                                   timeout ? Mode::kind : static_cast<Mode>(m), timeout};
                ASSERT_TRUE(meet(row(), warm, plan, outside_)) << "hangs or crashes";
                ASSERT_GT(report_->run.trace.calls, number);
                EXPECT_EQ(report_->run.trace.call[number].kind, kind);
                check(plan, clean);
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
        ASSERT_TRUE(meet(row(), warm, {}, outside_)) << row().call;
        static Made clean;
        clean = report_->run;
        EXPECT_TRUE(succeeded(row(), clean.result)) << row().call << " gives " << clean.result;
        check_always(clean, outside_[0], true);
        if (warm && clean.trace.calls == calls)
            break; // nothing is done at first use alone
        calls = clean.trace.calls;
        meet_all(warm, clean);
    }
}

std::string name_of_row(const testing::TestParamInfo<size_t> &info)
{
    return name_of(kRows[info.param]) + "_" + std::to_string(info.param);
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
        missing.erase(name_of(row));
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
            calls.insert(name_of(row));
        record_figure("faults.calls", calls.size(), "calls");
        record_figure("faults.points", points_met, "points");
    }
};
const testing::Environment *const figures = testing::AddGlobalTestEnvironment(new Figures);

} // namespace
