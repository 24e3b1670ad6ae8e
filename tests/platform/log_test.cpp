// Log lines: what is written where, what is suppressed, and that errno survives.
#include "platform/qelplatform.h"
#include "tests/platform/process.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <gtest/gtest.h>
#include <unistd.h>

namespace
{

// What the probe writes to standard error and to its syslog socket, a "|" after each write, with
// these settings; without its process id.
std::string written_by(const std::string &settings, const std::string &arguments)
{
    const std::string line =
        "unset QELPLATFORM_LOG; " + settings + " " QELPLATFORM_PROBE " " + arguments + " 2>&1 3>&1";
    FILE *const pipe = popen(line.c_str(), "re");
    std::string text(300'000, '\0');
    text.resize(fread(text.data(), 1, text.size(), pipe));
    EXPECT_EQ(pclose(pipe), 0);
    const size_t id = text.find("probe[");
    if (id != std::string::npos) {
        text.erase(id + 5, text.find(']', id) - id - 4);
    }
    return text;
}

TEST(Log, SettingsDecideWhatIsWritten)
{
    struct Row {
        const char *settings, *arguments, *written;
    };
    const std::array rows = {
        Row{"", "dbg 132 error", "error\n|"},
        Row{"", "dbg 132 'two\nlines\n'", "two\nlines\n|"},
        Row{"", "dbg 132 ''", "\n|"},
        Row{"", "runtime 135 trace dbg 135 trace audit 135 trace", ""},
        Row{"", "runtime 134 134 audit 180 180", "134\n|180\n|"},
        Row{"", "error 255 'a check' info 64 'an audit'",
            "[module:7]function: a check\n|[module:7]function: an audit 42\n|"},
        Row{"QELPLATFORM_LOG=135=stderr", "runtime 135 trace", "trace\n|"},
        Row{"QELPLATFORM_LOG=all=none", "dbg 132 x error 255 x info 64 x", ""},
        Row{"QELPLATFORM_LOG=all=none,0x84=stderr", "dbg 132 132 dbg 133 133", "132\n|"},
        Row{"QELPLATFORM_LOG=132=none,all=stderr", "dbg 132 132 dbg 135 135", "132\n|135\n|"},
        Row{"QELPLATFORM_LOG=all=none,255=stderr", "dbg 70000 beyond dbg 254 254", "beyond\n|"},
        Row{"QELPLATFORM_LOG=all=syslog", "dbg 132 'an error\n'",
            "<11>qelplatform_probe: an error|"},
        Row{"QELPLATFORM_LOG=all=syslog", "error 255 'a check'",
            "<10>qelplatform_probe: [module:7]function: a check|"},
        Row{"QELPLATFORM_LOG=all=syslog", "info 64 'an audit'",
            "<13>qelplatform_probe: [module:7]function: an audit 42|"},
        Row{"QELPLATFORM_LOG=all=syslog", "runtime 135 'a trace'",
            "<15>qelplatform_probe: a trace|"},
        Row{"PROBE_NO_SYSLOG=1 QELPLATFORM_LOG=all=syslog", "dbg 132 'an error'", "an error\n|"},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(written_by(row.settings, row.arguments), row.written)
            << row.settings << " " << row.arguments;
    }
}

TEST(Log, ABadSettingIsReportedOnceAndTheOthersApply)
{
    for (const std::string bad :
         {"256=none", "132", "132=", "=none", "132=file", "-1=none", " 1=none", "1x=none",
          "alll=none", "99999999999999999999=none", "0x=none"}) {
        const std::string written = written_by("QELPLATFORM_LOG='" + bad + ",132=none,133=stderr'",
                                               "dbg 132 132 dbg 133 133");
        EXPECT_NE(written.find("QELPLATFORM_LOG: \"" + bad + "\" ignored"), std::string::npos);
        EXPECT_EQ(written.substr(written.find('|')), "|133\n|") << written;
    }
}

TEST(Log, ALineOfAnyLengthIsOneWrite)
{
    for (const size_t length : {1021U, 1022U, 1023U, 1024U, 1025U, 100'000U}) {
        const std::string text(length, 'x');
        EXPECT_EQ(written_by("", "dbg 132 " + text), text + "\n|");
    }
}

TEST(Log, ErrnoSurvivesEveryCall)
{
    static const std::string long_text(5000, 'x');
    constexpr std::array<void (*)(), 11> kCalls = {
        [] { IDBG_LINUXAPP_DbgOut(132, "%d", 1); },
        [] { IDBG_LINUXAPP_DbgOut(132, "%s", long_text.c_str()); },
        [] { IDBG_LINUXAPP_DbgOut(135, "%d", 1); },
        [] { IDBG_LINUXAPP_Runtime_DbgOut(130, "%d", 1); },
        [] { IDBG_LINUXAPP_AuditOut(180, "%d", 1); },
        [] { sspFailedStat("module", 1); },
        [] { _ssp_error(255, "module", 1, "function", "text"); },
        [] { _ssp_error(255, nullptr, 1, nullptr, nullptr); },
        [] { _ssp_info(64, "module", 1, "function", "%d", 1); },
        [] { qel_strerror_s(EINVAL); },
        [] { qel_strerror_s(123456); },
    };
    const auto errno_survives = [&] {
        return std::all_of(kCalls.begin(), kCalls.end(), [](void (*call)()) {
            errno = 77;
            call();
            return errno == 77;
        });
    };
    testing::internal::CaptureStderr();
    EXPECT_TRUE(errno_survives());
    const std::string lines = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), '\n'), 7);
    EXPECT_TRUE(in_child([&] {
        close(STDERR_FILENO);
        return errno_survives();
    }));
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat" // %m is a GNU extension
TEST(Log, TheCallersErrnoCanBePrinted)
{
    testing::internal::CaptureStderr();
    errno = ENXIO;
    IDBG_LINUXAPP_DbgOut(132, "%m");
    errno = ENXIO;
    IDBG_LINUXAPP_DbgOut(132, "%2000d%m", 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "No such device or address\n" +
                                                          std::string(1999, ' ') +
                                                          "1No such device or address\n");
}
#pragma GCC diagnostic pop

TEST(Log, ASuppressedLineLooksAtNoArgument)
{
    auto *unreadable =
        static_cast<char *>(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    testing::internal::CaptureStderr();
    IDBG_LINUXAPP_DbgOut(135, "%s", unreadable);
    IDBG_LINUXAPP_Runtime_DbgOut(135, "%s", unreadable);
    IDBG_LINUXAPP_AuditOut(135, "%s", unreadable);
    _ssp_info(135, "module", 1, "function", "%s", unreadable);
    _ssp_error(135, "module", 1, "function", unreadable);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    munmap(unreadable, 4096);
}

} // namespace
