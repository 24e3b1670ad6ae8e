// See imports.h.
#include "imports.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <link.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <tuple>
#include <unistd.h>

#include "platform/qelplatform.h"
#include "qeli2c.h"

extern "C" int __register_atfork(void (*)(), void (*)(), void (*)(), void *); // NOLINT

namespace imports
{

namespace
{

constexpr int kFirstError = 1000; // beyond those of the kernel: each failure has its own

thread_local long trap_at = 0;
thread_local long count = 0;
thread_local void (*trap_action)() = nullptr;
std::atomic<int> counts[static_cast<size_t>(Kind::infallible) + 1];

// The rest is of processes of one thread, with all hooks.
bool all_hooks = false;
bool recording = false;
Trace unrecorded;
Trace *run = &unrecorded;
Plan plan;
Holdings holdings;
uint32_t keys[64]; // of the semaphores
int device_fd = -1;
uint8_t slave_address = 0;

void wrong(const char *what)
{
    std::snprintf(run->wrong, sizeof(run->wrong), "%s", what);
}

void pass(Kind kind)
{
    ++counts[static_cast<size_t>(kind)];
    if (trap_action != nullptr && ++count == trap_at)
        trap_action();
}

// Records a call; true when it is to fail, with errno set unless the kind has none.
bool strikes(Kind kind, uintptr_t detail = 0, uint8_t address = 0)
{
    if (!recording)
        return false;
    if (run->calls == std::size(run->call)) {
        wrong("more calls than there is room for");
        return false;
    }
    const int number = static_cast<int>(run->calls++);
    Step &call = run->call[number];
    const bool behind = plan.target >= 0 && number > plan.target;
    const bool fails = number == plan.target || (behind && plan.mode == Mode::later) ||
                       (behind && plan.mode == Mode::kind && run->call[plan.target].kind == kind);
    call = {kind, fails, address, detail, 0};
    if (fails && kind != Kind::mutex && kind != Kind::fork_handler) {
        const bool timeout = kind == Kind::wait && plan.timeout && number == plan.target;
        call.error = timeout ? ETIMEDOUT : kFirstError + number;
        errno = call.error;
    }
    return fails;
}

template <Kind kind>
int failure()
{
    switch (kind) {
    case Kind::mutex:
        return EINVAL;
    case Kind::fork_handler:
        return ENOMEM;
    case Kind::wait:
        return errno == ETIMEDOUT ? 0 : -1;
    default:
        return -1;
    }
}

template <Kind kind, typename... Arguments>
uintptr_t detail_of(Arguments... arguments)
{
    [[maybe_unused]] const auto first = std::get<0>(std::tuple(arguments...));
    if constexpr (kind == Kind::mutex)
        return reinterpret_cast<uintptr_t>(first);
    else if constexpr (kind == Kind::sem_create)
        return first;
    else if constexpr (kind == Kind::sem_lock || kind == Kind::sem_unlock)
        return first < 0 ? 0 : keys[first];
    else
        return 0;
}

// What a call has brought.
void account(Kind kind, intptr_t result, uintptr_t detail)
{
    const bool good = result != -1;
    if (kind == Kind::device_file && good) {
        ++holdings.device_files;
        device_fd = static_cast<int>(result);
    } else if (kind == Kind::sem_create && good) {
        keys[result] = static_cast<uint32_t>(detail);
    } else if (kind == Kind::mutex) {
        holdings.mutexes += result == 0 ? 1 : 0;
    } else if (kind == Kind::memory_file) {
        holdings.other_files += good ? 1 : 0;
    } else if (kind == Kind::map) {
        holdings.mappings += good ? 1 : 0;
    } else if (kind == Kind::infallible && result != 0) {
        wrong("a bounded copy was misused"); // sizes fit, whatever the caller passed
    }
}

// A release that fails has released all the same, as of a semaphore that was removed.
template <Kind kind, auto function, typename Result, typename... Arguments>
Result forward(Arguments... arguments)
{
    constexpr bool release = kind == Kind::sem_unlock || kind == Kind::file_unlock;
    pass(kind);
    if (!all_hooks)
        return function(arguments...);
    const uintptr_t detail = detail_of<kind>(arguments...);
    Result result{};
    if (release)
        result = function(arguments...);
    const uint8_t address = kind == Kind::wait ? slave_address : 0;
    if (kind != Kind::infallible && strikes(kind, detail, address))
        return (Result)(intptr_t)failure<kind>(); // NOLINT: a number or a pointer
    if (!release)
        result = function(arguments...);
    account(kind, (intptr_t)result, detail); // NOLINT
    return result;
}

template <Kind kind, auto function, typename Result, typename... Arguments>
constexpr auto hook(Result (*)(Arguments...))
{
    return &forward<kind, function, Result, Arguments...>;
}

// With one argument more than the declaration has: a mode.
template <Kind kind, auto function, typename Result, typename... Arguments>
constexpr auto hook(Result (*)(Arguments..., ...))
{
    return &forward<kind, function, Result, Arguments..., unsigned>;
}

// Each block has its size in front.
constexpr size_t kFront = 16;

int &owners_of(size_t size)
{
    const bool record = size == sizeof(ui2c_adapter) || size == sizeof(ui2c_switch) ||
                        size == sizeof(ui2c_adapter_data);
    return record ? holdings.records : holdings.buffers;
}

void *hook_malloc(size_t size)
{
    auto *block =
        strikes(Kind::memory, size) ? nullptr : static_cast<size_t *>(malloc(size + kFront));
    if (block == nullptr)
        return nullptr;
    *block = size;
    ++owners_of(size);
    return reinterpret_cast<uint8_t *>(block) + kFront;
}

void hook_free(void *block)
{
    if (block == nullptr)
        return;
    auto *front = reinterpret_cast<size_t *>(static_cast<uint8_t *>(block) - kFront);
    --owners_of(*front);
    free(front);
    errno = EBADF; // may change errno
}

int hook_mutex_unlock(pthread_mutex_t *mutex)
{
    if (--holdings.mutexes < 0)
        wrong("gave back a mutex that it did not hold");
    return holdings.mutexes < 0 ? 0 : pthread_mutex_unlock(mutex);
}

int hook_close(int fd)
{
    if (fd == device_fd)
        wrong("closed a device file");
    --holdings.other_files;
    const int ret = close(fd);
    errno = EBADF; // may change errno
    return ret;
}

int hook_snprintf(char *dest, size_t size, const char *format, ...)
{
    if (strikes(Kind::text))
        return -1;
    va_list arguments;
    va_start(arguments, format);
    const int ret = std::vsnprintf(dest, size, format, arguments);
    va_end(arguments);
    return ret;
}

int hook_ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    const unsigned long argument = va_arg(arguments, unsigned long);
    va_end(arguments);
    const Kind kind = request == I2C_SLAVE         ? Kind::slave
                      : request == I2C_SLAVE_FORCE ? Kind::slave_force
                      : request == I2C_PEC         ? Kind::pec
                      : request == I2C_SMBUS       ? Kind::smbus
                                                   : Kind::rdwr;
    pass(kind);
    if (!all_hooks)
        return ioctl(fd, request, argument);
    if (kind == Kind::slave || kind == Kind::slave_force)
        slave_address = static_cast<uint8_t>(argument);
    return strikes(kind, 0, slave_address) ? -1 : ioctl(fd, request, argument);
}

int hook_response(int, uint8_t *buffer)
{
    if (strikes(Kind::response))
        return -1;
    std::memset(buffer, 0x77, 5);
    return 5;
}

int hook_print(const char *, ...)
{
    errno = EBADF; // may change errno
    return 0;
}

void hook_pause(uint32_t seconds, uint32_t microseconds)
{
    pass(Kind::infallible);
    if (!all_hooks)
        return select_sleep(seconds, microseconds);
    errno = EINTR; // may change errno
}

// Messages go nowhere.
void hook_nothing() {}

struct Import {
    const char *name;
    void *hook;
    bool traps = false;
};
#define HOOK(name, function) name, reinterpret_cast<void *>(&(function))
#define FORWARD(kind, name, function)                                                              \
    name, reinterpret_cast<void *>(hook<Kind::kind, &(function)>(&(function)))

const Import kImports[] = {
    {HOOK("malloc", hook_malloc)},
    {HOOK("free", hook_free)},
    {FORWARD(fork_handler, "__register_atfork", __register_atfork)},
    {FORWARD(mutex, "pthread_mutex_lock", pthread_mutex_lock)},
    {HOOK("pthread_mutex_unlock", hook_mutex_unlock)},
    {HOOK("qel_snprintf_s", hook_snprintf)},
    {FORWARD(device_file, "sigwrap_open", sigwrap_open), true},
    {FORWARD(memory_file, "open", open), true},
    {FORWARD(memory_file, "open64", open), true},
    {HOOK("close", hook_close)},
    {FORWARD(map, "mmap", mmap), true},
    {FORWARD(map, "mmap64", mmap), true},
    {FORWARD(sem_create, "OAL_SemCreate", OAL_SemCreate), true},
    {FORWARD(sem_lock, "OAL_SemLockBySemId", OAL_SemLockBySemId), true},
    {FORWARD(sem_unlock, "OAL_SemUnLockBySemId", OAL_SemUnLockBySemId), true},
    {FORWARD(file_lock, "file_lock_write", file_lock_write), true},
    {FORWARD(file_unlock, "file_unlock", file_unlock), true},
    {HOOK("ioctl", hook_ioctl), true},
    {HOOK("__ioctl_time64", hook_ioctl), true},
    {FORWARD(wait, "sigwrap_select", sigwrap_select), true},
    {HOOK("select_sleep", hook_pause), true},
    {FORWARD(register_read, "mmap_read32", mmap_read32)},
    {HOOK("i2c_mctp_read_on_fd", hook_response)},
    {HOOK("IDBG_LINUXAPP_DbgOut", hook_nothing)},
    {HOOK("IDBG_LINUXAPP_Runtime_DbgOut", hook_nothing)},
    {HOOK("IDBG_LINUXAPP_AuditOut", hook_nothing)},
    {HOOK("sspFailedStat", hook_nothing)},
    {HOOK("_ssp_error", hook_nothing)},
    {HOOK("_ssp_info", hook_nothing)},
    {HOOK("qel_printf_s", hook_print)},
    {HOOK("sleep", hook_nothing)},
    {FORWARD(infallible, "qel_memset_s", qel_memset_s)},
    {FORWARD(infallible, "qel_memcpy_s", qel_memcpy_s)},
};

// Called as they are: they cannot fail.
// clang-format off
const char *const kInfallible[] = {
    "__errno_location", "__fdelt_chk", "__stack_chk_fail", "__xpg_strerror_r", "getpid",
    "pthread_setcancelstate", "qel_strerror_s", "__libc_single_threaded", "__cxa_finalize",
    "__gmon_start__", "_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable",
};
// clang-format on

// A name that the library asks other objects for, and the slot with what it was given.
struct Slot {
    const char *name;
    void **slot;
    const Import *import; // null when unknown
};

using Tags = uintptr_t[DT_NUM];

template <typename Entry>
void read_slots(uintptr_t base, const Tags &tag, int table, int size, std::vector<Slot> &slots)
{
    const auto *symbols = reinterpret_cast<const ElfW(Sym) *>(tag[DT_SYMTAB]); // NOLINT
    const auto *names = reinterpret_cast<const char *>(tag[DT_STRTAB]);        // NOLINT
    const auto *entry = reinterpret_cast<const Entry *>(tag[table]);           // NOLINT
    for (size_t i = 0; i < tag[size] / sizeof(Entry); ++i) {
        const size_t index =
            sizeof(void *) == 8 ? entry[i].r_info >> 16 >> 16 : entry[i].r_info >> 8;
        if (index == 0 || symbols[index].st_shndx != SHN_UNDEF)
            continue;
        const char *name = names + symbols[index].st_name;
        const auto *import =
            std::find_if(std::begin(kImports), std::end(kImports),
                         [&](const Import &known) { return !std::strcmp(known.name, name); });
        slots.push_back({name, reinterpret_cast<void **>(base + entry[i].r_offset), // NOLINT
                         import == std::end(kImports) ? nullptr : import});
    }
}

int read_object(dl_phdr_info *object, size_t, void *result)
{
    if (std::strstr(object->dlpi_name, "libqeli2c.so") == nullptr)
        return 0;
    const uintptr_t base = object->dlpi_addr;
    Tags tag = {};
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        if (object->dlpi_phdr[i].p_type != PT_DYNAMIC)
            continue;
        const auto *dynamic = reinterpret_cast<const ElfW(Dyn) *>( // NOLINT
            base + object->dlpi_phdr[i].p_vaddr);
        for (; dynamic->d_tag != DT_NULL; ++dynamic) {
            if (dynamic->d_tag < DT_NUM)
                tag[dynamic->d_tag] = dynamic->d_un.d_ptr;
        }
    }
    auto &slots = *static_cast<std::vector<Slot> *>(result);
    read_slots<ElfW(Rela)>(base, tag, DT_RELA, DT_RELASZ, slots);
    read_slots<ElfW(Rel)>(base, tag, DT_REL, DT_RELSZ, slots);
    if (tag[DT_PLTREL] == DT_RELA)
        read_slots<ElfW(Rela)>(base, tag, DT_JMPREL, DT_PLTRELSZ, slots);
    else
        read_slots<ElfW(Rel)>(base, tag, DT_JMPREL, DT_PLTRELSZ, slots);
    return 1;
}

