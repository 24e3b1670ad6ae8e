// The doubles of the platform's services and of the libc calls the library makes itself (linked
// with --wrap).
#include "scripted_kernel.h"

#include "bus/lock_order.h"
#include "include/qeli2c.h"
#include "platform/qelplatform.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/i2c-dev.h>
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

enum class Mode { idle, playing, observing };

struct State {
    SpinLock lock;
    std::atomic<Mode> mode = Mode::idle;
    Script script;
    size_t position = 0;
    std::string divergence;
    std::vector<std::string> seen;
    std::atomic<unsigned> allocations = 0;
    std::atomic<unsigned> failing_allocation = 0;
    std::atomic<int> unreleased = 0;
    std::atomic<int> process_id = 0;
};
State state;
SpinLock semaphore; // any one, while observing
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

Event answer_script(const std::string &text)
{
    if (state.divergence.empty() && state.position < state.script.size() &&
        state.script[state.position].text == text)
        return state.script[state.position++];
    if (state.divergence.empty()) {
        for (size_t i = state.position - std::min<size_t>(state.position, 4); i < state.position;
             ++i)
            state.divergence +=
                "  after     " + testing::PrintToString(state.script[i].text) + "\n";
        state.divergence += "  expected  " +
                            (state.position < state.script.size()
                                 ? testing::PrintToString(state.script[state.position].text)
                                 : "nothing more") +
                            "\n";
    }
    if (state.seen.size() < 6) // enough to see where it went
        state.divergence += "  got       " + testing::PrintToString(text) + "\n";
    state.seen.push_back(text);
    return {text, -1, EIO};
}

Event happen(const std::string &text, int usual_result)
{
    const std::lock_guard guard(state.lock);
    if (state.mode == Mode::idle)
        ADD_FAILURE() << "outside any script: " << text;
    if (state.mode != Mode::observing)
        return answer_script(text);
    state.seen.push_back(text);
    const auto exception = std::find_if(state.script.begin(), state.script.end(),
                                        [&](const Event &e) { return e.text == text; });
    if (exception == state.script.end())
        return {text, usual_result};
    const Event answer = *exception;
    state.script.erase(exception);
    return answer;
}

// A request: answers with the script's result, errno as on a real system.
Event request(const std::string &text, int usual_result = 0)
{
    const Event answer = happen(text, usual_result);
    if (state.mode == Mode::observing)
        std::this_thread::sleep_for(
            std::chrono::milliseconds(1)); // other threads get here meanwhile
    if (answer.meanwhile)
        answer.meanwhile();
    if (answer.error != 0)
        errno = answer.error;
    return answer;
}

// The registry's mutex must never be held while one of these is taken or waited for.
Event request_unlocked(const std::string &text, int usual_result = 0)
{
    return request(mutexes_held == 0 ? text : text + " while a mutex is held", usual_result);
}

