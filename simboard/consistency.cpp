// The consistency check of a board's state.
#include "simboard/consistency.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include "simboard/build_state.h"
#include "simboard/bus_lock.h"
#include "simboard/clock.h"
#include "simboard/fault.h"

namespace simboard
{

namespace
{

constexpr uint64_t kLongestWriteCycleNs = 1'000'000'000;

struct Findings {
    std::vector<std::string> lines;
    std::string subject; // what is being looked at

    void expect(bool good, const std::string &otherwise)
    {
        if (!good) {
            lines.push_back(subject + ": " + otherwise);
        }
    }
};

// The board as it would be laid out anew: what never changes must be the same.
class Model
{
public:
    explicit Model(const BoardDescription &description)
        : size_(static_cast<size_t>(state_size(description)))
    {
        void *const area = mmap(nullptr, size_, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (area == MAP_FAILED) {
            throw std::runtime_error(std::string("mmap: ") + std::strerror(errno));
        }
        state_ = static_cast<State *>(area);
        build_state(*state_, description, nullptr);
    }
    ~Model() { munmap(state_, size_); }
    Model(const Model &) = delete;
    Model &operator=(const Model &) = delete;

    const State &state() const { return *state_; }

private:
    size_t size_;
    State *state_;
};

bool same_description(const Chip &a, const Chip &b)
{
    return std::strncmp(a.name, b.name, sizeof(a.name)) == 0 && a.type == b.type &&
           a.bus == b.bus && a.address == b.address && a.channel == b.channel &&
           a.parent == b.parent && a.busy_after_write == b.busy_after_write &&
           a.memory_size == b.memory_size && a.memory_offset == b.memory_offset &&
           a.scratch_offset == b.scratch_offset &&
           std::memcmp(a.described, b.described, sizeof(a.described)) == 0;
}

bool same_layout(const Bus &a, const Bus &b)
{
    return a.number == b.number && a.described == b.described && a.first_chip == b.first_chip &&
           a.chip_count == b.chip_count && a.switch_count == b.switch_count &&
           std::memcmp(a.addresses, b.addresses, sizeof(a.addresses)) == 0 &&
           std::memcmp(a.switches, b.switches, sizeof(a.switches)) == 0;
}

// Whether everything that says where things are is as described: nothing else can be looked at
// otherwise.
bool check_layout(const State &state, const State &model, Findings &findings)
{
    const size_t before = findings.lines.size();
    findings.subject = "layout";
    const Header &header = state.header;
    findings.expect(header.size == model.header.size, "the size is not that of the description");
    findings.expect(header.chip_count == model.header.chip_count,
                    "the number of devices is not that of the description");
    findings.expect(std::strncmp(header.name, model.header.name, sizeof(header.name)) == 0,
                    "the name is not that of the description");
    for (uint32_t i = 0; i < kBuses; i++) {
        findings.expect(same_layout(state.buses[i], model.buses[i]),
                        "bus " + std::to_string(i) + " is not as described");
    }
    for (uint32_t i = 0; i < model.header.chip_count; i++) {
        findings.expect(same_description(state.chips[i], model.chips[i]),
                        std::string(model.chips[i].name) + " is not as described");
    }
    return findings.lines.size() == before;
}

// Can be looked at while a task holds the bus: lines are there before they are counted.
bool check_journal(const State &state, const Journal &journal, Findings &findings)
{
    const uint32_t count = journal.count.load(std::memory_order_acquire);
    findings.expect(count <= kJournalLines, "its journal is longer than there is room");
    for (uint32_t i = 0; i < count && count <= kJournalLines; i++) {
        const uint64_t offset = journal.lines[i].offset;
        const bool good = offset % kLineSize == 0 && offset >= sizeof(Header) &&
                          offset + kLineSize <= state.header.size;
        findings.expect(good, "line " + std::to_string(i) + " of its journal is of nowhere");
        if (!good) {
            return false;
        }
    }
    return count <= kJournalLines;
}

void check_chip(const Chip &chip, uint64_t now, Findings &findings)
{
    findings.subject = chip.name;
    const ChipState &state = chip.state;
    const bool is_switch = chip.type == ChipType::pca9548;
    findings.expect(state.touched == 0, "takes part in a transfer that nobody makes");
    findings.expect(is_switch || (state.control == 0 && state.opener.pid == 0),
                    "has channels open, and is no switch");
    findings.expect(state.opener.pid >= 0 && state.opener.tid >= 0 &&
                        (state.opener.pid == 0 || state.control != 0),
                    "was opened by somebody and is closed");
    findings.expect(state.busy_until <= now + kLongestWriteCycleNs, "is busy for too long");
    findings.expect(chip.type != ChipType::at24c512 || state.pointer < chip.memory_size,
                    "points beyond its memory");
}

uint64_t count_transfers(const State &state, uint32_t bus, Findings &findings)
{
    uint64_t transfers = 0;
    for (const ProcessRecord &process : state.processes) {
        const Counters &counters = process.by_bus[bus];
        transfers += counters.transfers;
        findings.expect(counters.failed <= counters.transfers &&
                            counters.conflicts <= counters.transfers &&
                            counters.foreign_transfers <= counters.transfers &&
                            counters.two_channels <= counters.transfers,
                        "more went wrong for process " + std::to_string(process.pid.load()) +
                            " than it made transfers");
    }
    return transfers;
}

// Bytes of the record that starts at slot `at`; 0 when its slots do not belong together.
size_t record_bytes(const TraceSlot *ring, uint64_t at, uint64_t end)
{
    const uint64_t slots = ring[at % kTraceSlots].slots;
    if (slots > kTraceSlots || at + slots > end) {
        return 0;
    }
    size_t bytes = 0;
    for (uint64_t i = at; i < at + slots; i++) {
        const TraceSlot &slot = ring[i % kTraceSlots];
        if (slot.number != i + 1 || slot.used > sizeof(slot.payload) ||
            (i > at && slot.slots != 0)) {
            return 0;
        }
        bytes += slot.used;
    }
    return bytes;
}

void check_head(const RecordHead &head, Findings &findings)
{
    findings.expect(head.message_count >= 1 && head.message_count <= kMaxMessages &&
                        head.path_count <= kMaxPath && head.start_ns <= head.end_ns &&
                        head.task.pid > 0 && head.task.tid > 0 &&
                        (head.result < 0 || head.result == head.message_count ||
                         (head.fault != 0 && head.result < head.message_count)),
                    "record " + std::to_string(head.number) + " of its trace is none");
}

// The ring from its oldest whole record to its newest, without a gap.
void check_trace(const State &state, const Bus &bus, Findings &findings)
{
    const TraceSlot *const ring = state.traces[bus.number];
    const uint64_t end = bus.state.trace_slots;
    uint64_t last = 0;
    for (uint64_t at = end > kTraceSlots ? end - kTraceSlots : 0; at < end;) {
        const TraceSlot &first = ring[at % kTraceSlots];
        // The oldest slots may be of a record whose start is gone, or of one that was undone.
        if (last == 0 && (first.slots == 0 || first.number != at + 1)) {
            at++;
            continue;
        }
        const size_t bytes = record_bytes(ring, at, end);
        findings.expect(bytes >= sizeof(RecordHead),
                        "slot " + std::to_string(at) + " of its trace is out of order");
        if (bytes < sizeof(RecordHead)) {
            return;
        }
        RecordHead head;
        std::memcpy(&head, first.payload, sizeof(head));
        findings.expect(last == 0 || head.number == last + 1,
                        "its trace jumps to record " + std::to_string(head.number));
        check_head(head, findings);
        last = head.number;
        at += first.slots;
    }
    findings.expect(last == bus.state.records, "its trace does not end with the last transfer");
}

void check_faults(const State &state, const Bus &bus, Findings &findings)
{
    const FaultPlan &plan = state.faults[bus.number];
    findings.expect(plan.count <= kFaultSteps, "its fault plan is longer than there is room");
    uint32_t classes = 0;
    for (uint32_t i = 0; i < plan.count && i < kFaultSteps; i++) {
        const FaultStep &step = plan.steps[i];
        const bool has_chip = step.chip != kNoChip;
        classes |= class_of(step.kind);
        findings.expect(class_of(step.kind) != 0 && step.number > 0 && step.fired <= step.matched &&
                            (step.times == kForever || step.fired <= step.times) &&
                            (!has_chip || (step.chip < state.header.chip_count &&
                                           state.chips[step.chip].bus == bus.number)),
                        "fault step " + std::to_string(step.number) + " is none");
    }
    findings.expect(plan.classes.load() == classes, "its fault plan does not say what is in it");
}

void check_held_bus(const State &state, const Bus &bus, Findings &findings)
{
    const Journal &journal = state.journals[bus.number];
    findings.expect(journal.count.load() == 0, "its journal was left by somebody who let go");
    findings.expect(bus.state.lock_holder >= 0 && bus.state.semaphore.pid >= 0 &&
                        bus.state.file.pid >= 0,
                    "its locks are held by nobody there can be");
    findings.expect(count_transfers(state, bus.number, findings) == bus.state.records,
                    "the counters do not add up to the transfers of its trace");
    check_trace(state, bus, findings);
    check_faults(state, bus, findings);
    const uint64_t now = now_ns();
    for (uint32_t i = 0; i < bus.chip_count; i++) {
        check_chip(state.chips[bus.first_chip + i], now, findings);
    }
}

void check_bus(State &state, Bus &bus, uint32_t patience_ms, Findings &findings)
{
    findings.subject = "bus " + std::to_string(bus.number);
    if (!check_journal(state, state.journals[bus.number], findings)) {
        return; // putting it back would do harm
    }
    BusHold hold;
    if (!lock_bus_within(state, bus, hold, patience_ms)) {
        findings.expect(false, "cannot be had");
        return;
    }
    try {
        check_held_bus(state, bus, findings);
    } catch (...) {
        unlock_bus(state, bus, hold);
        throw;
    }
    unlock_bus(state, bus, hold);
}

void check_processes(State &state, uint32_t patience_ms, Findings &findings)
{
    findings.subject = "processes";
    const int status = lock_within(state.process_mutex, 1000 + patience_ms);
    if (status == EOWNERDEAD) {
        pthread_mutex_consistent(&state.process_mutex);
    } else if (status != 0) {
        findings.expect(false, "their table cannot be had");
        return;
    }
    for (uint32_t i = 1; i < kProcesses; i++) {
        const ProcessRecord &record = state.processes[i];
        const int32_t pid = record.pid.load();
        findings.expect(pid >= 0 && std::memchr(record.name, 0, sizeof(record.name)) != nullptr,
                        "record " + std::to_string(i) + " is of none");
        for (uint32_t j = 1; j < i && pid > 0; j++) {
            const ProcessRecord &other = state.processes[j];
            findings.expect(other.pid.load() != pid || other.start_ticks != record.start_ticks,
                            std::to_string(pid) + " is there twice");
        }
    }
    pthread_mutex_unlock(&state.process_mutex);
}

void check_file(const std::string &path, Findings &findings)
{
    struct stat status;
    const bool there = lstat(path.c_str(), &status) == 0;
    findings.subject = path;
    findings.expect(there && S_ISREG(status.st_mode), "is missing");
    findings.expect(!there || (status.st_mode & 077) == 0, "is not private to its user");
}

void check_files(const BoardView &view, const BoardDescription &description, Findings &findings)
{
    for (const char *name : {"/state", "/mem", "/board.json"}) {
        check_file(view.directory + name, findings);
    }
    for (const uint32_t bus : description.buses) {
        check_file(view.directory + "/i2c-" + std::to_string(bus), findings);
    }
}

} // namespace

std::vector<std::string> find_inconsistencies(const BoardView &view,
                                              const BoardDescription &description,
                                              uint32_t patience_ms)
{
    State &state = *view.state;
    Findings findings;
    check_files(view, description, findings);
    const Model model(description);
    if (check_layout(state, model.state(), findings)) {
        for (Bus &bus : state.buses) {
            check_bus(state, bus, patience_ms, findings);
        }
        check_processes(state, patience_ms, findings);
    }
    return findings.lines;
}

} // namespace simboard