std::vector<Slot> all_slots()
{
    std::vector<Slot> slots;
    dl_iterate_phdr(read_object, &slots);
    return slots;
}

} // namespace

const char *name_of(Kind kind)
{
    // clang-format off
    static const char *const names[] = {
        "malloc", "pthread_atfork", "pthread_mutex_lock", "qel_snprintf_s", "sigwrap_open",
        "OAL_SemCreate", "OAL_SemLockBySemId", "OAL_SemUnLockBySemId", "open", "mmap",
        "file_lock_write", "file_unlock", "I2C_SLAVE", "I2C_SLAVE_FORCE", "I2C_RDWR", "I2C_PEC",
        "I2C_SMBUS", "sigwrap_select", "mmap_read32", "i2c_mctp_read_on_fd",
    };
    // clang-format on
    return names[static_cast<size_t>(kind)];
}

void install(Hooks hooks)
{
    all_hooks = hooks == Hooks::all;
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    for (const Slot &slot : all_slots()) {
        if (slot.import == nullptr || !(all_hooks || slot.import->traps))
            continue;
        const uintptr_t start = reinterpret_cast<uintptr_t>(slot.slot) & ~(page - 1);
        if (mprotect(reinterpret_cast<void *>(start), page, PROT_READ | PROT_WRITE) != 0) // NOLINT
            abort();
        *slot.slot = slot.import->hook;
    }
}

std::vector<std::string> unknown()
{
    std::vector<std::string> names;
    for (const Slot &slot : all_slots()) {
        if (slot.import == nullptr &&
            std::none_of(std::begin(kInfallible), std::end(kInfallible),
                         [&](const char *name) { return std::strcmp(name, slot.name) == 0; }))
            names.emplace_back(slot.name);
    }
    return names;
}

void trap(long at, void (*action)())
{
    count = 0;
    trap_at = at;
    trap_action = action;
}

int made(Kind kind)
{
    return counts[static_cast<size_t>(kind)];
}

void record(Trace &into, const Plan &planned)
{
    run = &into;
    run->calls = 0;
    run->wrong[0] = '\0';
    plan = planned;
    recording = true;
}

void stop()
{
    recording = false;
    int cancellation = PTHREAD_CANCEL_ENABLE;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &cancellation);
    if (cancellation != PTHREAD_CANCEL_ENABLE)
        wrong("left the thread's cancellation put off");
    run->held = holdings;
    run = &unrecorded;
}

} // namespace imports
