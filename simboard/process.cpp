// Process records and task identity.
#include "simboard/process.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "simboard/bus_lock.h"

namespace simboard
{

namespace
{

struct TaskStatus {
    char state;   // as in /proc/PID/stat, 0 when it could not be read
    bool exiting; // will run no more of its program, and may have given up what it held
    uint64_t start_ticks;
};

constexpr unsigned long kExiting = 0x4; // PF_EXITING in the kernel's linux/sched.h

// What fits of a file under /proc, as a string; 0 when it cannot be read.
size_t read_text(const char *path, char *text, size_t room)
{
    // By number: `open` may be the shim's own.
    const int fd = static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC));
    const ssize_t size = fd < 0 ? -1 : read(fd, text, room - 1);
    if (fd >= 0) {
        close(fd);
    }
    text[size > 0 ? size : 0] = '\0';
    return size > 0 ? static_cast<size_t>(size) : 0;
}

// Fields 3, 9 and 22 of proc_pid_stat(5); the name in field 2 may hold anything, so fields count
// from its last ')'.
TaskStatus read_status(const char *path)
{
    TaskStatus status = {};
    char text[512];
    if (read_text(path, text, sizeof(text)) == 0) {
        return status;
    }
    const char *field = strrchr(text, ')');
    if (field == nullptr || field[1] == '\0') {
        return status;
    }
    status.state = field[2];
    for (int number = 2; number < 22 && field != nullptr; number++) {
        field = strchr(field + 1, ' ');
        if (number == 8 && field != nullptr) {
            status.exiting = (strtoul(field + 1, nullptr, 10) & kExiting) != 0;
        }
    }
    if (field != nullptr) {
        status.start_ticks = strtoull(field + 1, nullptr, 10);
    }
    return status;
}

bool is_dead(const TaskStatus &status)
{
    return status.exiting || status.state == 'Z' || status.state == 'X' || status.state == 'x';
}

struct Process {
    int32_t pid;
    uint64_t start_ticks;
    char name[16];
};

void name_process(Process &process, const char *text, size_t length)
{
    memcpy(process.name, text, length < sizeof(process.name) ? length : sizeof(process.name) - 1);
}

void take_record(ProcessRecord &record, const Process &process)
{
    // The counters that stand there stay, marked as another generation's, until each bus's holder
    // gets to them.
    record.pid.store(0, std::memory_order_release);
    record.generation++;
    record.start_ticks = process.start_ticks;
    memcpy(record.name, process.name, sizeof(record.name));
    record.pid.store(process.pid, std::memory_order_release);
}

uint32_t find_record(State &state, const Process &process)
{
    uint32_t free_record = 0;
    for (uint32_t i = 1; i < kProcesses; i++) {
        ProcessRecord &record = state.processes[i];
        const int32_t owner = record.pid.load(std::memory_order_acquire);
        if (owner == process.pid && record.start_ticks == process.start_ticks) {
            memcpy(record.name, process.name, sizeof(record.name));
            return i;
        }
        if (owner == 0 && free_record == 0) {
            free_record = i;
        }
    }
    for (uint32_t i = 1; i < kProcesses && free_record == 0; i++) {
        const ProcessRecord &record = state.processes[i];
        if (!process_lives(record.pid.load(std::memory_order_acquire), record.start_ticks)) {
            free_record = i;
        }
    }
    if (free_record != 0) {
        take_record(state.processes[free_record], process);
    }
    return free_record;
}

uint32_t claim_record(State &state, const Process &process)
{
    sigset_t all;
    sigset_t former;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &former);
    lock_shared(state.process_mutex);
    const uint32_t record = find_record(state, process);
    pthread_mutex_unlock(&state.process_mutex);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    return record;
}

struct CachedTask {
    uint32_t forks;
    const State *state;
    Self self;
};

std::atomic<uint32_t> forks{1};
std::atomic<bool> watching_forks{false};
// Initial-exec: reached without the dynamic linker's help, which would be one more library to need.
__attribute__((tls_model("initial-exec"))) thread_local CachedTask cached_task;

void watch_forks()
{
    if (!watching_forks.exchange(true, std::memory_order_acq_rel)) {
        pthread_atfork(nullptr, nullptr, [] { forks.fetch_add(1, std::memory_order_release); });
    }
}

