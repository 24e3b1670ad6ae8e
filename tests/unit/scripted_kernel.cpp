// The doubles of the platform's services and of the libc calls the library makes itself (linked
// with --wrap).
#include "scripted_kernel.h"

#include "bus/lock_order.h"
#include "include/qeli2c.h"
#include "platform/qelplatform.h"
#include "tests/calls/notation.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
#include <map>
#include <mutex>
#include <pthread.h>
#include <sched.h>
#include <set>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

#define WITH_ARGUMENTS(text)                                                                       \
    va_list arguments;                                                                             \
    va_start(arguments, format);                                                                   \
    const std::string text = printed_v(format, arguments);                                         \
    va_end(arguments)

using notation::name_of;
using notation::printed;
using notation::text_of;

namespace scripted
{
namespace
{

// Not a std::mutex: the library's mutexes are watched here, the double's own must not be among
// them.
struct SpinLock {
    std::atomic_flag taken = ATOMIC_FLAG_INIT;
    void lock()
    {
        while (taken.test_and_set(std::memory_order_acquire))
            sched_yield();
    }
    void unlock() { taken.clear(std::memory_order_release); }
};

constexpr int memory_fd = 900;
constexpr int first_semaphore = 0x3060; // ids are the keys
constexpr int eeprom_semaphore = 0x3001;
constexpr uint32_t no_owner = 0xcafe;

struct State {
    SpinLock lock;
    std::atomic<bool> idle = true;
    bool threads = false;
    std::vector<Answer> answers;
    std::vector<std::string> events;
    std::map<int, uint32_t> files; // descriptors and their buses
    std::atomic<unsigned> allocations = 0;
    std::atomic<unsigned> failing_allocation = 0;
    std::atomic<int> unreleased = 0;
};
State state;
SpinLock semaphore; // any one, while there are threads
alignas(64) uint32_t table[32];
thread_local int mutexes_held = 0;
thread_local bool mutex_lock_fails = false;
thread_local uint32_t check_line = 0;

std::string printed_v(const char *format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(nullptr, 0, format, arguments);
    std::string text(static_cast<size_t>(length) + 1, '\0');
    vsnprintf(text.data(), text.size(), format, again);
    va_end(again);
    text.pop_back();
    return text;
}

std::string file_name(int fd)
{
    const auto file = state.files.find(fd);
    return file == state.files.end() ? std::to_string(fd) : printed("i2c-%d", file->second);
}
std::string semaphore_name(int id)
{
    return id == eeprom_semaphore ? "sem-eeprom" : printed("sem-%d", id - first_semaphore);
}

// Who was recorded in the owner table since the last event.
void note_owners()
{
    for (uint32_t slot = 0; slot < 32 && !state.threads; ++slot)
        if (table[slot] != no_owner) {
            state.events.push_back(printed("owner %u = %u", slot, table[slot]));
            table[slot] = no_owner;
        }
}

std::string one_line(const std::string &text)
{
    std::string line;
    for (const char c : text)
        line += c == '\n' ? "\\n" : std::string(1, c);
    if (line.ends_with(' '))
        line.replace(line.size() - 1, 1, "\\x20");
    return line;
}

Answer happen(const std::string &text, int usual_result, bool answered)
{
    const std::lock_guard guard(state.lock);
    if (state.idle)
        ADD_FAILURE() << "outside any call: " << text;
    note_owners();
    state.events.push_back(one_line(text));
    Answer given = {text, 1, 1, usual_result};
    for (Answer &answer : state.answers) {
        if (!answered || text.find(answer.text) == std::string::npos ||
            ++answer.seen < answer.first || answer.seen > answer.last)
            continue;
        given = answer;
        const int step = static_cast<int>(answer.seen - answer.first);
        given.result = answer.result.value_or(usual_result);
        if (answer.error != 0) {
            *given.result -= step;
            given.error += step;
        }
    }
    if (answered)
        state.events.back() +=
            printed(" = %d", *given.result) + (given.error != 0 ? " " + name_of(given.error) : "");
    return given;
}

// A request: gets the result, errno as on a real system.
Answer request(const std::string &text, int usual_result = 0)
{
    Answer answer = happen(text, usual_result, true);
    if (state.threads) // the others get here meanwhile
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (answer.meanwhile)
        answer.meanwhile();
    if (answer.error != 0)
        errno = answer.error;
    return answer;
}

// The registry's mutex must never be held while one of these is taken or waited for.
Answer request_unlocked(const std::string &text, int usual_result = 0)
{
    return request(mutexes_held == 0 ? text : text + " while a mutex is held", usual_result);
}

// Lines and checks leave errno alone.
void note(const std::string &text)
{
    const int error = errno;
    happen(text, 0, false);
    errno = error;
}

// "[tag:line]text" becomes "[tag]text", and the same line number shown again becomes '#'.
std::string without_line(std::string text)
{
    const size_t bracket = text.find(']');
    if (!text.starts_with('[') || bracket == std::string::npos)
        return text;
    const size_t colon = text.rfind(':', bracket); // "[err:name:line]" has two
    const std::string number = colon < bracket ? text.substr(colon + 1, bracket - colon - 1) : "";
    if (number.empty() || number.find_first_not_of("0123456789") != std::string::npos)
        return text + " (without a line number)";
    text.erase(colon, bracket - colon);
    for (const std::string &shown : {"line: " + number + ",", " " + number + "]"})
        if (const size_t at = text.find(shown); at != std::string::npos)
            text.replace(text.find(number, at), number.size(), "#");
    return text;
}

// The same for a text without a tag that begins with "line: number,".
std::string without_leading_line(std::string text)
{
    const size_t comma = text.find(',');
    if (text.starts_with("line: ") && text[6] != '0' &&
        text.find_first_not_of("0123456789", 6) == comma)
        text.replace(6, comma - 6, "#");
    return text;
}

std::string files_of(const fd_set *set)
{
    std::string text;
    for (int fd = 0; set != nullptr && fd < FD_SETSIZE; ++fd)
        if (FD_ISSET(fd, set))
            text += file_name(fd);
    return text.empty() ? "none" : text;
}

void fill_read_messages(const i2c_rdwr_ioctl_data &data, const Bytes &reply)
{
    size_t taken = 0;
    for (uint32_t i = 0; i < data.nmsgs; ++i)
        if ((data.msgs[i].flags & I2C_M_RD) != 0)
            for (uint16_t j = 0; j < data.msgs[i].len && taken < reply.size(); ++j)
                data.msgs[i].buf[j] = reply[taken++];
}

int answer_smbus(const std::string &file, const i2c_smbus_ioctl_data &data)
{
    auto *area = reinterpret_cast<uint8_t *>(data.data);
    size_t used = QELI2C_SMBUS_AREA; // zeros at the end are not shown
    while (used > 0 && area[used - 1] == 0)
        --used;
    const Answer answer = request_unlocked(printed("%s I2C_SMBUS %s %02x size %u: ", file.c_str(),
                                                   data.read_write == I2C_SMBUS_READ    ? "read"
                                                   : data.read_write == I2C_SMBUS_WRITE ? "write"
                                                                                        : "neither",
                                                   data.command, data.size) +
                                           text_of(area, used));
    std::copy(answer.reply.begin(), answer.reply.end(), area);
    return *answer.result;
}

int answer_ioctl(int fd, unsigned long code, void *argument)
{
    const auto value = static_cast<unsigned>(reinterpret_cast<uintptr_t>(argument));
    const std::string file = file_name(fd);
    if (code == I2C_SLAVE || code == I2C_SLAVE_FORCE)
        return *request_unlocked(file + printed(" I2C_SLAVE%s %02x",
                                                code == I2C_SLAVE_FORCE ? "_FORCE" : "", value))
                    .result;
    if (code == I2C_PEC)
        return *request_unlocked(file + printed(" I2C_PEC %u", value)).result;
    if (code == I2C_SMBUS)
        return answer_smbus(file, *static_cast<i2c_smbus_ioctl_data *>(argument));
    if (code != I2C_RDWR)
        return *request(file + printed(" ioctl %lx", code)).result;
    const auto &data = *static_cast<i2c_rdwr_ioctl_data *>(argument);
    if (data.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS)
        return *request(file + " I2C_RDWR of too many messages", -1).result;
    const Answer answer = request_unlocked(file + " I2C_RDWR " + text_of(data.msgs, data.nmsgs),
                                           static_cast<int>(data.nmsgs));
    fill_read_messages(data, answer.reply);
    return *answer.result;
}

bool allocation_fails()
{
    if (state.idle)
        return false;
    const bool fails = ++state.allocations == state.failing_allocation;
    if (fails) {
        state.failing_allocation = 0;
        errno = ENOMEM;
    } else {
        ++state.unreleased;
    }
    return fails;
}

int answer_open(const char *call, const char *path, int flags)
{
    unsigned bus = 0;
    const bool is_bus = sscanf(path, "/dev/i2c-%u", &bus) == 1;
    const int fd =
        *request(printed("%s %s flags=%x", call, path, flags & ~(O_CLOEXEC | O_LARGEFILE)),
                 is_bus ? fd_of(bus) : memory_fd)
             .result;
    const std::lock_guard guard(state.lock);
    if (is_bus && fd >= 0)
        state.files[fd] = bus;
    return fd;
}

} // namespace

int fd_of(uint32_t bus)
{
    return 20 + static_cast<int>(bus % 1000);
}

uint32_t *owner_table()
{
    return table;
}

uint32_t fresh_bus()
{
    static std::atomic<uint32_t> last = 1015;
    return ++last;
}

void warm_up(uint32_t bus)
{
    static std::set<uint32_t> warm;
    if (warm.insert(bus).second)
        observe({}, [bus] {
            ui2c_adapter *adapter = ui2c_to_adapter(bus);
            ui2c_adapter_fd(adapter);
            if (bus < 16)
                ipc_unlock_adapter(ipc_lock_adapter(adapter));
            getPidOfI2CAccess(adapter);
        });
}

void fail_allocation(unsigned nth)
{
    state.failing_allocation = nth;
}
void fail_next_mutex_lock()
{
    mutex_lock_fails = true;
}
unsigned allocations()
{
    return state.allocations;
}
int unreleased()
{
    return state.unreleased;
}

void begin(std::vector<Answer> answers, bool threads)
{
    forget_locks(); // a call may end with a bus held
    const std::lock_guard guard(state.lock);
    state.answers = std::move(answers);
    state.threads = threads;
    state.events.clear();
    state.allocations = 0;
    state.unreleased = 0;
    std::fill_n(table, 32, no_owner);
    state.idle = false;
}

std::vector<std::string> end()
{
    const std::lock_guard guard(state.lock);
    note_owners();
    for (const Answer &answer : state.answers)
        if (answer.seen < answer.first)
            state.events.push_back("never asked: " + answer.text);
    if (state.failing_allocation.exchange(0) != 0)
        state.events.push_back("never asked: memory");
    if (mutex_lock_fails)
        state.events.push_back("never asked: a mutex");
    if (mutexes_held != 0)
        state.events.push_back("mutexes still held");
    mutex_lock_fails = false;
    state.idle = true;
    return state.events;
}

} // namespace scripted

