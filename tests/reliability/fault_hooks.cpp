#include "fault_hooks.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <unistd.h>

#include "platform/qelplatform.h"
#include "qeli2c.h"

namespace faults
{

const void *registry_mutex = nullptr;

namespace
{

constexpr int kFirstError = 1000; // beyond those of the kernel: each failure has its own
constexpr uint32_t kEepromKey = 0x3001;

Trace unrecorded;
Trace *run = &unrecorded;
Plan plan;
bool recording = false;

// What this process has of each; what a run tells is how it stands at its end.
struct Standing {
    void *blocks[64];
    uint32_t sizes[64];
    uint32_t count;
    uint32_t keys[64]; // of the semaphores
    int held[64];
    int file_lock;
    const void *mutexes[2];
    int locked[2];
    int device_files, other_files, mappings;
    int device_fd;
    uint8_t address;
} standing;

void *find(const char *name);

// The object that the library would have reached without the hook.
template <typename Function>
Function *real(Function *, const char *name)
{
    return reinterpret_cast<Function *>(find(name));
}
#define REAL(name) (real(static_cast<decltype(&(name))>(nullptr), #name))

void wrong(const char *what)
{
    std::snprintf(run->wrong, sizeof(run->wrong), "%s", what);
}

// Records a call; true when it is to fail, with errno set unless the kind has none.
bool strikes(Kind kind, uint32_t detail = 0, uint8_t address = 0, uint8_t byte = 0)
{
    if (!recording)
        return false;
    if (run->calls == kMostCalls) {
        wrong("more calls than there is room for");
        return false;
    }
    const int number = static_cast<int>(run->calls++);
    Call &call = run->call[number];
    const bool behind = plan.target >= 0 && number > plan.target;
    const bool fails = number == plan.target || (behind && plan.mode == Mode::later) ||
                       (behind && plan.mode == Mode::kind && run->call[plan.target].kind == kind);
    call = {kind, fails, address, byte, detail, 0};
    if (fails && kind != Kind::mutex && kind != Kind::fork_handler) {
        const bool timeout = kind == Kind::wait && plan.timeout && number == plan.target;
        call.error = timeout ? ETIMEDOUT : kFirstError + number;
        errno = call.error;
    }
    return fails;
}

void add_line(uint32_t level, const char *text)
{
    if (!recording)
        return;
    if (run->lines == kMostLines)
        return wrong("more lines than there is room for");
    run->line[run->lines++] = {level, text};
}

// Memory.

bool is_record(uint32_t size)
{
    return size == sizeof(ui2c_adapter) || size == sizeof(ui2c_switch) ||
           size == sizeof(ui2c_adapter_data);
}

void *hook_malloc(size_t size)
{
    if (strikes(Kind::memory, static_cast<uint32_t>(size)))
        return nullptr;
    void *block = REAL(malloc)(size);
    if (standing.count == 64)
        wrong("more blocks than there is room for");
    else if (block != nullptr) {
        standing.blocks[standing.count] = block;
        standing.sizes[standing.count++] = static_cast<uint32_t>(size);
    }
    return block;
}

void hook_free(void *block)
{
    for (uint32_t i = 0; i < standing.count; ++i) {
        if (standing.blocks[i] != block)
            continue;
        --standing.count;
        standing.blocks[i] = standing.blocks[standing.count];
        standing.sizes[i] = standing.sizes[standing.count];
        REAL(free)(block);
        errno = EBADF; // may change errno
        return;
    }
    if (block != nullptr)
        wrong("freed what it did not allocate");
}

// Mutexes.

int *mutex_state(const void *mutex)
{
    for (int i = 0; i < 2; ++i) {
        if (standing.mutexes[i] == nullptr)
            standing.mutexes[i] = mutex;
        if (standing.mutexes[i] == mutex)
            return &standing.locked[i];
    }
    abort();
}

int hook_mutex_lock(pthread_mutex_t *mutex)
{
    int *const state = mutex_state(mutex);
    if (strikes(Kind::mutex, mutex == registry_mutex ? 1 : 0))
        return EINVAL;
    ++*state;
    return REAL(pthread_mutex_lock)(mutex);
}

int hook_mutex_unlock(pthread_mutex_t *mutex)
{
    if (--*mutex_state(mutex) < 0) {
        *mutex_state(mutex) = 0;
        wrong("gave back a mutex that it did not hold");
        return 0;
    }
    return REAL(pthread_mutex_unlock)(mutex);
}

extern "C" int __register_atfork(void (*)(), void (*)(), void (*)(), void *); // NOLINT

int hook_register_atfork(void (*prepare)(), void (*parent)(), void (*child)(), void *object)
{
    return strikes(Kind::fork_handler) ? ENOMEM
                                       : REAL(__register_atfork)(prepare, parent, child, object);
}

// Files.

int hook_sigwrap_open(const char *path, int flags, ...)
{
    if (strikes(Kind::device_file))
        return -1;
    const int fd = REAL(sigwrap_open)(path, flags);
    if (fd >= 0) {
        ++standing.device_files;
        standing.device_fd = fd;
    }
    return fd;
}

int hook_open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    if (strikes(Kind::memory_file))
        return -1;
    const int fd = open(path, flags, mode);
    standing.other_files += fd >= 0 ? 1 : 0;
    return fd;
}

int hook_close(int fd)
{
    if (fd == standing.device_fd)
        wrong("closed a device file");
    --standing.other_files;
    const int ret = close(fd);
    errno = EBADF; // may change errno
    return ret;
}

void *hook_mmap(void *where, size_t length, int protection, int flags, int fd, off_t offset)
{
    if (strikes(Kind::map))
        return MAP_FAILED;
    void *table = mmap(where, length, protection, flags, fd, offset);
    standing.mappings += table != MAP_FAILED ? 1 : 0;
    return table;
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

// Locks. A release that fails has released all the same, as of a semaphore that was removed.

int32_t hook_sem_create(uint32_t key)
{
    if (strikes(Kind::sem_create, key))
        return -1;
    const int32_t id = REAL(OAL_SemCreate)(key);
    if (id >= 0)
        standing.keys[id] = key;
    return id;
}

int32_t hook_sem_lock(int32_t id, uint32_t wait)
{
    if (strikes(Kind::sem_lock, standing.keys[id]))
        return -1;
    if (wait != 65535)
        wrong("waits with a limit");
    const int32_t ret = REAL(OAL_SemLockBySemId)(id, wait);
    standing.held[id] += ret == 0 ? 1 : 0;
    return ret;
}

int32_t hook_sem_unlock(int32_t id, uint32_t wait)
{
    if (id >= 0)
        standing.held[id] = 0;
    const int32_t ret = REAL(OAL_SemUnLockBySemId)(id, wait);
    return strikes(Kind::sem_unlock, id >= 0 ? standing.keys[id] : 0) ? -1 : ret;
}

int hook_file_lock(int fd)
{
    if (strikes(Kind::file_lock))
        return -1;
    const int ret = REAL(file_lock_write)(fd);
    standing.file_lock += ret >= 0 ? 1 : 0;
    return ret;
}

int hook_file_unlock(int fd)
{
    standing.file_lock = 0;
    const int ret = REAL(file_unlock)(fd);
    return strikes(Kind::file_unlock) ? -1 : ret;
}

// Requests.

int hook_ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    const unsigned long argument = va_arg(arguments, unsigned long);
    va_end(arguments);
    uint8_t byte = 0;
    Kind kind = Kind::rdwr;
    switch (request) {
    case I2C_SLAVE:
    case I2C_SLAVE_FORCE:
        kind = request == I2C_SLAVE ? Kind::slave : Kind::slave_force;
        standing.address = static_cast<uint8_t>(argument);
        break;
    case I2C_PEC:
        kind = Kind::pec;
        break;
    case I2C_SMBUS:
        kind = Kind::smbus;
        break;
    default: {
        const auto *data = reinterpret_cast<const i2c_rdwr_ioctl_data *>(argument); // NOLINT
        if (data->nmsgs != 0 && data->msgs[0].buf != nullptr)
            byte = data->msgs[0].buf[0];
    }
    }
    if (strikes(kind, 0, standing.address, byte))
        return -1;
    return ioctl(fd, request, argument);
}

int hook_select(int count, fd_set *reads, fd_set *writes, fd_set *others, timeval *limit)
{
    if (limit == nullptr || limit->tv_sec != 1 || limit->tv_usec != 0)
        wrong("waits for a device for other than a second");
    if (strikes(Kind::wait, 0, standing.address))
        return errno == ETIMEDOUT ? 0 : -1;
    return REAL(sigwrap_select)(count, reads, writes, others, limit);
}

int hook_register_read(uint32_t address, uint32_t *value)
{
    return strikes(Kind::register_read) ? -1 : REAL(mmap_read32)(address, value);
}

int hook_response(int, uint8_t *buffer)
{
    if (strikes(Kind::response))
        return -1;
    std::memset(buffer, 0x77, 5);
    return 5;
}

// Messages: kept instead of written.

void hook_log(uint32_t level, const char *format, ...)
{
    add_line(level, format);
}

void hook_failed_stat(const char *, uint32_t) {}

void hook_error(uint32_t level, const char *, uint32_t, const char *, const char *text)
{
    add_line(level, text);
}

void hook_info(uint32_t level, const char *, uint32_t, const char *, const char *format, ...)
{
    add_line(level, format);
}

int hook_print(const char *format, ...)
{
    add_line(0, format);
    errno = EBADF; // may change errno
    return 0;
}

// Pauses: none.

unsigned hook_sleep(unsigned)
{
    return 0;
}

void hook_select_sleep(uint32_t, uint32_t)
{
    errno = EINTR; // may change errno
}

// Bounded copies cannot fail: their sizes fit, whatever the caller passed.

int hook_memset_s(void *dest, size_t size, int value, size_t count)
{
    const int ret = REAL(qel_memset_s)(dest, size, value, count);
    if (ret != 0)
        wrong("qel_memset_s was misused");
    return ret;
}

int hook_memcpy_s(void *dest, size_t size, const void *source, size_t count)
{
    const int ret = REAL(qel_memcpy_s)(dest, size, source, count);
    if (ret != 0)
        wrong("qel_memcpy_s was misused");
    return ret;
}

struct Hook {
    const char *name;
    void *function;
};
#define HOOK(name, function)                                                                       \
    {                                                                                              \
        name, reinterpret_cast<void *>(&(function))                                                \
    }

const Hook kHooks[] = {
    HOOK("malloc", hook_malloc),
    HOOK("free", hook_free),
    HOOK("__register_atfork", hook_register_atfork),
    HOOK("pthread_mutex_lock", hook_mutex_lock),
    HOOK("pthread_mutex_unlock", hook_mutex_unlock),
    HOOK("qel_snprintf_s", hook_snprintf),
    HOOK("sigwrap_open", hook_sigwrap_open),
    HOOK("open", hook_open),
    HOOK("open64", hook_open),
    HOOK("close", hook_close),
    HOOK("mmap", hook_mmap),
    HOOK("mmap64", hook_mmap),
    HOOK("OAL_SemCreate", hook_sem_create),
    HOOK("OAL_SemLockBySemId", hook_sem_lock),
    HOOK("OAL_SemUnLockBySemId", hook_sem_unlock),
    HOOK("file_lock_write", hook_file_lock),
    HOOK("file_unlock", hook_file_unlock),
    HOOK("ioctl", hook_ioctl),
    HOOK("__ioctl_time64", hook_ioctl),
    HOOK("sigwrap_select", hook_select),
    HOOK("mmap_read32", hook_register_read),
    HOOK("i2c_mctp_read_on_fd", hook_response),
    HOOK("IDBG_LINUXAPP_DbgOut", hook_log),
    HOOK("IDBG_LINUXAPP_Runtime_DbgOut", hook_log),
    HOOK("IDBG_LINUXAPP_AuditOut", hook_log),
    HOOK("sspFailedStat", hook_failed_stat),
    HOOK("_ssp_error", hook_error),
    HOOK("_ssp_info", hook_info),
    HOOK("qel_printf_s", hook_print),
    HOOK("sleep", hook_sleep),
    HOOK("select_sleep", hook_select_sleep),
    HOOK("qel_memset_s", hook_memset_s),
    HOOK("qel_memcpy_s", hook_memcpy_s),
};

// Called as they are: they cannot fail.
const char *const kInfallible[] = {
    "__errno_location",
    "__fdelt_chk",
    "__stack_chk_fail",
    "__xpg_strerror_r",
    "getpid",
    "pthread_setcancelstate",
    "qel_strerror_s",
    "__cxa_finalize",
    "__gmon_start__",
    "_ITM_deregisterTMCloneTable",
    "_ITM_registerTMCloneTable",
};

// A name that the library asks other objects for, and the slot with what it was given.
struct Import {
    const char *name;
    void **slot;
};

template <typename Entry>
void read_imports(uintptr_t base, uintptr_t table, size_t size, const ElfW(Sym) * symbols,
                  const char *names, std::vector<Import> &imports)
{
    const auto *entry = reinterpret_cast<const Entry *>(table); // NOLINT
    for (size_t i = 0; i < size / sizeof(Entry); ++i) {
        const size_t index =
            sizeof(void *) == 8 ? entry[i].r_info >> 16 >> 16 : entry[i].r_info >> 8;
        if (index != 0 && symbols[index].st_shndx == SHN_UNDEF)
            imports.push_back({names + symbols[index].st_name,
                               reinterpret_cast<void **>(base + entry[i].r_offset)}); // NOLINT
    }
}

int read_object(dl_phdr_info *object, size_t, void *result)
{
    if (std::strstr(object->dlpi_name, "libqeli2c.so") == nullptr)
        return 0;
    uintptr_t tag[DT_NUM] = {};
    for (int i = 0; i < object->dlpi_phnum; ++i) {
        if (object->dlpi_phdr[i].p_type != PT_DYNAMIC)
            continue;
        const auto *dynamic = reinterpret_cast<const ElfW(Dyn) *>( // NOLINT
            object->dlpi_addr + object->dlpi_phdr[i].p_vaddr);
        for (; dynamic->d_tag != DT_NULL; ++dynamic) {
            if (dynamic->d_tag < DT_NUM)
                tag[dynamic->d_tag] = dynamic->d_un.d_ptr;
        }
    }
    const auto *symbols = reinterpret_cast<const ElfW(Sym) *>(tag[DT_SYMTAB]); // NOLINT
    const auto *names = reinterpret_cast<const char *>(tag[DT_STRTAB]);        // NOLINT
    auto &imports = *static_cast<std::vector<Import> *>(result);
    const uintptr_t base = object->dlpi_addr;
    read_imports<ElfW(Rela)>(base, tag[DT_RELA], tag[DT_RELASZ], symbols, names, imports);
    read_imports<ElfW(Rel)>(base, tag[DT_REL], tag[DT_RELSZ], symbols, names, imports);
    if (tag[DT_PLTREL] == DT_RELA)
        read_imports<ElfW(Rela)>(base, tag[DT_JMPREL], tag[DT_PLTRELSZ], symbols, names, imports);
    else
        read_imports<ElfW(Rel)>(base, tag[DT_JMPREL], tag[DT_PLTRELSZ], symbols, names, imports);
    return 1;
}

std::vector<Import> imports()
{
    std::vector<Import> found;
    dl_iterate_phdr(read_object, &found);
    return found;
}

void *find(const char *name)
{
    return dlsym(RTLD_DEFAULT, name);
}

const Hook *hook_of(const char *name)
{
    const Hook *const end = std::end(kHooks);
    const Hook *const hook = std::find_if(
        std::begin(kHooks), end, [name](const Hook &h) { return std::strcmp(h.name, name) == 0; });
    return hook == end ? nullptr : hook;
}

} // namespace