void become(State &state, const Task &task, const Process &process)
{
    watch_forks();
    cached_task.self = {task, claim_record(state, process), {}};
    memcpy(cached_task.self.name, process.name, sizeof(cached_task.self.name));
    cached_task.state = &state;
    cached_task.forks = forks.load(std::memory_order_acquire);
}

// The process that a task belongs to, from "Name:\tTEXT" and "Tgid:\tNUMBER" in proc_pid_status(5);
// pid 0 when there is no such task.
Process process_of(int32_t tid)
{
    Process process = {};
    char path[32];
    snprintf(path, sizeof(path), "/proc/%d/status", tid);
    char text[512];
    const size_t size = read_text(path, text, sizeof(text));
    const char *const name = size > 0 ? strstr(text, "Name:\t") : nullptr;
    const char *const group = size > 0 ? strstr(text, "\nTgid:\t") : nullptr;
    if (name == nullptr || group == nullptr) {
        return process;
    }
    name_process(process, name + 6, strcspn(name + 6, "\n"));
    process.pid = static_cast<int32_t>(strtol(group + 7, nullptr, 10));
    snprintf(path, sizeof(path), "/proc/%d/stat", process.pid);
    process.start_ticks = read_status(path).start_ticks;
    return process;
}

Process own_process()
{
    Process process = {};
    name_process(process, program_invocation_short_name, strlen(program_invocation_short_name));
    process.pid = getpid();
    process.start_ticks = read_status("/proc/self/stat").start_ticks;
    return process;
}

} // namespace

Self current_task(State &state)
{
    const CachedTask &cached = cached_task;
    if (cached.forks != forks.load(std::memory_order_acquire) || cached.state != &state) {
        const int saved = errno;
        const Process process = own_process();
        become(state, {process.pid, static_cast<int32_t>(syscall(SYS_gettid))}, process);
        errno = saved;
    }
    return cached.self;
}

bool process_lives(int32_t pid, uint64_t start_ticks)
{
    if (kill(pid, 0) < 0 && errno == ESRCH) {
        return false;
    }
    char path[32];
    snprintf(path, sizeof(path), "/proc/%d/stat", pid);
    const TaskStatus status = read_status(path);
    return !is_dead(status) && (status.start_ticks == 0 || status.start_ticks == start_ticks);
}

void act_for(State &state, int32_t tid)
{
    const Process process = process_of(tid);
    if (process.pid != 0) {
        become(state, {process.pid, tid}, process);
    } else {
        cached_task.state = nullptr;
    }
}

void add_counters(Counters &sum, const Counters &counters)
{
    static constexpr uint64_t Counters::*kFields[] = {
        &Counters::transfers,       &Counters::messages,      &Counters::bytes,
        &Counters::failed,          &Counters::address_nacks, &Counters::data_nacks,
        &Counters::orphaned_paths,  &Counters::conflicts,     &Counters::foreign_transfers,
        &Counters::paths_left_open, &Counters::two_channels,  &Counters::unbalanced_unlocks,
    };
    for (uint64_t Counters::*field : kFields) {
        sum.*field += counters.*field;
    }
    for (uint64_t Counters::*longest : {&Counters::longest_hold_ns, &Counters::longest_wait_ns}) {
        if (counters.*longest > sum.*longest) {
            sum.*longest = counters.*longest;
        }
    }
}

Counters &own_counters(State &state, Bus &bus, uint32_t record)
{
    ProcessRecord &process = state.processes[record];
    Counters &own = process.by_bus[bus.number];
    preserve(state, bus, &own, sizeof(own));
    if (own.generation != process.generation) {
        Counters &shared = state.processes[0].by_bus[bus.number];
        preserve(state, bus, &shared, sizeof(shared));
        add_counters(shared, own);
        own = {};
        own.generation = process.generation;
    }
    return own;
}

bool is_alive(const Task &task, uint64_t since_ns)
{
    const int saved = errno;
    bool alive = syscall(SYS_tgkill, task.pid, task.tid, 0) == 0 || errno != ESRCH;
    if (alive) {
        char path[48];
        snprintf(path, sizeof(path), "/proc/%d/task/%d/stat", task.pid, task.tid);
        const TaskStatus status = read_status(path);
        const uint64_t ticks_per_second = static_cast<uint64_t>(sysconf(_SC_CLK_TCK));
        const uint64_t since_ticks = since_ns / (1'000'000'000 / ticks_per_second);
        alive = !is_dead(status) && status.start_ticks <= since_ticks;
    }
    errno = saved;
    return alive;
}

} // namespace simboard
