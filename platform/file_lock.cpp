// Exclusive lock on an open file, for the time a process works with it.
//
// The lock is a POSIX record lock over the whole file. flock(2) and open file description locks
// belong to the open file: a child that inherits the descriptor would hold them too, and keep them
// when the parent dies. A record lock belongs to the process alone. Its price: closing any
// descriptor of the file in the holding process releases it.
#include "platform/exported.h"

#include <cerrno>
#include <fcntl.h>

namespace
{

int set_lock(int fd, short type)
{
    struct flock whole_file = {};
    whole_file.l_type = type;
    whole_file.l_whence = SEEK_SET;
    int result = 0;
    do {
        result = fcntl(fd, F_SETLKW, &whole_file);
    } while (result < 0 && errno == EINTR);
    return result;
}

} // namespace

int file_lock_write(int fd)
{
    return set_lock(fd, F_WRLCK);
}

int file_unlock(int fd)
{
    return set_lock(fd, F_UNLCK);
}
