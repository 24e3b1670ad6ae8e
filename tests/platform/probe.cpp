// A small program that the tests start: writes log lines, or tells who locks a descriptor it was
// started with.
//
//   qelplatform_probe log CALL LEVEL TEXT...   CALL: dbg, runtime, audit, error, info, long (TEXT
//   is a length) qelplatform_probe locked FD                exit status 0: another process holds
//   the file lock
#include "platform/qelplatform.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

// Each write to standard error shows where it ends.
extern "C" ssize_t write(int fd, const void *bytes, size_t count)
{
    const ssize_t written = syscall(SYS_write, fd, bytes, count);
    if (fd == STDERR_FILENO) {
        syscall(SYS_write, fd, "|", 1);
    }
    return written;
}

// Datagrams to the syslog socket go to descriptor 3.
extern "C" ssize_t sendmsg(int, const msghdr *message, int)
{
    if (getenv("PROBE_NO_SYSLOG") != nullptr) {
        errno = ECONNREFUSED;
        return -1;
    }
    const auto *address = static_cast<const sockaddr_un *>(message->msg_name);
    const ssize_t sent = strcmp(address->sun_path, "/dev/log") != 0
                             ? -1
                             : writev(3, message->msg_iov, static_cast<int>(message->msg_iovlen));
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
    } else if (call == "long") {
        IDBG_LINUXAPP_DbgOut(level, "%s", std::string(strtoul(text, nullptr, 10), 'x').c_str());
    }
}

int main(int argc, char **argv)
{
    if (argc == 3 && strcmp(argv[1], "locked") == 0) {
        struct flock whole_file = {};
        whole_file.l_type = F_WRLCK;
        whole_file.l_whence = SEEK_SET;
        return fcntl(atoi(argv[2]), F_GETLK, &whole_file) == 0 && whole_file.l_type == F_WRLCK ? 0
                                                                                               : 1;
    }
    for (int i = 2; i + 2 < argc; i += 3) {
        log_line(argv[i], static_cast<uint32_t>(strtoul(argv[i + 1], nullptr, 10)), argv[i + 2]);
    }
    return 0;
}
