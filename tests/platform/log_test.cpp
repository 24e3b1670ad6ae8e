// Log lines: what is written where, what is suppressed, and that errno survives.
#include "platform/qelplatform.h"
#include "tests/platform/process.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

using Texts = std::vector<std::string>;

Texts receive_until_closed(int socket)
{
    Texts messages;
    std::vector<char> message(300'000);
    ssize_t count = 0;
    while ((count = recv(socket, message.data(), message.size(), 0)) > 0) {
        messages.emplace_back(message.data(), static_cast<size_t>(count));
    }
    return messages;
}

// Starts the probe with one end of a packet socket as descriptor `captured`: each write arrives as
// one message.
Texts probe(int captured, const Texts &environment, const Texts &arguments)
{
    std::array<int, 2> ends{};
    socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data());
    std::vector<char *> argv = {const_cast<char *>("probe"), const_cast<char *>("log")};
    for (const std::string &argument : arguments) {
        argv.push_back(const_cast<char *>(argument.c_str()));
    }
    argv.push_back(nullptr);
    std::vector<char *> env;
    for (const std::string &setting : environment) {
        env.push_back(const_cast<char *>(setting.c_str()));
    }
    env.push_back(nullptr);
    const pid_t child = start_child([&] {
        dup2(ends[1], captured);
        execve(QELPLATFORM_PROBE, argv.data(), env.data());
        return 126;
    });
    close(ends[1]);
    Texts messages = receive_until_closed(ends[0]);
    close(ends[0]);
    EXPECT_EQ(end_of(child), 0);
    return messages;
}

TEST(Log, SettingsDecideWhatIsWritten)
{
    struct Row {
        const char *settings;
        Texts arguments;
        Texts written;
    };
    const std::array rows = {
        Row{"", {"dbg", "132", "error"}, {"error\n"}},
        Row{"", {"dbg", "132", "two\nlines\n"}, {"two\nlines\n"}},
        Row{"", {"dbg", "132", ""}, {"\n"}},
        Row{"", {"runtime", "135", "trace", "dbg", "135", "trace", "audit", "135", "trace"}, {}},
        Row{"", {"runtime", "134", "134", "audit", "180", "180"}, {"134\n", "180\n"}},
        Row{"",
            {"error", "255", "a check", "info", "64", "an audit"},
            {"[module:7]function: a check\n", "[module:7]function: an audit 42\n"}},
        Row{"135=stderr", {"runtime", "135", "trace"}, {"trace\n"}},
        Row{"all=none", {"dbg", "132", "x", "error", "255", "x", "info", "64", "x"}, {}},
        Row{"all=none,0x84=stderr", {"dbg", "132", "132", "dbg", "133", "133"}, {"132\n"}},
        Row{"132=none,all=stderr", {"dbg", "132", "132", "dbg", "135", "135"}, {"132\n", "135\n"}},
        Row{"all=none,255=stderr", {"dbg", "70000", "beyond", "dbg", "254", "254"}, {"beyond\n"}},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(
            probe(STDERR_FILENO, {std::string("QELPLATFORM_LOG=") + row.settings}, row.arguments),
            row.written)
            << row.settings << " " << row.arguments[0] << " " << row.arguments[1];
    }
}

TEST(Log, ABadSettingIsReportedOnceAndTheOthersApply)
{
    for (const std::string bad :
         {"256=none", "132", "132=", "=none", "132=file", "-1=none", " 1=none", "1x=none",
          "alll=none", "99999999999999999999=none", "0x=none"}) {
        const Texts written =
            probe(STDERR_FILENO, {"QELPLATFORM_LOG=" + bad + ",132=none,133=stderr"},
                  {"dbg", "132", "132", "dbg", "133", "133"});
        ASSERT_EQ(written.size(), 2U) << bad;
        EXPECT_NE(written[0].find("QELPLATFORM_LOG: \"" + bad + "\" ignored"), std::string::npos);
        EXPECT_EQ(written[1], "133\n");
    }
}

