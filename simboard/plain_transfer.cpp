// read and write on an open device: one message, as drivers/i2c/i2c-dev.c makes of them.
#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include "simboard/i2c_dev.h"
#include "simboard/transfer.h"

namespace simboard
{

namespace
{

bool is_opened_for(int fd, bool reading)
{
    const int mode = fcntl(fd, F_GETFL);
    return mode >= 0 && (mode & O_PATH) == 0 &&
           (mode & O_ACCMODE) != (reading ? O_WRONLY : O_RDONLY);
}

} // namespace

long plain_transfer(State &state, int fd, const Descriptor &descriptor, bool reading, void *buffer,
                    size_t count)
{
    if (!is_opened_for(fd, reading)) {
        return -EBADF;
    }
    // Longer ones are cut, without a word.
    const size_t length = count < kMaxMessageLength ? count : kMaxMessageLength;
    if (length > 0 && is_bad(buffer)) {
        return -EFAULT;
    }
    uint8_t bytes[kMaxMessageLength];
    if (!reading && length > 0) {
        memcpy(bytes, buffer, length);
    }
    i2c_msg message = {};
    message.addr = descriptor.address;
    message.flags =
        static_cast<uint16_t>((descriptor.ten_bit ? I2C_M_TEN : 0) | (reading ? I2C_M_RD : 0));
    message.len = static_cast<uint16_t>(length);
    message.buf = bytes;
    Transfer transfer = {&message, 1, -1, false, 0};
    const int result = run_transfer(state, state.buses[descriptor.bus], transfer);
    if (result != 1) {
        return result;
    }
    if (reading && length > 0) {
        // cppcheck-suppress uninitvar ; the transfer has filled it, through the message
        memcpy(buffer, bytes, length);
    }
    return static_cast<long>(length);
}

} // namespace simboard