using namespace scripted;

extern "C" {

void IDBG_LINUXAPP_DbgOut(uint32_t level, const char *format, ...)
{
    WITH_ARGUMENTS(text);
    note(printed("err%u ", level) + without_line(text));
}
void IDBG_LINUXAPP_Runtime_DbgOut(uint32_t level, const char *format, ...)
{
    WITH_ARGUMENTS(text);
    note(printed("run%u ", level) + without_line(text));
}
void IDBG_LINUXAPP_AuditOut(uint32_t level, const char *format, ...)
{
    WITH_ARGUMENTS(text);
    note(printed("audit%u ", level) + without_line(text));
}
void sspFailedStat(const char *file, uint32_t line)
{
    check_line = line;
    note(printed("sspFailedStat %s", file));
}
void _ssp_error(uint32_t level, const char *file, uint32_t line, const char *function,
                const char *text)
{
    note(printed("_ssp_error %u %s %s %s%s", level, file, function, text,
                 line == check_line && line > 0 ? "" : " (another line)"));
}
void _ssp_info(uint32_t level, const char *file, uint32_t, const char *function, const char *format,
               ...)
{
    WITH_ARGUMENTS(text);
    note(printed("_ssp_info %u %s %s ", level, file, function) + text);
}
int qel_printf_s(const char *format, ...)
{
    WITH_ARGUMENTS(text);
    note("stdout " + without_leading_line(text));
    return static_cast<int>(text.size());
}

int32_t OAL_SemCreate(uint32_t key)
{
    return *request(printed("OAL_SemCreate %u", key), static_cast<int>(key)).result;
}
int32_t OAL_SemLockBySemId(int32_t id, uint32_t wait)
{
    if (state.threads) // several may come at once
        semaphore.lock();
    return *request_unlocked(printed("lock %s %u", semaphore_name(id).c_str(), wait)).result;
}
// A release that succeeds may leave any errno behind: the library must not return it as a
// transfer's.
int32_t OAL_SemUnLockBySemId(int32_t id, uint32_t wait)
{
    if (state.threads)
        semaphore.unlock();
    errno = EDOM;
    return *request_unlocked(printed("unlock %s %u", semaphore_name(id).c_str(), wait)).result;
}
int file_lock_write(int fd)
{
    return *request_unlocked("file_lock_write " + file_name(fd)).result;
}
int file_unlock(int fd)
{
    errno = EDOM;
    return *request_unlocked("file_unlock " + file_name(fd)).result;
}
int sigwrap_open(const char *path, int flags, ...)
{
    return answer_open("sigwrap_open", path, flags);
}
int sigwrap_select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds,
                   struct timeval *timeout)
{
    return *request_unlocked("select below " + file_name(nfds - 1) + "+1 read " +
                                 files_of(readfds) + " write " + files_of(writefds) + " except " +
                                 files_of(exceptfds) +
                                 printed(" %ld.%06ld s", static_cast<long>(timeout->tv_sec),
                                         static_cast<long>(timeout->tv_usec)),
                             1)
                .result;
}
void select_sleep(uint32_t seconds, uint32_t microseconds)
{
    note(printed("select_sleep %u %u", seconds, microseconds));
    errno = EDOM; // as with the releases
}
int mmap_read32(uint32_t physical_address, uint32_t *value)
{
    const Answer answer = request(printed("mmap_read32 %x", physical_address));
    if (answer.reply.size() == sizeof(*value))
        memcpy(value, answer.reply.data(), sizeof(*value));
    return *answer.result;
}
int i2c_mctp_read_on_fd(int fd, uint8_t *buffer)
{
    const Answer answer = request("i2c_mctp_read_on_fd " + file_name(fd));
    std::copy(answer.reply.begin(), answer.reply.end(), buffer);
    return *answer.result;
}

