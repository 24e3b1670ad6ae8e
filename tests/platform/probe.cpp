// A small program that the tests start, because settings are read at load: writes log lines.
//
//   qelplatform_probe {CALL LEVEL TEXT}...     CALL: dbg, runtime, audit, error or info
//
// Each write to standard error, and each datagram to syslog, which goes to descriptor 3, is
// followed by a "|".
#include "platform/qelplatform.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

extern "C" ssize_t write(int fd, const void *bytes, size_t count)
{
    const ssize_t written = syscall(SYS_write, fd, bytes, count);
    if (fd == STDERR_FILENO) {
        syscall(SYS_write, fd, "|", 1);
    }
    return written;
}

extern "C" ssize_t sendmsg(int, const msghdr *message, int)
{
    const auto *address = static_cast<const sockaddr_un *>(message->msg_name);
    if (getenv("PROBE_NO_SYSLOG") != nullptr || strcmp(address->sun_path, "/dev/log") != 0) {
        errno = ECONNREFUSED;
        return -1;
    }
    const ssize_t sent = writev(3, message->msg_iov, static_cast<int>(message->msg_iovlen));
    syscall(SYS_write, 3, "|", 1);
    return sent;
}

static void log_line(const std::string &call, uint32_t level, const char *text)
{
    if (call == "dbg") {
        IDBG_LINUXAPP_DbgOut(level, "%s", text);
    } else if (call == "runtime") {
        IDBG_LINUXAPP_Runtime_DbgOut(level, "%s", text);
    } else if (call == "audit") {
        IDBG_LINUXAPP_AuditOut(level, "%s", text);
    } else if (call == "error") {
        _ssp_error(level, "module", 7, "function", text);
    } else if (call == "info") {
        _ssp_info(level, "module", 7, "function", "%s %d", text, 42);
    }
}

int main(int argc, char **argv)
{
    for (int i = 1; i + 2 < argc; i += 3) {
        log_line(argv[i], static_cast<uint32_t>(strtoul(argv[i + 1], nullptr, 10)), argv[i + 2]);
    }
    return 0;
}
