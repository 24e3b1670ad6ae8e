// The checks of the system calls, logging, bounded functions and memory.
#include "check_aids.h"
#include "number.h"
#include "owners.h"
#include "platform/qelplatform.h"

#include <sys/mman.h>
#include <sys/socket.h>

namespace tool
{

namespace
{

constexpr uint32_t kTraceLevel = 135;
constexpr uint32_t kErrorLevel = 132;

Finding open_is_close_on_exec(const CheckSettings &)
{
    const int fd = sigwrap_open("/dev/null", O_RDWR);
    if (fd < 0)
        return broken_by_errno("sigwrap_open");
    return fcntl(fd, F_GETFD) & FD_CLOEXEC ? kept() : broken("programs that it starts get it too");
}

Finding open_tells_why_it_fails(const CheckSettings &)
{
    errno = 0;
    if (sigwrap_open("/proc/self/no-such-file", O_RDONLY) >= 0)
        return broken("a missing file was opened");
    return errno == ENOENT ? kept() : broken("errno of a missing file is not ENOENT");
}

Finding open_outlasts_signals(const CheckSettings &)
{
    int ends[2];
    if (pipe(ends) != 0)
        return broken_by_errno("pipe");
    close(ends[1]);
    const std::string name = "/proc/self/fd/" + std::to_string(ends[0]);
    const Other writer([&] {
        usleep(200'000);
        return open(name.c_str(), O_WRONLY) >= 0;
    });
    const Signals signals;
    return sigwrap_open(name.c_str(), O_RDONLY) >= 0 ? kept() : broken_by_errno("sigwrap_open");
}

int select_one(int fd, fd_set &set, milliseconds limit)
{
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval time{0, static_cast<suseconds_t>(limit.count() * 1000)};
    return sigwrap_select(fd + 1, &set, nullptr, nullptr, &time);
}

Finding select_sees_what_is_ready(const CheckSettings &)
{
    int ends[2];
    fd_set set;
    if (pipe(ends) != 0 || write(ends[1], "x", 1) != 1)
        return broken_by_errno("pipe");
    if (select_one(ends[0], set, kShortly) != 1)
        return broken("a ready descriptor was not found");
    return FD_ISSET(ends[0], &set) ? kept() : broken("the set does not tell which is ready");
}

Finding select_keeps_its_limit(const CheckSettings &)
{
    int ends[2];
    fd_set set;
    if (pipe(ends) != 0)
        return broken_by_errno("pipe");
    const Signals signals;
    int ready = -1;
    const milliseconds took = time_of([&] { ready = select_one(ends[0], set, kShortly); });
    if (ready != 0)
        return broken("it ended with " + std::to_string(ready) + " instead of 0");
    const std::string wrong = wrong_time(took, kShortly);
    return wrong.empty() ? kept() : broken(wrong);
}

Finding sleep_is_long_enough(const CheckSettings &)
{
    const Signals signals;
    const std::string wrong =
        wrong_time(time_of([] { select_sleep(1, 100'000); }), milliseconds(1100));
    return wrong.empty() ? kept() : broken(wrong);
}

// The name of a call that changes errno; empty when none does.
std::string changes_errno()
{
    const struct {
        const char *name;
        void (*call)();
    } calls[] = {
        {"IDBG_LINUXAPP_DbgOut", [] { IDBG_LINUXAPP_DbgOut(kErrorLevel, "self-test %d\n", 1); }},
        {"IDBG_LINUXAPP_Runtime_DbgOut",
         [] { IDBG_LINUXAPP_Runtime_DbgOut(kTraceLevel, "self-test %d\n", 2); }},
        {"IDBG_LINUXAPP_AuditOut", [] { IDBG_LINUXAPP_AuditOut(180, "self-test %d\n", 3); }},
        {"sspFailedStat", [] { sspFailedStat("selftest", 4); }},
        {"_ssp_error", [] { _ssp_error(255, "selftest", 5, "selftest", "self-test"); }},
        {"_ssp_info", [] { _ssp_info(64, "selftest", 6, "selftest", "self-test %d\n", 6); }},
        {"qel_strerror_s", [] { (void)qel_strerror_s(99999); }},
    };
    for (const auto &[name, call] : calls) {
        errno = EPROTO;
        call();
        if (errno != EPROTO)
            return name;
    }
    return "";
}

Finding logging_keeps_errno(const CheckSettings &)
{
    for (const char *const output : {"/dev/null", "/dev/full"}) {
        const int fd = open(output, O_WRONLY | O_CLOEXEC);
        if (fd < 0 || dup2(fd, STDERR_FILENO) < 0)
            return broken_by_errno(output);
        const std::string name = changes_errno();
        if (!name.empty())
            return broken(name + " changes it, with standard error on " + output);
    }
    return kept();
}

// Whether only the first four bytes, which are the area, have been touched.
bool beyond_is_whole(const char (&area)[8])
{
    return std::memcmp(area + 4, "____", 4) == 0;
}

Finding memory_functions_refuse_misuse(const CheckSettings &)
{
    char area[8] = {'_', '_', '_', '_', '_', '_', '_', '_'};
    if (qel_memset_s(area, 4, 'x', 8) >= 0 || !beyond_is_whole(area))
        return broken("qel_memset_s fills more than there is");
    if (qel_memcpy_s(area, 4, "abcdefgh", 8) >= 0 || !beyond_is_whole(area))
        return broken("qel_memcpy_s copies more than fits");
    if (qel_memset_s(nullptr, 4, 0, 4) >= 0 || qel_memcpy_s(nullptr, 4, area, 4) >= 0 ||
        qel_memcpy_s(area, 4, nullptr, 4) >= 0)
        return broken("a null pointer is not refused");
    const bool done = qel_memset_s(area, 4, 'x', 4) == 0 && qel_memcpy_s(area, 4, "ab", 2) == 0;
    return done && std::memcmp(area, "abxx____", 8) == 0 ? kept() : broken("what fits is not done");
}

Finding formatting_refuses_misuse(const CheckSettings &)
{
    char area[8] = {'_', '_', '_', '_', '_', '_', '_', '_'};
    if (qel_snprintf_s(area, 4, "%d", 12345) >= 0)
        return broken("qel_snprintf_s does not tell that the text was cut");
    if (!beyond_is_whole(area) || !std::memchr(area, '\0', 4))
        return broken("qel_snprintf_s writes more than fits");
    if (qel_snprintf_s(area, 4, "%d", 123) != 3 || std::memcmp(area, "123", 4) != 0)
        return broken("qel_snprintf_s does not write what fits");
    if (qel_printf_s("%s", "text") != 4)
        return broken("qel_printf_s does not tell how much it wrote");
    const char *const known = qel_strerror_s(ENXIO);
    return known && *known && qel_strerror_s(99999) ? kept() : broken("qel_strerror_s has no text");
}

Finding mctp_reads_a_packet(const CheckSettings &)
{
    int ends[2];
    uint8_t packet[256];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) != 0 || write(ends[1], "packet 01", 9) != 9)
        return broken_by_errno("socketpair");
    if (i2c_mctp_read_on_fd(ends[0], packet) != 9 || std::memcmp(packet, "packet 01", 9) != 0)
        return broken("a packet of nine bytes was not read");
    return i2c_mctp_read_on_fd(-1, packet) <= 0 ? kept() : broken("it reads from no descriptor");
}

Finding registers_are_read(const CheckSettings &settings)
{
    if (!settings.address)
        return skipped("no --address");
    const auto page = static_cast<uint32_t>(sysconf(_SC_PAGESIZE));
    const int fd = open("/dev/mem", O_RDONLY | O_SYNC | O_CLOEXEC);
    if (fd < 0)
        return skipped(std::string("/dev/mem: ") + std::strerror(errno));
    const uint32_t offset = *settings.address % page;
    void *const mapped =
        mmap(nullptr, page, PROT_READ, MAP_SHARED, fd, off_t{*settings.address} - off_t{offset});
    if (mapped == MAP_FAILED)
        return skipped(std::string("/dev/mem: ") + std::strerror(errno));
    uint32_t value = 0;
    if (mmap_read32(*settings.address, &value) != 0)
        return broken_by_errno("mmap_read32");
    const uint32_t there =
        static_cast<const volatile uint32_t *>(mapped)[offset / sizeof(uint32_t)];
    return value == there ? kept()
                          : broken("it gives " + hex(value, 8) + " where " + hex(there, 8) + " is");
}

Finding owner_table_is_mapped(const CheckSettings &)
{
    try {
        map_owners();
    } catch (const Failure &failure) {
        return access("/dev/mem", R_OK | W_OK) == 0 ? broken(failure.message)
                                                    : skipped("no rights to /dev/mem");
    }
    return kept();
}

} // namespace

const std::vector<PlatformCheck> &call_checks()
{
    static const std::vector<PlatformCheck> checks = {
        {"system calls", "sigwrap_open is close-on-exec", open_is_close_on_exec},
        {"system calls", "sigwrap_open tells why it fails", open_tells_why_it_fails},
        {"system calls", "sigwrap_open outlasts signals", open_outlasts_signals},
        {"system calls", "sigwrap_select sees what is ready", select_sees_what_is_ready},
        {"system calls", "sigwrap_select keeps its limit", select_keeps_its_limit},
        {"system calls", "select_sleep is long enough", sleep_is_long_enough},
        {"logging", "errno stays as it is", logging_keeps_errno},
        {"bounded calls", "copies stay within bounds", memory_functions_refuse_misuse},
        {"bounded calls", "texts stay within bounds", formatting_refuses_misuse},
        {"mctp", "a packet is read", mctp_reads_a_packet},
        {"memory", "a register is read", registers_are_read},
        {"memory", "the access-owner table is mapped", owner_table_is_mapped},
    };
    return checks;
}

} // namespace tool