const char *name_of(Kind kind)
{
    static const char *const names[] = {
        "malloc",
        "pthread_atfork",
        "pthread_mutex_lock",
        "qel_snprintf_s",
        "sigwrap_open",
        "OAL_SemCreate",
        "OAL_SemLockBySemId",
        "OAL_SemUnLockBySemId",
        "open",
        "mmap",
        "file_lock_write",
        "file_unlock",
        "I2C_SLAVE",
        "I2C_SLAVE_FORCE",
        "I2C_RDWR",
        "I2C_PEC",
        "I2C_SMBUS",
        "sigwrap_select",
        "mmap_read32",
        "i2c_mctp_read_on_fd",
    };
    return names[static_cast<size_t>(kind)];
}

bool is_request(Kind kind)
{
    return kind >= Kind::slave && kind <= Kind::wait;
}

void install_hooks()
{
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    for (const Import &import : imports()) {
        const Hook *const hook = hook_of(import.name);
        if (hook == nullptr)
            continue;
        const uintptr_t start = reinterpret_cast<uintptr_t>(import.slot) & ~(page - 1);
        if (mprotect(reinterpret_cast<void *>(start), page, PROT_READ | PROT_WRITE) != 0) // NOLINT
            abort();
        *import.slot = hook->function;
    }
}