// Lines and checks leave errno alone.
void note(const std::string &text)
{
    const int error = errno;
    happen(text, 0);
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

std::string hex(const uint8_t *bytes, size_t count)
{
    std::string text = "[";
    for (size_t i = 0; i < count; ++i)
        text += printed(i == 0 ? "%02x" : " %02x", bytes[i]);
    return text + "]";
}

std::string fds_of(const fd_set *set)
{
    if (set == nullptr)
        return "none";
    std::string text;
    for (int fd = 0; fd < FD_SETSIZE; ++fd)
        if (FD_ISSET(fd, set))
            text += printed("{%d}", fd);
    return text;
}

std::string describe(const i2c_msg *msgs, uint32_t count)
{
    std::string text = printed("%u:", count);
    for (uint32_t i = 0; i < count; ++i) {
        text += printed(" %02x flags=%x ", msgs[i].addr, msgs[i].flags);
        text += (msgs[i].flags & I2C_M_RD) != 0 ? printed("read %d", msgs[i].len)
                                                : hex(msgs[i].buf, msgs[i].len);
    }
    return text;
}

std::string describe_smbus(unsigned direction, unsigned command, unsigned size, const uint8_t *area)
{
    size_t used = QELI2C_SMBUS_AREA; // zeros at the end are not shown
    while (used > 0 && area[used - 1] == 0)
        --used;
    return printed("rw=%u cmd=%02x size=%u ", direction, command, size) + hex(area, used);
}

void fill_read_messages(const i2c_rdwr_ioctl_data &data, const Bytes &reply)
{
    size_t taken = 0;
    for (uint32_t i = 0; i < data.nmsgs; ++i)
        if ((data.msgs[i].flags & I2C_M_RD) != 0)
            for (uint16_t j = 0; j < data.msgs[i].len && taken < reply.size(); ++j)
                data.msgs[i].buf[j] = reply[taken++];
}

int answer_ioctl(int fd, unsigned long code, void *argument)
{
    const auto value = reinterpret_cast<uintptr_t>(argument);
    if (code == I2C_SLAVE || code == I2C_SLAVE_FORCE)
        return request_unlocked(
                   set_slave(fd, code == I2C_SLAVE_FORCE, static_cast<uint16_t>(value)).text)
            .result;
    if (code == I2C_PEC)
        return request_unlocked(set_pec(fd, static_cast<unsigned>(value)).text).result;
    if (code == I2C_RDWR) {
        const auto &data = *static_cast<i2c_rdwr_ioctl_data *>(argument);
        if (data.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS)
            return request(printed("ioctl %d I2C_RDWR of too many messages", fd), -1).result;
        const Event answer =
            request_unlocked(printed("ioctl %d I2C_RDWR ", fd) + describe(data.msgs, data.nmsgs),
                             static_cast<int>(data.nmsgs));
        fill_read_messages(data, answer.reply);
        return answer.result;
    }
    if (code == I2C_SMBUS) {
        const auto &data = *static_cast<i2c_smbus_ioctl_data *>(argument);
        auto *area = reinterpret_cast<uint8_t *>(data.data);
        const Event answer =
            request_unlocked(printed("ioctl %d I2C_SMBUS ", fd) +
                             describe_smbus(data.read_write, data.command, data.size, area));
        std::copy(answer.reply.begin(), answer.reply.end(), area);
        return answer.result;
    }
    return request(printed("ioctl %d %lx", fd, code)).result;
}

bool allocation_fails()
{
    if (state.mode == Mode::idle)
        return false;
    const bool fails = ++state.allocations == state.failing_allocation;
    if (fails)
        errno = ENOMEM;
    else
        ++state.unreleased;
    return fails;
}

int answer_open(const char *call, const char *path, int flags)
{
    unsigned bus = 0;
    const int usual = sscanf(path, "/dev/i2c-%u", &bus) == 1 ? fd_of(bus) : memory_fd;
    return request(printed("%s %s flags=%x", call, path, flags & ~(O_CLOEXEC | O_LARGEFILE)), usual)
        .result;
}

} // namespace

int fd_of(uint32_t bus)
{
    return 20 + static_cast<int>(bus % 1000);
}
int semaphore_of(uint32_t bus)
{
    return 200 + static_cast<int>(bus);
}