int qel_memset_s(void *dest, size_t dest_size, int value, size_t count)
{
    if (dest == nullptr || count > dest_size) {
        note("qel_memset_s misused");
        return -1;
    }
    memset(dest, value, count);
    return 0;
}
int qel_memcpy_s(void *dest, size_t dest_size, const void *source, size_t count)
{
    if (dest == nullptr || source == nullptr || count > dest_size) {
        note("qel_memcpy_s misused");
        return -1;
    }
    memcpy(dest, source, count);
    return 0;
}
int qel_snprintf_s(char *dest, size_t dest_size, const char *format, ...)
{
    WITH_ARGUMENTS(text);
    const size_t kept = std::min(text.size(), dest_size - 1);
    memcpy(dest, text.data(), kept);
    dest[kept] = '\0';
    return kept == text.size() ? static_cast<int>(kept) : -1;
}
const char *qel_strerror_s(int errnum)
{
    const int error = errno;
    thread_local std::string text;
    text = name_of(errnum);
    errno = error;
    return text.c_str();
}

int __real_close(int fd);
pid_t __real_getpid(void);
void *__real_malloc(size_t size);
void __real_free(void *block);
unsigned __real_sleep(unsigned seconds);
int __real_pthread_atfork(void (*)(), void (*)(), void (*)());
int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t *mutex);