std::vector<std::string> unknown_imports()
{
    std::vector<std::string> unknown;
    for (const Import &import : imports()) {
        const bool harmless =
            std::any_of(std::begin(kInfallible), std::end(kInfallible),
                        [&](const char *name) { return std::strcmp(name, import.name) == 0; });
        if (hook_of(import.name) == nullptr && !harmless)
            unknown.emplace_back(import.name);
    }
    return unknown;
}

void record(Trace &into, const Plan &planned)
{
    run = &into;
    run->calls = run->lines = 0;
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
    run->bus_semaphore = run->eeprom_semaphore = run->buffers = run->records = 0;
    for (int id = 0; id < 64; ++id)
        (standing.keys[id] == kEepromKey ? run->eeprom_semaphore : run->bus_semaphore) +=
            standing.held[id];
    for (uint32_t i = 0; i < standing.count; ++i)
        ++(is_record(standing.sizes[i]) ? run->records : run->buffers);
    run->file_lock = standing.file_lock;
    run->mutexes = standing.locked[0] + standing.locked[1];
    run->device_files = standing.device_files;
    run->other_files = standing.other_files;
    run->mappings = standing.mappings;
    run = &unrecorded;
}

const void *last_mutex()
{
    return standing.mutexes[0];
}

} // namespace faults
