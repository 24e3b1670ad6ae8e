// What a simulated board consists of in memory: one shared file, mapped by every process that uses
// the board.
//
// The layout holds no pointers, so each process may map it anywhere. A bus's mutable parts (its
// BusState, the ChipState and memory of its chips, its fault plan, its column of every process's
// counters) are written by the holder of the bus's mutex alone, and only after `preserve` has put
// the old bytes into the bus's journal.
#ifndef SIMBOARD_STATE_H
#define SIMBOARD_STATE_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include <atomic>

namespace simboard
{

constexpr uint64_t kStateMagic = 0x314d4953494c4551; // "QELISIM1"
constexpr uint32_t kStateVersion = 6;

constexpr uint32_t kBuses = 16;
constexpr uint32_t kChips = 1024;
constexpr uint32_t kChipsPerBus = 128;
constexpr uint32_t kProcesses = 256;
constexpr uint32_t kNoParent = 0xffff;
constexpr size_t kNameSize = 64;
constexpr size_t kDescribedSize = 32;

// The limits of i2c-dev (linux/i2c-dev.h and drivers/i2c/i2c-dev.c).
constexpr uint32_t kMaxMessages = 42;
constexpr uint32_t kMaxMessageLength = 8192;

// Old bytes are kept in lines. A message that walks through a chip's memory changes at most 65
// lines, the chips' own states and the counters few more; so no transfer needs more than this.
constexpr size_t kLineSize = 128;
constexpr uint32_t kJournalLines = 3072;

constexpr size_t kTraceSlotSize = 256;
constexpr uint32_t kTraceSlots = 4096; // per bus
constexpr uint32_t kRecorders = 8;

constexpr uint32_t kFaultSteps = 64; // per bus: a bit each in a transfer's mask
constexpr uint16_t kNoChip = 0xffff;
constexpr uint8_t kAnyAddress = 0xff;
constexpr uint32_t kForever = 0;

// Semaphore keys of the programs under test, and the keys of a board that stand for them: base +
// index.
constexpr uint32_t kSemaphoreKeys = 17;

enum class ChipType : uint8_t {
    none,
    pca9548,
    registers,
    at24c512,
    pca9535,
    pca9554,
    tpa626,
    retimer,
    epld_lattice,
    epld_pango,
    epld_anlogic_ef2,
    epld_anlogic_ef3,
    epld_subcard,
    mctp,
};

struct Task {
    int32_t pid;
    int32_t tid;
};

// What a chip remembers between transfers, and within one.
struct alignas(kLineSize) ChipState {
    uint64_t busy_until; // at24c512: end of the write cycle, CLOCK_MONOTONIC nanoseconds
    uint64_t opened_at;  // pca9548: when the open channels were opened, CLOCK_BOOTTIME nanoseconds
    Task opener;         // pca9548: who opened them; pid 0 when nobody, or nobody alive
    uint32_t pointer;    // register pointer, word address
    uint32_t received;   // bytes of the present message
    uint8_t control;     // pca9548: open channels
    uint8_t pending;     // pca9548: control register from STOP on
    uint8_t has_pending;
    uint8_t touched;  // took part in the present transfer
    uint8_t latching; // at24c512: data bytes wait for STOP
    uint8_t command;  // EPLDs: opcode of the present command
    uint8_t mode;     // EPLDs: of the configuration port
    uint8_t flash_command;
    uint8_t flash_status;
    uint8_t unplugged; // not on the board: a fault
};
static_assert(sizeof(ChipState) == kLineSize);

struct Chip {
    // As described; never changes.
    alignas(kLineSize) char name[kNameSize];
    ChipType type;
    uint8_t bus;
    uint8_t address;
    uint8_t channel; // of the parent
    uint16_t parent; // index of the switch it sits behind, kNoParent on the bus itself
    uint8_t busy_after_write;
    uint32_t memory_size;
    uint64_t memory_offset;            // from the start of the state; journalled by line
    uint64_t scratch_offset;           // bytes that mean nothing after a transfer, not journalled
    uint8_t described[kDescribedSize]; // surroundings at the start, or the pattern with its length

