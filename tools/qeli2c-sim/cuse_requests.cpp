// i2c-dev requests through CUSE: the layouts of a caller's records, and what to fetch of them.
#include "cuse_requests.h"

#include "simboard/i2c_dev.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/i2c-dev.h>
#include <vector>

namespace runner
{

namespace
{

using Bytes = std::vector<uint8_t>;

// A part of the caller's memory.
struct Area {
    uint64_t address;
    size_t size;
};

// Reads a record field by field, as the caller's word size lays it out.
class Record
{
public:
    Record(const uint8_t *bytes, bool narrow) : at_(bytes), start_(bytes), narrow_(narrow) {}
    uint8_t byte() { return number<uint8_t>(); }
    uint16_t half() { return number<uint16_t>(); }
    uint32_t word() { return number<uint32_t>(); }
    uint64_t pointer()
    {
        return narrow_ || sizeof(void *) == 4 ? number<uint32_t>() : number<uint64_t>();
    }

private:
    template <class Number>
    Number number()
    {
        const auto offset = static_cast<size_t>(at_ - start_);
        at_ = start_ + (offset + sizeof(Number) - 1) / sizeof(Number) * sizeof(Number);
        Number value;
        std::memcpy(&value, at_, sizeof value);
        at_ += sizeof value;
        return value;
    }
    const uint8_t *at_, *start_;
    bool narrow_;
};

// Sizes of struct i2c_rdwr_ioctl_data, i2c_msg and i2c_smbus_ioctl_data in linux/i2c-dev.h.
struct Sizes {
    size_t combined, message, smbus, word;
};
constexpr Sizes kNarrow = {8, 12, 12, 4};
constexpr Sizes kOwn = {sizeof(i2c_rdwr_ioctl_data), sizeof(i2c_msg), sizeof(i2c_smbus_ioctl_data),
                        sizeof(unsigned long)};

const Sizes &sizes_of(const CuseCall &call)
{
    return call.narrow ? kNarrow : kOwn;
}

size_t total(const std::vector<Area> &areas)
{
    size_t sum = 0;
    for (const Area &area : areas)
        sum += area.size;
    return sum;
}

// True when the kernel has brought all that; else it is asked to.
bool has_all(const CuseCall &call, const std::vector<Area> &in, const std::vector<Area> &out)
{
    if (call.fetched_size >= total(in) && call.room >= total(out))
        return true;
    const auto vectors = [](const std::vector<Area> &areas) {
        std::vector<iovec> result;
        for (const Area &area : areas)
            result.push_back(
                {reinterpret_cast<void *>(static_cast<uintptr_t>(area.address)), area.size});
        return result;
    };
    const std::vector<iovec> in_vectors = vectors(in), out_vectors = vectors(out);
    fuse_reply_ioctl_retry(call.request, in_vectors.data(), in_vectors.size(), out_vectors.data(),
                           out_vectors.size());
    return false;
}

void reply(const CuseCall &call, long result, const Bytes &bytes)
{
    if (result < 0)
        fuse_reply_err(call.request, static_cast<int>(-result));
    else
        fuse_reply_ioctl(call.request, static_cast<int>(result), bytes.data(), bytes.size());
}

long carry_out(const CuseCall &call, void *argument)
{
    simboard::Descriptor descriptor;
    if (!simboard::read_descriptor(call.device, descriptor))
        return -EBADF;
    return simboard::device_request(call.state, call.device, descriptor, call.number, argument);
}

struct Message {
    uint16_t address, flags, length;
    uint64_t buffer;
    bool receives() const { return (flags & I2C_M_RD) != 0; }
    // What goes in: all that is written; of a block read the byte that says what comes at least.
    size_t given() const
    {
        return !receives() ? length
                           : std::min<size_t>(length, (flags & I2C_M_RECV_LEN) != 0 ? 1 : 0);
    }
};

std::vector<Message> messages_of(const CuseCall &call, const uint8_t *bytes, size_t count)
{
    std::vector<Message> messages;
    for (size_t i = 0; i < count; i++) {
        Record record(bytes + i * sizes_of(call).message, call.narrow);
        Message message{};
        message.address = record.half();
        message.flags = record.half();
        message.length = record.half();
        message.buffer = record.pointer();
        messages.push_back(message);
    }
    return messages;
}

// With everything fetched: the messages in our own memory.
void transfer(const CuseCall &call, const std::vector<Message> &messages, const uint8_t *given)
{
    std::vector<Bytes> memory;
    std::vector<i2c_msg> own;
    for (const Message &message : messages) {
        memory.emplace_back(std::max<size_t>(message.length, 1));
        std::copy_n(given, message.given(), memory.back().begin());
        given += message.given();
        own.push_back({message.address, message.flags, message.length, nullptr});
    }
    for (size_t i = 0; i < own.size(); i++)
        own[i].buf = memory[i].data();
    i2c_rdwr_ioctl_data combined = {own.data(), static_cast<uint32_t>(own.size())};
    const long result = carry_out(call, &combined);
    Bytes received;
    for (size_t i = 0; i < own.size(); i++)
        if (messages[i].receives())
            received.insert(received.end(), memory[i].begin(),
                            memory[i].begin() + messages[i].length);
    reply(call, result, received);
}

void combined_transfer(const CuseCall &call)
{
    const Sizes &sizes = sizes_of(call);
    std::vector<Area> in = {{call.argument, sizes.combined}}, out;
    if (!has_all(call, in, {}))
        return;
    Record head(call.fetched, call.narrow);
    const uint64_t list = head.pointer();
    const uint32_t count = head.word();
    if (list == 0 || count == 0 || count > I2C_RDWR_IOCTL_MAX_MSGS)
        return reply(call, -EINVAL, {});
    in.push_back({list, count * sizes.message});
    if (!has_all(call, in, {}))
        return;
    const auto messages = messages_of(call, call.fetched + sizes.combined, count);
    const size_t records = total(in);
    for (const Message &message : messages) {
        if (message.length > simboard::kMaxMessageLength)
            return reply(call, -EINVAL, {});
        if (message.given() > 0)
            in.push_back({message.buffer, message.given()});
        if (message.receives() && message.length > 0)
            out.push_back({message.buffer, message.length});
    }
    if (has_all(call, in, out))
        transfer(call, messages, call.fetched + records);
}

void smbus_transaction(const CuseCall &call)
{
    const size_t head_size = sizes_of(call).smbus;
    std::vector<Area> in = {{call.argument, head_size}}, out;
    if (!has_all(call, in, {}))
        return;
    Record head(call.fetched, call.narrow);
    i2c_smbus_data data = {};
    i2c_smbus_ioctl_data own = {};
    own.read_write = head.byte();
    own.command = head.byte();
    own.size = head.word();
    const uint64_t caller_data = head.pointer();
    own.data = caller_data == 0 ? nullptr : &data;
    size_t size = sizeof data;
    if (own.size == I2C_SMBUS_BYTE || own.size == I2C_SMBUS_BYTE_DATA)
        size = sizeof data.byte;
    else if (own.size == I2C_SMBUS_WORD_DATA || own.size == I2C_SMBUS_PROC_CALL)
        size = sizeof data.word;
    const bool reads = own.read_write == I2C_SMBUS_READ;
    const bool calls = own.size == I2C_SMBUS_PROC_CALL || own.size == I2C_SMBUS_BLOCK_PROC_CALL;
    const bool has_data = own.data != nullptr && own.size != I2C_SMBUS_QUICK &&
                          own.size <= I2C_SMBUS_I2C_BLOCK_DATA &&
                          (own.size != I2C_SMBUS_BYTE || reads);
    if (has_data) {
        in.push_back({caller_data, size});
        if (reads || calls)
            out.push_back({caller_data, size});
    }
    if (!has_all(call, in, out))
        return;
    std::memcpy(&data, call.fetched + head_size, has_data ? size : 0);
    const long result = carry_out(call, &own);
    const auto *bytes = reinterpret_cast<const uint8_t *>(&data);
    reply(call, result, Bytes(bytes, bytes + total(out)));
}

void functions(const CuseCall &call)
{
    const size_t size = sizes_of(call).word;
    if (!has_all(call, {}, {{call.argument, size}}))
        return;
    unsigned long functions = 0; // little-endian on every machine this runs on
    const long result = carry_out(call, &functions);
    const auto *bytes = reinterpret_cast<const uint8_t *>(&functions);
    reply(call, result, Bytes(bytes, bytes + size));
}

} // namespace

void answer_ioctl(const CuseCall &call)
{
    switch (call.number) {
    case I2C_RDWR:
        return combined_transfer(call);
    case I2C_SMBUS:
        return smbus_transaction(call);
    case I2C_FUNCS:
        return functions(call);
    default: // the argument is a number
        reply(call,
              carry_out(call, reinterpret_cast<void *>(static_cast<uintptr_t>(call.argument))), {});
    }
}

} // namespace runner
