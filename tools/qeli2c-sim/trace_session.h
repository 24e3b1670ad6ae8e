// Reading a board's trace and writing it to where it was asked for.
#ifndef QELI2C_SIM_TRACE_SESSION_H
#define QELI2C_SIM_TRACE_SESSION_H

#include "command_line.h"
#include "spool.h"
#include "trace_style.h"
#include "trace_vcd.h"

#include <atomic>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace runner
{

enum class TraceFormat { text, json, vcd };

// As the command line has it.
struct TraceChoice {
    TraceFormat format = TraceFormat::text;
    std::string times = "relative";
    bool no_ids = false;
    std::string speed = "100k"; // of buses without wire time, when drawn
    std::string file;           // empty: standard output
    bool color = false;
};

void add_trace_style(CLI::App &command, TraceChoice &choice);

struct TraceFilter {
    std::vector<uint32_t> buses; // in order; never empty
    std::optional<uint16_t> address;
    const simboard::Chip *chip = nullptr;
    std::optional<int32_t> pid;
    std::optional<uint64_t> since_ns; // CLOCK_MONOTONIC
    bool failed = false;
};

std::vector<uint32_t> described_buses(const simboard::State &state);

class TraceSession
{
public:
    // Opens what is written to; a std::runtime_error when that fails. The view outlives it.
    TraceSession(const simboard::BoardView &view, const TraceChoice &choice, TraceFilter filter);
    ~TraceSession();
    TraceSession(const TraceSession &) = delete;
    TraceSession &operator=(const TraceSession &) = delete;

    // What is there now; only the last of them if `last` is given.
    void copy(std::optional<uint64_t> last);
    // From now on transfers wait when they come faster than `follow` can copy them. Called by the
    // thread that ends the session.
    void await();
    // What is there and what comes, until `stop` is set and followers are called, or the board is
    // deleted. It is copied as it comes, and written as fast as can be.
    void follow(const std::atomic<bool> &stop);
    // What has been copied is not written any more; by any thread.
    void abandon();
    // Ends what was written, and says on standard error what was lost; returns whether nothing was.
    // A std::runtime_error when it could not be written.
    bool finish();

private:
    void record(const std::atomic<bool> &stop);
    void write_spooled();
    void take(const simboard::TraceEntry &entry);
    void write(const simboard::TransferRecord &record);
    bool matches(const simboard::TransferRecord &record) const;

    const simboard::BoardView &view_;
    TraceChoice choice_;
    TraceFilter filter_;
    TraceStyle style_;
    FILE *file_ = nullptr;
    VcdWriter vcd_;
    simboard::TraceTaker taker_;
    std::vector<simboard::TraceEntry> later_;
    Spool spool_;
    std::map<uint32_t, uint64_t> lost_;
    std::optional<uint64_t> last_;
    std::deque<simboard::TransferRecord> newest_;
};

// The trace of a board taken in the background while something else goes on.
class BackgroundTrace
{
public:
    BackgroundTrace(const std::string &directory, const TraceChoice &choice);
    ~BackgroundTrace();
    BackgroundTrace(const BackgroundTrace &) = delete;
    BackgroundTrace &operator=(const BackgroundTrace &) = delete;

    void start();
    void stop();                                 // nothing more is taken
    bool is_written() const { return written_; } // everything that was
    void abandon();                              // leaves out what is not written yet
    bool finish();                               // as a session's

private:
    void join();

    simboard::BoardView view_;
    std::unique_ptr<TraceSession> session_;
    std::atomic<bool> stop_{false};
    std::atomic<bool> written_{false};
    std::thread thread_;
};

} // namespace runner

#endif