    ChipState state;
};
static_assert(sizeof(Chip) == 2 * kLineSize);

// What is counted for one process on one bus. Everything below `messages` down to `data_nacks` can
// happen on a healthy board; what follows never should.
struct alignas(kLineSize) Counters {
    uint64_t transfers;
    uint64_t messages;
    uint64_t bytes;
    uint64_t failed; // transfers that ended with an error of any kind
    uint64_t address_nacks;
    uint64_t data_nacks;
    uint64_t orphaned_paths;     // paths found open whose task had died
    uint64_t conflicts;          // transfers in which two chips answered at once
    uint64_t foreign_transfers;  // transfers inside the open path of another live task
    uint64_t paths_left_open;    // file locks released with a path of the process still open
    uint64_t two_channels;       // transfers that left two channels open on one segment
    uint64_t unbalanced_unlocks; // file locks released by a process that did not hold one
    uint64_t longest_hold_ns;    // of the bus's locks, from the first taken to the last released
    uint64_t longest_wait_ns;    // for one of the bus's locks that was then got
    uint32_t generation;         // of the process record these belong to
};
static_assert(sizeof(Counters) == kLineSize);

// Record 0 stands for processes that found no room and for those whose record was taken over after
// they died.
struct ProcessRecord {
    alignas(kLineSize) std::atomic<int32_t> pid; // 0: free
    uint32_t generation;
    uint64_t
        start_ticks; // start time of the process in clock ticks since boot: tells reused pids apart
    char name[16];
    Counters by_bus[kBuses];
};

enum class FaultKind : uint8_t {
    none,
    address_nack,
    data_nack,
    arbitration_lost,
    bus_stuck,
    bus_error,
    short_transfer,
    wrong_count,
    wrong_pec,
    unplugged,
    stuck_switch,
    not_ready,
    call_fails,
};

enum class FaultDirection : uint8_t { both, read, write };

// One step of a fault plan. It belongs to one bus, and is changed like the bus's other parts.
struct alignas(kLineSize) FaultStep {
    char label[32];        // given to it, or empty
    uint64_t seed;         // of the draws when the probability is not 1
    uint64_t after;        // matches let by before it may strike
    uint64_t times;        // strikes at most, or kForever
    uint64_t threshold;    // strikes when a draw of 32 bits is below it
    uint64_t matched;      // transfers or calls it was meant for
    uint64_t fired;        // strikes
    uint32_t call;         // call_fails: ioctl number, or kCallOpen
    int32_t error;         // bus_error, call_fails: errno
    uint16_t number;       // 1 for the first step of the board
    uint16_t chip;         // its index, kNoChip when any chip of the address is meant
    uint16_t reg;          // register or memory address first written
    uint16_t value;        // the kind's own: byte, count or messages
    uint8_t address;       // 7-bit address, or kAnyAddress
    uint8_t register_size; // bytes of `reg`, 0 when any is meant
    FaultKind kind;
    FaultDirection direction;
};
static_assert(sizeof(FaultStep) == kLineSize);

struct FaultPlan {
    alignas(kLineSize) std::atomic<uint32_t> classes; // bits of the kinds that are there (fault.h)
    uint32_t count;
    FaultStep steps[kFaultSteps]; // in the order of the plan
};

struct JournalLine {
    uint64_t offset;
    uint8_t bytes[kLineSize];
};

struct Journal {
    alignas(kLineSize) std::atomic<uint32_t> count;
    JournalLine lines[kJournalLines];
};

struct TraceSlot {
    uint64_t number; // 1 for the first slot ever written on the bus
    uint16_t slots;  // slots of the record that starts here, 0 in its further slots
    uint16_t used;   // bytes of payload in this slot
    uint32_t reserved;
    uint8_t payload[kTraceSlotSize - 16];
};
static_assert(sizeof(TraceSlot) == kTraceSlotSize);

// Somebody who records the trace as it comes (recorder.h).
struct alignas(kLineSize) Recorder {
    pthread_mutex_t alive;  // robust, and held by it
    uint64_t taken[kBuses]; // slots it has copied; looked at and changed with the bus held
};

struct LockHold {
    uint64_t since_ns; // CLOCK_MONOTONIC
    int32_t pid;       // 0 when nobody holds the lock, as far as seen
    int32_t reserved;
};

struct alignas(kLineSize) BusState {
    uint64_t trace_slots; // slots ever written
    uint64_t records;     // transfers ever recorded
    LockHold semaphore;   // who holds the bus's locks
    LockHold file;
    int32_t lock_holder; // process that holds a record lock on the device file, as far as seen
    uint32_t resets;     // times the trace was begun anew
};
static_assert(sizeof(BusState) == kLineSize);

struct Bus {
    alignas(kLineSize) pthread_mutex_t mutex; // robust, shared between processes
    std::atomic<uint32_t> retries;            // as set by I2C_RETRIES
    std::atomic<uint32_t> timeout_ms;         // as set by I2C_TIMEOUT
    std::atomic<uint32_t> recoveries;         // transfers undone because their process died
    uint32_t bit_ns;                          // time of one bit on the wire, 0 for none
    uint32_t first_chip;
    uint32_t chip_count;
    uint32_t switch_count;
    uint8_t number;
    uint8_t described;
    uint8_t addresses[kChipsPerBus]; // of chip first_chip + i
    uint16_t switches[kChipsPerBus]; // indices of the chips that are switches, parents first
    BusState state;
};

struct Header {
    uint64_t magic;
    uint32_t version;
    uint32_t mutex_size; // programs of another word size cannot share the board
    uint64_t size;
    uint64_t created_at; // CLOCK_REALTIME seconds
    uint64_t created_ns; // CLOCK_MONOTONIC
    uint64_t seed;       // takes the place of fault plans' own when not 0
    uint32_t semaphore_base;
    uint32_t chip_count;
    uint16_t id; // tells descriptors of different boards apart within a process
    char name[kNameSize];
};

struct State {
    Header header;
    pthread_mutex_t process_mutex;   // robust: guards the claiming of process records
    std::atomic<uint32_t> followers; // a futex: who sleeps until the next transfer (trace.h)
    std::atomic<uint32_t> deleted;   // 1 when nobody can come to the board any more
    std::atomic<uint32_t> awaited;   // a bit for each recorder that transfers wait for
    Recorder recorders[kRecorders];
    Bus buses[kBuses];
    Chip chips[kChips];
    ProcessRecord processes[kProcesses];
    FaultPlan faults[kBuses];
    Journal journals[kBuses];
    alignas(kLineSize) TraceSlot traces[kBuses][kTraceSlots];
    // Followed by the chips' memory and scratch areas, each starting on a line.
};

static_assert(std::atomic<uint32_t>::is_always_lock_free);

inline uint8_t *memory_of(State &state, const Chip &chip)
{
    return reinterpret_cast<uint8_t *>(&state) + chip.memory_offset;
}

inline uint8_t *scratch_of(State &state, const Chip &chip)
{
    return reinterpret_cast<uint8_t *>(&state) + chip.scratch_offset;
}

} // namespace simboard

#endif