int __wrap_ioctl(int fd, unsigned long code, ...)
{
    va_list arguments;
    va_start(arguments, code);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    return answer_ioctl(fd, code, argument);
}
int __wrap_open64(const char *path, int flags, ...)
{
    return answer_open("open", path, flags);
}
int __wrap_close(int fd)
{
    if (state.idle)
        return __real_close(fd);
    errno = EDOM; // as with the releases
    return *request(printed("close %d", fd)).result;
}
void *__wrap_mmap64(void *, size_t length, int prot, int flags, int fd, off64_t offset)
{
    const Answer answer =
        request(printed("mmap %zu bytes at %llx prot=%d flags=%d fd=%d", length,
                        static_cast<unsigned long long>(offset), prot, flags, fd));
    return *answer.result < 0 ? MAP_FAILED : table;
}
pid_t __wrap_getpid(void)
{
    return state.idle ? __real_getpid() : *request("getpid", 4711).result;
}
void *__wrap_malloc(size_t size)
{
    void *block = allocation_fails() ? nullptr : __real_malloc(size);
    if (block != nullptr && !state.idle)
        memset(block, 0xa5, std::min<size_t>(size, 1 << 20)); // never taken for something set
    return block;
}
void __wrap_free(void *block)
{
    if (block != nullptr && !state.idle)
        --state.unreleased;
    __real_free(block);
}
unsigned __wrap_sleep(unsigned seconds)
{
    if (state.idle)
        return __real_sleep(seconds);
    note(printed("sleep %u", seconds));
    errno = EDOM; // as with the releases
    return 0;
}
// Fails once in every process: what depends on it has to ask again.
int __wrap_pthread_atfork(void (*prepare)(), void (*parent)(), void (*child)())
{
    static std::atomic<bool> failed = false;
    return failed.exchange(true) ? __real_pthread_atfork(prepare, parent, child) : ENOMEM;
}
int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex)
{
    if (mutex_lock_fails && !state.idle) {
        mutex_lock_fails = false;
        return EINVAL;
    }
    const int result = __real_pthread_mutex_lock(mutex);
    mutexes_held += result == 0;
    return result;
}
int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex)
{
    --mutexes_held;
    return __real_pthread_mutex_unlock(mutex);
}
}
