// MCTP packets: one read from a descriptor that delivers a whole packet at a time.
#include "platform/exported.h"

#include <cerrno>
#include <unistd.h>

// The buffer of every caller holds one SMBus data area of 256 bytes.
static constexpr size_t kLargestPacket = 256;

int i2c_mctp_read_on_fd(int fd, uint8_t *buffer)
{
    if (buffer == nullptr) {
        errno = EINVAL;
        return -1;
    }
    ssize_t count = 0;
    do {
        count = read(fd, buffer, kLargestPacket);
    } while (count < 0 && errno == EINTR);
    return static_cast<int>(count);
}