Event open_bus(uint32_t bus, int result, int error)
{
    return {printed("sigwrap_open /dev/i2c-%d flags=2", static_cast<int>(bus)), result, error};
}
Event open_memory(int result, int error)
{
    return {"open /dev/mem flags=2", result, error};
}
Event map_memory(int result, int error)
{
    return {printed("mmap 64 bytes at b8210000 prot=3 flags=1 fd=%d", memory_fd), result, error};
}
Event close_memory()
{
    return {printed("close %d", memory_fd)};
}
Event create_semaphore(uint32_t key, int result, int error)
{
    return {printed("OAL_SemCreate %u", key), result, error};
}
Event lock_semaphore(uint32_t bus, int result, int error)
{
    return {printed("OAL_SemLockBySemId %d 65535", semaphore_of(bus)), result, error};
}
Event unlock_semaphore(uint32_t bus, int result, int error)
{
    return {printed("OAL_SemUnLockBySemId %d 65535", semaphore_of(bus)), result, error};
}
Event lock_file(int fd, int result, int error)
{
    return {printed("file_lock_write %d", fd), result, error};
}
Event unlock_file(int fd)
{
    return {printed("file_unlock %d", fd)};
}
Event wait_ready(int fd, bool writable_too, int result, int error)
{
    const std::string write = writable_too ? printed("{%d}", fd) : "none";
    return {printed("sigwrap_select %d read={%d} write=%s except=none timeout=1.000000", fd + 1, fd,
                    write.c_str()),
            result, error};
}
Event set_slave(int fd, bool force, uint16_t addr, int result, int error)
{
    return {printed("ioctl %d %s %02x", fd, force ? "I2C_SLAVE_FORCE" : "I2C_SLAVE", addr), result,
            error};
}
Event set_pec(int fd, unsigned on, int result, int error)
{
    return {printed("ioctl %d I2C_PEC %u", fd, on), result, error};
}
Event transfer(int fd, const i2c_msg *msgs, uint32_t count, int result, int error,
               const Bytes &reply)
{
    return {printed("ioctl %d I2C_RDWR ", fd) + describe(msgs, count), result, error, reply};
}
Event smbus(int fd, unsigned direction, unsigned command, unsigned size, const Bytes &area,
            int result, int error, const Bytes &reply)
{
    Bytes whole = area;
    whole.resize(QELI2C_SMBUS_AREA);
    return {printed("ioctl %d I2C_SMBUS ", fd) +
                describe_smbus(direction, command, size, whole.data()),
            result, error, reply};
}
Event read_mctp(int fd, int result, int error, const Bytes &reply)
{
    return {printed("i2c_mctp_read_on_fd %d", fd), result, error, reply};
}

Event line132(const char *format, ...)
{
    WITH_ARGUMENTS(text);
    return {"DbgOut 132 [ui2c_ioctls]" + text};
}
Event line135(const char *format, ...)
{
    WITH_ARGUMENTS(text);
    return {"Runtime_DbgOut 135 [ui2c_ioctls]" + text};
}
Event no_registry()
{
    return {"stdout pthread_mutex_lock failed.\n"};
}
Event no_semaphore(uint32_t bus)
{
    return line135("line: #, func: _adapter_ipcsemid(), ipc sem_creat for bus %u failed\n", bus);
}
Script argument_check(const char *file, const char *function, const char *argument)
{
    return {{printed("sspFailedStat %s", file)},
            {printed("_ssp_error 255 %s %s assertion failed: %s != 0", file, function, argument)}};
}