// The packet socket proves both: nothing is cut, and every line is one write.
TEST(Log, ALineOfAnyLengthIsOneWrite)
{
    for (const size_t length : {1021U, 1022U, 1023U, 1024U, 1025U, 100'000U}) {
        EXPECT_EQ(probe(STDERR_FILENO, {}, {"long", "132", std::to_string(length)}),
                  Texts{std::string(length, 'x') + "\n"});
    }
}

TEST(Log, SyslogGetsOneMessageALine)
{
    struct Row {
        Texts arguments;
        std::string priority;
        std::string text;
    };
    const std::array rows = {
        Row{{"dbg", "132", "an error\n"}, "<11>", "an error"},
        Row{{"error", "255", "a check"}, "<10>", "[module:7]function: a check"},
        Row{{"info", "64", "an audit"}, "<13>", "[module:7]function: an audit 42"},
        Row{{"runtime", "135", "a trace"}, "<15>", "a trace"},
    };
    for (const Row &row : rows) {
        const Texts sent =
            probe(3, {"QELPLATFORM_LOG=all=syslog", "PROBE_SYSLOG=1"}, row.arguments);
        ASSERT_EQ(sent.size(), 1U);
        EXPECT_EQ(sent[0].find(row.priority + "probe["), 0U) << sent[0];
        EXPECT_EQ(sent[0].substr(sent[0].find("]: ") + 3), row.text);
    }
}

TEST(Log, WithoutASyslogDaemonTheLineGoesToStandardError)
{
    // Descriptor 3 is not open: sending fails as it does without a daemon.
    EXPECT_EQ(probe(STDERR_FILENO, {"QELPLATFORM_LOG=all=syslog", "PROBE_SYSLOG=1"},
                    {"dbg", "132", "an error"}),
              Texts{"an error\n"});
}

const std::vector<std::function<void()>> &all_calls()
{
    static const std::string long_text(5000, 'x');
    static const std::vector<std::function<void()>> calls = {
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
    return calls;
}

TEST(Log, ErrnoSurvivesEveryCall)
{
    const auto first_that_changes_errno = [] {
        for (size_t i = 0; i < all_calls().size(); ++i) {
            errno = 77;
            all_calls()[i]();
            if (errno != 77) {
                return static_cast<int>(i) + 1;
            }
        }
        return 0;
    };
    {
        const CapturedErrors captured;
        EXPECT_EQ(first_that_changes_errno(), 0);
        EXPECT_EQ(captured.lines().size(), 7U);
    }
    EXPECT_EQ(end_of(start_child([&] {
                  close(STDERR_FILENO);
                  return first_that_changes_errno();
              })),
              0);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat" // %m is a GNU extension
TEST(Log, TheCallersErrnoCanBePrinted)
{
    const CapturedErrors captured;
    errno = ENXIO;
    IDBG_LINUXAPP_DbgOut(132, "%m");
    errno = ENXIO;
    IDBG_LINUXAPP_DbgOut(132, "%2000d%m", 1);
    const Texts lines = captured.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "No such device or address");
    EXPECT_EQ(lines[1].substr(2000), "No such device or address");
}
#pragma GCC diagnostic pop

TEST(Log, ASuppressedLineLooksAtNoArgument)
{
    void *unreadable = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(unreadable, MAP_FAILED);
    const CapturedErrors captured;
    IDBG_LINUXAPP_DbgOut(135, "%s", static_cast<const char *>(unreadable));
    IDBG_LINUXAPP_Runtime_DbgOut(135, "%s", static_cast<const char *>(unreadable));
    IDBG_LINUXAPP_AuditOut(135, "%s", static_cast<const char *>(unreadable));
    _ssp_info(135, "module", 1, "function", "%s", static_cast<const char *>(unreadable));
    _ssp_error(135, "module", 1, "function", static_cast<const char *>(unreadable));
    EXPECT_EQ(captured.lines(), Texts{});
    munmap(unreadable, 4096);
}

} // namespace
