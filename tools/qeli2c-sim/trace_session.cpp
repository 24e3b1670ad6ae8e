// Taking a trace from a board.
#include "trace_session.h"

#include "simboard/clock.h"
#include "simboard/description.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace runner
{

namespace
{

constexpr uint64_t kRoundNs = 1'000'000;

using simboard::Chip;
using simboard::State;
using simboard::TransferRecord;

TraceStyle style_of(const State &state, const TraceChoice &choice)
{
    TraceStyle style = trace_style(state);
    style.times = choice.times == "none"       ? Times::none
                  : choice.times == "absolute" ? Times::absolute
                                               : Times::relative;
    style.ids = !choice.no_ids;
    style.color = choice.color;
    return style;
}

bool opens(const TransferRecord &record, uint8_t address, uint8_t channel)
{
    return std::any_of(record.path.begin(), record.path.end(), [=](const auto &open) {
        return open.address == address && (open.channels >> channel & 1) != 0;
    });
}

// Whether the transfer went through every switch in front of the chip to its address.
bool reaches(const State &state, const TransferRecord &record, const Chip &chip)
{
    const bool addressed =
        record.bus == chip.bus &&
        std::any_of(record.messages.begin(), record.messages.end(),
                    [&](const auto &message) { return message.address == chip.address; });
    const Chip *at = &chip;
    while (addressed && at->parent != simboard::kNoParent) {
        const Chip &parent = state.chips[at->parent];
        if (!opens(record, parent.address, at->channel)) {
            return false;
        }
        at = &parent;
    }
    return addressed;
}

} // namespace

void add_trace_style(CLI::App &command, TraceChoice &choice)
{
    add_option(command, "--times", choice.times, "KIND",
               "relative to the board's making, absolute or none",
               {"relative", "absolute", "none"});
    add_flag(command, "--no-ids", choice.no_ids, "Leave out process and thread numbers");
    add_option(command, "--wire-speed", choice.speed, "SPEED",
               "100k or 400k, for instant buses in a VCD", {"100k", "400k"});
}

std::vector<uint32_t> described_buses(const State &state)
{
    std::vector<uint32_t> buses;
    for (const simboard::Bus &bus : state.buses) {
        if (bus.described != 0) {
            buses.push_back(bus.number);
        }
    }
    return buses;
}

TraceSession::TraceSession(const simboard::BoardView &view, const TraceChoice &choice,
                           TraceFilter filter)
    : view_(view), choice_(choice), filter_(std::move(filter)),
      style_(style_of(*view.state, choice)), taker_(simboard::open_trace(view, filter_.buses))
{
    file_ = choice.file.empty() ? stdout : std::fopen(choice.file.c_str(), "we");
    if (file_ == nullptr) {
        throw std::runtime_error(choice.file + ": " + std::strerror(errno));
    }
    if (choice.format == TraceFormat::text) {
        std::fputs(text_heading(style_).c_str(), file_);
    } else if (choice.format == TraceFormat::vcd) {
        uint32_t bit_ns = 0;
        simboard::parse_speed(choice.speed, bit_ns);
        vcd_ = open_vcd(file_, *view.state, filter_.buses, bit_ns);
    }
}

TraceSession::~TraceSession()
{
    simboard::release_recorder(*view_.state, taker_.recorder);
    if (file_ != nullptr && file_ != stdout) {
        std::fclose(file_);
    }
}

bool TraceSession::matches(const TransferRecord &record) const
{
    const bool addressed =
        !filter_.address ||
        std::any_of(record.messages.begin(), record.messages.end(),
                    [&](const auto &message) { return message.address == *filter_.address; });
    return addressed && (!filter_.pid || record.task.pid == *filter_.pid) &&
           (!filter_.failed || record.result < 0) &&
           (!filter_.since_ns || record.start_ns >= *filter_.since_ns) &&
           (filter_.chip == nullptr || reaches(*view_.state, record, *filter_.chip));
}

void TraceSession::write(const TransferRecord &record)
{
    if (choice_.format == TraceFormat::vcd) {
        write_vcd(vcd_, record);
        return;
    }
    const std::string line =
        choice_.format == TraceFormat::json ? json_of(record, style_) : text_of(record, style_);
    std::fwrite(line.data(), 1, line.size(), file_);
}

void TraceSession::take(const simboard::TraceEntry &entry)
{
    const uint32_t bus = entry.record.bus;
    if (entry.lost > 0 && !last_) {
        lost_[bus] += entry.lost;
        if (choice_.format != TraceFormat::vcd) {
            std::fputs((choice_.format == TraceFormat::json ? json_of_loss(bus, entry.lost)
                                                            : text_of_loss(bus, entry.lost))
                           .c_str(),
                       file_);
        }
    }
    if (!matches(entry.record)) {
        return;
    }
    if (!last_) {
        write(entry.record);
        return;
    }
    newest_.push_back(entry.record);
    if (newest_.size() > *last_) {
        newest_.pop_front();
    }
}

void TraceSession::copy(std::optional<uint64_t> last)
{
    last_ = last;
    simboard::RawRound round;
    std::deque<simboard::TraceEntry> entries;
    simboard::take_round(taker_, round);
    simboard::merge_round(round, later_, entries);
    for (const simboard::TraceEntry &entry : entries) {
        take(entry);
    }
    last_.reset();
    for (const TransferRecord &record : newest_) {
        write(record);
    }
    newest_.clear();
}

void TraceSession::await()
{
    uint32_t mask = 0;
    for (const uint32_t bus : filter_.buses) {
        mask |= 1U << bus;
    }
    taker_.recorder = simboard::register_recorder(*view_.state, mask);
}

void TraceSession::follow(const std::atomic<bool> &stop)
{
    std::thread recorder([&] { record(stop); });
    write_spooled();
    recorder.join();
}

// While transfers come it looks for them from time to time, so that they need not wake it.
void TraceSession::record(const std::atomic<bool> &stop)
{
    State &state = *view_.state;
    simboard::RawRound round;
    bool quiet = true;
    for (bool ends = false; !ends;) {
        const uint32_t expected = quiet ? simboard::expect_record(state) : 0;
        ends = stop || spool_.is_abandoned() || state.deleted != 0;
        const bool came = simboard::take_round(taker_, round);
        if (came || !quiet) {
            spool_.put(std::move(round));
            round = {};
        }
        if (!ends && quiet && !came) {
            simboard::await_record(state, expected);
        } else if (!ends) {
            simboard::sleep_until(simboard::now_ns() + kRoundNs);
        }
        quiet = !came;
    }
    simboard::retire_recorder(state, taker_.recorder);
    spool_.close();
}

void TraceSession::write_spooled()
{
    simboard::RawRound round;
    std::deque<simboard::TraceEntry> entries;
    while (spool_.get(round)) {
        simboard::merge_round(round, later_, entries);
        for (; !entries.empty() && !spool_.is_abandoned(); entries.pop_front()) {
            take(entries.front());
        }
        if (spool_.is_empty()) {
            std::fflush(file_);
        }
        if (std::ferror(file_) != 0) {
            abandon();
        }
    }
}

void TraceSession::abandon()
{
    spool_.abandon();
    simboard::call_followers(*view_.state);
}

bool TraceSession::finish()
{
    if (choice_.format == TraceFormat::vcd) {
        finish_vcd(vcd_, lost_);
    }
    FILE *const file = std::exchange(file_, nullptr);
    if (file != stdout) { // which is looked after when the program ends
        errno = 0;
        const bool failed = std::ferror(file) != 0;
        if (std::fclose(file) != 0 || failed) {
            const std::string reason = errno != 0 ? std::string(": ") + std::strerror(errno) : "";
            throw std::runtime_error(choice_.file + ": cannot be written" + reason);
        }
    }
    if (spool_.is_broken()) {
        throw std::runtime_error("the trace's temporary file cannot be read");
    }
    for (const auto &[bus, count] : lost_) {
        if (choice_.format == TraceFormat::vcd || !choice_.file.empty()) {
            std::fprintf(stderr, "qeli2c-sim: bus %u: %llu transfers are missing in the trace\n",
                         bus, static_cast<unsigned long long>(count));
        }
    }
    return lost_.empty();
}

BackgroundTrace::BackgroundTrace(const std::string &directory, const TraceChoice &choice)
    : view_(simboard::open_board(directory))
{
    TraceFilter filter;
    filter.buses = described_buses(*view_.state);
    session_ = std::make_unique<TraceSession>(view_, choice, std::move(filter));
    session_->await();
}

BackgroundTrace::~BackgroundTrace()
{
    stop();
    join();
    session_.reset();
    simboard::close_board(view_);
}

void BackgroundTrace::start()
{
    thread_ = std::thread([this] {
        session_->follow(stop_);
        written_ = true;
    });
}

void BackgroundTrace::stop()
{
    stop_ = true;
    simboard::call_followers(*view_.state);
}

void BackgroundTrace::abandon()
{
    session_->abandon();
}

void BackgroundTrace::join()
{
    if (thread_.joinable()) {
        thread_.join();
    }
}

bool BackgroundTrace::finish()
{
    stop();
    join();
    return session_->finish();
}

} // namespace runner
