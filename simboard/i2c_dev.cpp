// i2c-dev requests: argument rules and results.
#include "simboard/i2c_dev.h"

#include <errno.h>
#include <limits.h>
#include <linux/i2c-dev.h>
#include <string.h>
#include <sys/mman.h>

#include "simboard/fault.h"
#include "simboard/transfer.h"

namespace simboard
{

namespace
{

// As of an adapter that drives its lines bit by bit (drivers/i2c/algos/i2c-algo-bit.c).
constexpr unsigned long kFunctions =
    I2C_FUNC_I2C | I2C_FUNC_10BIT_ADDR | I2C_FUNC_PROTOCOL_MANGLING | I2C_FUNC_NOSTART |
    I2C_FUNC_SMBUS_EMUL | I2C_FUNC_SMBUS_READ_BLOCK_DATA | I2C_FUNC_SMBUS_BLOCK_PROC_CALL;

// Message bytes are copied in before the bus is taken and copied out after success, as the kernel
// does. So a failed transfer leaves the caller's buffers alone, and a bad pointer strikes while
// nothing is held.
struct MessageCopies {
    i2c_msg messages[I2C_RDWR_IOCTL_MAX_MSGS];
    uint8_t *originals[I2C_RDWR_IOCTL_MAX_MSGS];
    uint8_t *bytes;
    size_t size;
    uint8_t small[2048];
};

bool make_room(MessageCopies &copies, const i2c_rdwr_ioctl_data &request)
{
    copies.size = 0;
    for (uint32_t i = 0; i < request.nmsgs; i++) {
        copies.size += request.msgs[i].len;
    }
    copies.bytes = copies.small;
    if (copies.size > sizeof(copies.small)) {
        // From malloc this would not be safe in a signal handler, where ioctl is.
        void *const area =
            mmap(nullptr, copies.size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (area == MAP_FAILED) {
            return false;
        }
        copies.bytes = static_cast<uint8_t *>(area);
    }
    return true;
}

void release(const MessageCopies &copies)
{
    if (copies.bytes != copies.small) {
        munmap(copies.bytes, copies.size);
    }
}

// A message that receives its length says in its first byte how many bytes come in any case.
bool receives_length_rightly(const i2c_msg &message, const uint8_t *bytes)
{
    return (message.flags & I2C_M_RD) != 0 && message.len >= 1 && bytes[0] >= 1 &&
           message.len >= bytes[0] + I2C_SMBUS_BLOCK_MAX;
}

int copy_in(MessageCopies &copies, const i2c_rdwr_ioctl_data &request)
{
    uint8_t *to = copies.bytes;
    for (uint32_t i = 0; i < request.nmsgs; i++) {
        i2c_msg message = request.msgs[i];
        if (message.len > kMaxMessageLength) {
            return -EINVAL;
        }
        copies.originals[i] = message.buf;
        if (message.len > 0) {
            if (is_bad(message.buf)) {
                return -EFAULT;
            }
            memcpy(to, message.buf, message.len);
        }
        message.buf = to;
        to += message.len;
        if ((message.flags & I2C_M_RECV_LEN) != 0) {
            if (!receives_length_rightly(message, message.buf)) {
                return -EINVAL;
            }
            message.len = message.buf[0];
        }
        copies.messages[i] = message;
    }
    return 0;
}

void copy_out(const MessageCopies &copies, uint32_t count)
{
    for (uint32_t i = 0; i < count; i++) {
        const i2c_msg &message = copies.messages[i];
        if ((message.flags & I2C_M_RD) != 0 && message.len > 0) {
            memcpy(copies.originals[i], message.buf, message.len);
        }
    }
}

int combined_transfer(State &state, Bus &bus, const void *argument)
{
    if (is_bad(argument)) {
        return -EFAULT;
    }
    i2c_rdwr_ioctl_data request;
    memcpy(&request, argument, sizeof(request));
    if (request.msgs == nullptr || request.nmsgs == 0 || request.nmsgs > I2C_RDWR_IOCTL_MAX_MSGS) {
        return -EINVAL;
    }
    if (is_bad(request.msgs)) {
        return -EFAULT;
    }
    MessageCopies copies;
    if (!make_room(copies, request)) {
        return -ENOMEM;
    }
    int result = copy_in(copies, request);
    if (result == 0) {
        Transfer transfer = {copies.messages, request.nmsgs, -1, false, 0};
        result = run_transfer(state, bus, transfer);
        if (result >= 0) {
            copy_out(copies, request.nmsgs);
        }
    }
    release(copies);
    return result;
}

size_t smbus_data_size(uint32_t size)
{
    switch (size) {
    case I2C_SMBUS_BYTE:
    case I2C_SMBUS_BYTE_DATA:
        return sizeof(i2c_smbus_data::byte);
    case I2C_SMBUS_WORD_DATA:
    case I2C_SMBUS_PROC_CALL:
        return sizeof(i2c_smbus_data::word);
    default:
        return sizeof(i2c_smbus_data::block);
    }
}

int smbus_request(State &state, Bus &bus, const Descriptor &descriptor, const void *argument)
{
    if (is_bad(argument)) {
        return -EFAULT;
    }
    i2c_smbus_ioctl_data request;
    memcpy(&request, argument, sizeof(request));
    if (request.size > I2C_SMBUS_I2C_BLOCK_DATA || request.read_write > I2C_SMBUS_READ) {
        return -EINVAL;
    }
    const bool read = request.read_write == I2C_SMBUS_READ;
    i2c_smbus_data data = {};
    if (request.size == I2C_SMBUS_QUICK || (request.size == I2C_SMBUS_BYTE && !read)) {
        return smbus_transaction(state, bus, descriptor, read, request.command, request.size, data);
    }
    if (request.data == nullptr) {
        return -EINVAL;
    }
    if (is_bad(request.data)) {
        return -EFAULT;
    }
    const bool calls =
        request.size == I2C_SMBUS_PROC_CALL || request.size == I2C_SMBUS_BLOCK_PROC_CALL;
    const size_t data_size = smbus_data_size(request.size);
    if (calls || request.size == I2C_SMBUS_I2C_BLOCK_DATA || !read) {
        memcpy(&data, request.data, data_size);
    }
    uint32_t size = request.size;
    if (size == I2C_SMBUS_I2C_BLOCK_BROKEN) { // block reads that could only be of full length
        size = I2C_SMBUS_I2C_BLOCK_DATA;
        if (read) {
            data.block[0] = I2C_SMBUS_BLOCK_MAX;
        }
    }
    const int result = smbus_transaction(state, bus, descriptor, read, request.command, size, data);
    if (result == 0 && (calls || read)) {
        memcpy(request.data, &data, data_size);
    }
    return result;
}

int set_address(int fd, Descriptor &descriptor, unsigned long address)
{
    if (address > 0x3ff || (!descriptor.ten_bit && address > 0x7f)) {
        return -EINVAL;
    }
    descriptor.address = static_cast<uint16_t>(address);
    return write_descriptor(fd, descriptor) ? 0 : -errno;
}

// The address a request is about: most often the one set for the descriptor.
uint16_t address_of(const Descriptor &descriptor, unsigned request, const void *argument)
{
    if (request == I2C_SLAVE || request == I2C_SLAVE_FORCE) {
        return static_cast<uint16_t>(reinterpret_cast<unsigned long>(argument));
    }
    if (request == I2C_RDWR && !is_bad(argument)) {
        i2c_rdwr_ioctl_data data;
        memcpy(&data, argument, sizeof(data));
        if (data.nmsgs > 0 && !is_bad(data.msgs)) {
            return data.msgs[0].addr;
        }
    }
    return descriptor.address;
}

} // namespace

long device_request(State &state, int fd, Descriptor &descriptor, unsigned request, void *argument)
{
    Bus &bus = state.buses[descriptor.bus];
    const unsigned long number = reinterpret_cast<unsigned long>(argument);
    if (has_faults(state, bus, kInCalls)) {
        const uint16_t address = address_of(descriptor, request, argument);
        const int error = strike_call(state, bus, request, address);
        if (error != 0) {
            return -error;
        }
    }
    switch (request) {
    case I2C_RDWR:
        return combined_transfer(state, bus, argument);
    case I2C_SMBUS:
        return smbus_request(state, bus, descriptor, argument);
    case I2C_SLAVE:
    case I2C_SLAVE_FORCE: // no address is taken by a driver, so the two are the same
        return set_address(fd, descriptor, number);
    case I2C_TENBIT:
        descriptor.ten_bit = number != 0;
        return write_descriptor(fd, descriptor) ? 0 : -errno;
    case I2C_PEC:
        descriptor.pec = number != 0;
        return write_descriptor(fd, descriptor) ? 0 : -errno;
    case I2C_FUNCS:
        if (is_bad(argument)) {
            return -EFAULT;
        }
        memcpy(argument, &kFunctions, sizeof(kFunctions));
        return 0;
    case I2C_RETRIES:
        if (number > INT_MAX) {
            return -EINVAL;
        }
        bus.retries.store(static_cast<uint32_t>(number), std::memory_order_relaxed);
        return 0;
    case I2C_TIMEOUT: // in tens of milliseconds
        if (number > INT_MAX) {
            return -EINVAL;
        }
        bus.timeout_ms.store(static_cast<uint32_t>(number * 10), std::memory_order_relaxed);
        return 0;
    default:
        return -ENOTTY;
    }
}

} // namespace simboard