std::string printed(const char *format, ...)
{
    WITH_ARGUMENTS(text);
    return text;
}
std::string error_text(int error)
{
    return printed("<text of %d>", error);
}
std::string with_errno(int error)
{
    return printed("errno = %d, ", error) + error_text(error);
}
Script &operator+=(Script &script, const Event &event)
{
    script.push_back(event);
    return script;
}
Script &operator+=(Script &script, const Script &more)
{
    script.insert(script.end(), more.begin(), more.end());
    return script;
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
    if (!warm.insert(bus).second)
        return;
    observe({}, [bus] {
        ui2c_adapter *adapter = ui2c_to_adapter(bus);
        ui2c_adapter_fd(adapter);
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
void pretend_process_id(int id)
{
    state.process_id = id;
}
unsigned allocations()
{
    return state.allocations;
}
int unreleased()
{
    return state.unreleased;
}

void begin(const Script &script)
{
    forget_locks(); // a script may end with a bus held
    const std::lock_guard guard(state.lock);
    state.script = script;
    state.position = 0;
    state.divergence.clear();
    state.seen.clear();
    state.allocations = 0;
    state.unreleased = 0;
    state.mode = Mode::playing;
}

void end(const std::source_location &where)
{
    const std::lock_guard guard(state.lock);
    state.mode = Mode::idle;
    state.failing_allocation = 0;
    const int line = static_cast<int>(where.line());
    if (!state.divergence.empty())
        ADD_FAILURE_AT(where.file_name(), line) << "event " << state.position << ":\n"
                                                << state.divergence;
    else if (state.position < state.script.size())
        ADD_FAILURE_AT(where.file_name(), line)
            << "never happened: " << testing::PrintToString(state.script[state.position].text);
    if (mutexes_held != 0 || mutex_lock_fails)
        ADD_FAILURE_AT(where.file_name(), line) << "mutexes still held: " << mutexes_held;
    mutex_lock_fails = false;
}

void begin_observing(const Script &exceptions)
{
    begin(exceptions);
    state.mode = Mode::observing;
}

std::vector<std::string> end_observing()
{
    const std::lock_guard guard(state.lock);
    state.mode = Mode::idle;
    return state.seen;
}

} // namespace scripted

using namespace scripted;

extern "C" {

void IDBG_LINUXAPP_DbgOut(uint32_t level, const char *format, ...)
{
    WITH_ARGUMENTS(text);
    note(printed("DbgOut %u ", level) + without_line(text));
}
void IDBG_LINUXAPP_Runtime_DbgOut(uint32_t level, const char *format, ...)
{
    WITH_ARGUMENTS(text);
    note(printed("Runtime_DbgOut %u ", level) + without_line(text));
}
void IDBG_LINUXAPP_AuditOut(uint32_t level, const char *format, ...)
{
    WITH_ARGUMENTS(text);
    note(printed("AuditOut %u ", level) + without_line(text));
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
    return request(create_semaphore(key, 0).text, semaphore_of(key - 0x3060)).result;
}
int32_t OAL_SemLockBySemId(int32_t id, uint32_t wait)
{
    // Without a script several threads may come at once.
    if (state.mode == Mode::observing)
        semaphore.lock();
    return request_unlocked(printed("OAL_SemLockBySemId %d %u", id, wait)).result;
}
// A release that succeeds may leave any errno behind: the library must not return it as a
// transfer's.
int32_t OAL_SemUnLockBySemId(int32_t id, uint32_t wait)
{
    if (state.mode == Mode::observing)
        semaphore.unlock();
    errno = EDOM;
    return request_unlocked(printed("OAL_SemUnLockBySemId %d %u", id, wait)).result;
}
int file_lock_write(int fd)
{
    return request_unlocked(lock_file(fd).text).result;
}
int file_unlock(int fd)
{
    errno = EDOM;
    return request_unlocked(unlock_file(fd).text).result;
}
int sigwrap_open(const char *path, int flags, ...)
{
    return answer_open("sigwrap_open", path, flags);
}
int sigwrap_select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds,
                   struct timeval *timeout)
{
    return request_unlocked(
               printed("sigwrap_select %d read=%s write=%s except=%s timeout=%ld.%06ld", nfds,
                       fds_of(readfds).c_str(), fds_of(writefds).c_str(), fds_of(exceptfds).c_str(),
                       static_cast<long>(timeout->tv_sec), static_cast<long>(timeout->tv_usec)),
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
    const Event answer = request(printed("mmap_read32 %x", physical_address));
    if (answer.reply.size() == sizeof(*value))
        memcpy(value, answer.reply.data(), sizeof(*value));
    return answer.result;
}
int i2c_mctp_read_on_fd(int fd, uint8_t *buffer)
{
    const Event answer = request(read_mctp(fd, 0).text);
    std::copy(answer.reply.begin(), answer.reply.end(), buffer);
    return answer.result;
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
    text = error_text(errnum);
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
    if (state.mode == Mode::idle)
        return __real_close(fd);
    errno = EDOM; // as with the releases
    return request(printed("close %d", fd)).result;
}
void *__wrap_mmap64(void *, size_t length, int prot, int flags, int fd, off64_t offset)
{
    const Event answer = request(printed("mmap %zu bytes at %llx prot=%d flags=%d fd=%d", length,
                                         static_cast<unsigned long long>(offset), prot, flags, fd));
    return answer.result < 0 ? MAP_FAILED : table;
}
pid_t __wrap_getpid(void)
{
    return state.process_id != 0 ? state.process_id.load() : __real_getpid();
}
void *__wrap_malloc(size_t size)
{
    void *block = allocation_fails() ? nullptr : __real_malloc(size);
    if (block != nullptr && state.mode != Mode::idle)
        memset(block, 0xa5, std::min<size_t>(size, 1 << 20)); // never taken for something set
    return block;
}
void __wrap_free(void *block)
{
    if (block != nullptr && state.mode != Mode::idle)
        --state.unreleased;
    __real_free(block);
}
unsigned __wrap_sleep(unsigned seconds)
{
    if (state.mode == Mode::idle)
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
    if (mutex_lock_fails && state.mode == Mode::playing) {
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
