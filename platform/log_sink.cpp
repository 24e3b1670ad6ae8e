// Writing finished log lines: one write() to standard error, or one datagram to the syslog socket.
#include "platform/log_sink.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

namespace
{

// The rest after a short write (a full pipe that does not block) is tried too; other failures lose
// the line.
void write_standard_error(const char *line, size_t length)
{
    while (length > 0) {
        const ssize_t written = write(STDERR_FILENO, line, length);
        if (written > 0) {
            line += written;
            length -= static_cast<size_t>(written);
        } else if (written == 0 || errno != EINTR) {
            return;
        }
    }
}

int severity(uint32_t level)
{
    switch (level) {
    case 64:
        return LOG_NOTICE;
    case 135:
        return LOG_DEBUG;
    case 255:
        return LOG_CRIT;
    default:
        return LOG_ERR;
    }
}

// syslog(3) holds a lock while it sends, which a child forked at that moment would inherit for
// ever. One datagram on a socket of its own needs none; syslog daemons add the time of arrival to a
// message without one (RFC 3164, 4.3.2).
bool send_to_syslog(uint32_t level, const char *line, size_t length)
{
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    char header[128];
    snprintf(header, sizeof header, "<%d>%.64s[%d]: ", LOG_USER | severity(level),
             program_invocation_short_name, getpid());
    iovec parts[2] = {{header, strlen(header)}, {const_cast<char *>(line), length - 1}};
    sockaddr_un address = {AF_UNIX, "/dev/log"};
    msghdr message = {};
    message.msg_name = &address;
    message.msg_namelen = sizeof address;
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    ssize_t sent = 0;
    do {
        sent = sendmsg(fd, &message, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    close(fd);
    return sent >= 0;
}

} // namespace

void write_log_line(Sink sink, uint32_t level, const char *line, size_t length)
{
    // A line that syslog does not take (no daemon, too long) is still worth more on standard error
    // than lost.
    if (sink == Sink::none || (sink == Sink::syslog && send_to_syslog(level, line, length))) {
        return;
    }
    write_standard_error(line, length);
}
