// The bytes of a write message: an offset, most significant byte first, and the data behind it.
#ifndef QELI2C_BUS_MESSAGE_BYTES_H
#define QELI2C_BUS_MESSAGE_BYTES_H

#include <cerrno>
#include <cstdint>
#include <cstdlib>

#include "bus/cancellation.h"
#include "platform/qelplatform.h"

// The length of a message is a 16-bit field of struct i2c_msg.
constexpr uint64_t kLongestMessage = 65535;

struct MessageBytes {
    uint8_t *bytes = nullptr; // null when there are none
    uint16_t length = 0;
    CancellationPutOff put_off; // until they are freed
};

// Fills `count` bytes; beyond the four of `value` the leading ones are 0.
inline void put_big_endian(uint8_t *bytes, uint32_t count, uint32_t value)
{
    for (uint32_t i = count; i > 0; --i) {
        bytes[i - 1] = static_cast<uint8_t>(value & 0xFF);
        value >>= 8;
    }
}

// Lays out the command byte unless it is null, the offset, and the data: zeros when `data` is null.
// The sum must fit a message. False when there is no memory; the bytes are the caller's to free.
inline bool lay_out(MessageBytes &message, const uint8_t *command, uint32_t offset_length,
                    uint32_t offset, const uint8_t *data, uint32_t data_length)
{
    const uint32_t command_length = command != nullptr ? 1 : 0;
    message.length = static_cast<uint16_t>(command_length + offset_length + data_length);
    if (message.length == 0)
        return true;
    message.bytes = static_cast<uint8_t *>(malloc(message.length));
    if (message.bytes == nullptr)
        return false;
    if (command != nullptr)
        message.bytes[0] = *command;
    put_big_endian(message.bytes + command_length, offset_length, offset);
    uint8_t *behind = message.bytes + command_length + offset_length;
    if (data_length != 0 && data != nullptr)
        (void)qel_memcpy_s(behind, data_length, data, data_length);
    else if (data_length != 0)
        (void)qel_memset_s(behind, data_length, 0, data_length);
    return true;
}

// A failed transfer's errno is its caller's to see. Compilers take it that free() leaves errno
// alone, which C libraries promise only of late, and would leave out the restoring.
inline void free_keeping_errno(void *bytes)
{
    const int error = errno;
    free(bytes);
    __asm__ volatile("" : : : "memory");
    errno = error;
}

#endif
