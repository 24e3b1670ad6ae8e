// Register access to board logic: offsets and commands on the wire, lengths at their limits, traces
// and failures.
#include "tests/unit/device_calls.h"

using namespace calls;
using Lengths = std::pair<uint32_t, uint32_t>; // of the offset, of the data

namespace
{

Event overflow(const char *function)
{
    return said(err(function), "ucOffsetLen + dwDataLen overflow !\n");
}

constexpr uint32_t value = 0x12345678;
// The value in 0 to 6 bytes.
const Bytes offsets[] = {{},
                         {0x78},
                         {0x56, 0x78},
                         {0x34, 0x56, 0x78},
                         {0x12, 0x34, 0x56, 0x78},
                         {0, 0x12, 0x34, 0x56, 0x78},
                         {0, 0, 0x12, 0x34, 0x56, 0x78}};

template <class Body>
void for_all_lengths(Body body)
{
    for (const Bytes &offset : offsets)
        for (const uint32_t length : {0U, 1U, 4U})
            body(offset, static_cast<uint8_t>(offset.size()), length);
}

// A call that writes the bytes, then reads some: done, and refused after some had arrived. There
// are lines in both cases, and further ones for the failure.
template <class Call>
void check_read(const ei2c_client &target, const Bytes &sent, size_t length, Call call,
                const Script &always, const Script &failing)
{
    const Messages messages = {sends(sent), reads(length)};
    const Bytes data = pattern(length);
    Buffer good(length), bad(length);
    for (const int result : {2, 0}) // any count is good
        EXPECT_RUN(0, call(good.data()), transferred(target, messages, data, result) + always);
    EXPECT_EQ(good.bytes(), data);
    const Exchange none = refused(target, messages, data);
    EXPECT_RUN(-1, call(bad.data()), none + always + failing);
    EXPECT_EQ(errno, none.error);
    EXPECT_EQ(bad.bytes(), data);
}

template <class Call>
void check_write(const ei2c_client &target, const Bytes &sent, Call call, const Script &failing)
{
    for (const int result : {1, 0})
        EXPECT_RUN(0, call(), transferred(target, {sends(sent)}, {}, result));
    const Exchange none = refused(target, {sends(sent)});
    EXPECT_RUN(-1, call(), none + failing);
    EXPECT_EQ(errno, none.error);
}

TEST(RegisterRead, SendsTheOffsetAndReadsIntoTheBufferTracingIt)
{
    const ei2c_client target = device();
    const Event error = io_error("i2c_read_multi_para", target, value, "I2ReaMultPara");
    for_all_lengths([&](const Bytes &offset, uint8_t offset_length, uint32_t length) {
        const auto call = [&](uint8_t *data) {
            return i2c_read_multi_para(&target, value, offset_length, length,
                                       length == 0 ? nullptr : data);
        };
        const Script trace = read_trace(pattern(length));
        check_read(target, offset, length, call, trace,
                   {said(err("i2c_read_multi_para"), "Read data failed!\n"), error});
        Buffer buffer(length);
        scripted::fail_allocation(1);
        if (offset.empty()) { // needs no memory
            EXPECT_RUN(0, call(buffer.data()),
                       transferred(target, {sends({}), reads(length)}, pattern(length)) + trace);
        } else {
            EXPECT_RUN(-1, call(buffer.data()), {error});
            EXPECT_TRUE(buffer.untouched());
        }
    });
}

TEST(RegisterRead, OfMoreThanAMessageReadsTheRestOfTheLengthAndTracesAll)
{
    const ei2c_client target = device(0);
    Buffer buffer(65536 + 2);
    Bytes expected = buffer.bytes();
    expected[0] = 7;
    expected[1] = 8;
    EXPECT_RUN(0, i2c_read_multi_para(&target, 1, 2, 65538, buffer.data()),
               transferred(target, {sends({0, 1}), reads(2)}, {7, 8}) + read_trace(expected));
    EXPECT_EQ(buffer.bytes(), expected);
}

TEST(RegisterWrite, SendsOffsetAndDataInOneMessage)
{
    const ei2c_client target = device();
    const Event error = io_error("i2c_write_multi_para", target, value, "DC_I2CWriteMultiPara()");
    for_all_lengths([&](const Bytes &offset, uint8_t offset_length, uint32_t length) {
        const Bytes data = pattern(length);
        const auto call = [&] {
            return i2c_write_multi_para(&target, value, offset_length, length,
                                        length == 0 ? &offset_length : data.data());
        };
        check_write(target, joined(offset, data), call, {error});
        if (offset_length + length != 0) {
            EXPECT_RUN_WITHOUT_MEMORY(1, -1, call(), {error});
        }
    });
}

TEST(RegisterWriteAndRead, IsTwoTransfersUnderOneHold)
{
    const char *const self = "i2c_write_and_read_multi_para";
    const ei2c_client target = device();
    const Event error = io_error(self, target, value, "i2c_write_and_read_multi_para()");
    for_all_lengths([&](const Bytes &offset, uint8_t offset_length, uint32_t length) {
        const Bytes data = pattern(length);
        const uint32_t places[] = {value, value ^ 0xff};
        const uint32_t lengths[] = {length, length};
        Bytes second = offset;
        if (!second.empty())
            second.back() ^= 0xff;
        const auto exchange = [&](int failing) {
            return paired(target, {sends(joined(offset, data))}, {sends(second), reads(length)},
                          failing, data);
        };
        const auto call = [&](Buffer &buffer) {
            return i2c_write_and_read_multi_para(&target, places, offset_length, lengths,
                                                 length == 0 ? nullptr : data.data(),
                                                 length == 0 ? nullptr : buffer.data());
        };
        Buffer good(length), bad(length), unread(length);
        EXPECT_RUN(0, call(good), exchange(0));
        EXPECT_EQ(good.bytes(), data);
        for (const int failing : {1, 2}) {
            const Exchange none = exchange(failing);
            EXPECT_RUN(-1, call(failing == 1 ? unread : bad), none + error);
            EXPECT_EQ(errno, none.error);
        }
        EXPECT_EQ(bad.bytes(), data); // what had arrived
        // No memory for the first message is silent, for the second offset it is not.
        if (offset_length + length != 0) {
            EXPECT_RUN_WITHOUT_MEMORY(1, -1, call(unread));
        }
        if (offset_length != 0) {
            EXPECT_RUN_WITHOUT_MEMORY(2, -1, call(unread), {error});
        }
        EXPECT_TRUE(unread.untouched());
    });
}

TEST(RegisterAccess, RefusesToWriteMoreThan65535Bytes)
{
    const ei2c_client target = device(0);
    Buffer buffer(2);
    constexpr std::pair<uint8_t, uint32_t> rows[] = {
        {0, 65536},      {1, 65535},      {255, 65281},     {2, 65535},
        {0, 0xffffffff}, {1, 0xffffffff}, {255, 0xffffffff}};
    for (const auto &[offset_length, length] : rows) {
        const uint32_t places[] = {0, 0}, lengths[] = {length, 2};
        EXPECT_RUN(-1, i2c_write_multi_para(&target, 0, offset_length, length, buffer.data()),
                   {overflow("i2c_write_multi_para")});
        EXPECT_RUN(-1,
                   i2c_write_and_read_multi_para(&target, places, offset_length, lengths,
                                                 buffer.data(), buffer.data()),
                   {overflow("i2c_write_and_read_multi_para")});
    }
    EXPECT_TRUE(buffer.untouched());
    const Bytes data = pattern(65535);
    EXPECT_RUN(0, i2c_write_multi_para(&target, 0, 0, 65535, data.data()),
               transferred(target, {sends(data)}));
    EXPECT_RUN(0, i2c_write_multi_para(&target, 0, 255, 65280, data.data()),
               transferred(target, {sends(joined(Bytes(255), pattern(65280)))}));
}

TEST(PangoRead, SendsTheCommandAndTheOffsetAndReads)
{
    const ei2c_client target = device();
    const Event error = io_error("pango_i2c_read_multi_para", target, 0xa1, "i2c read");
    for_all_lengths([&](const Bytes &offset, uint8_t offset_length, uint32_t length) {
        const auto call = [&](uint8_t *data) {
            return pango_i2c_read_multi_para(&target, 0xa1, value, offset_length, length,
                                             length == 0 ? nullptr : data);
        };
        check_read(target, joined({0xa1}, offset), length, call, {},
                   {on_stdout("Read data failed!"), error});
        EXPECT_RUN_WITHOUT_MEMORY(1, -1, call(nullptr));
    });
}

TEST(PangoWrite, SendsTheCommandTheOffsetAndTheDataOrZeros)
{
    const ei2c_client target = device();
    const Event error = io_error("pango_i2c_write_multi_para", target, 0x02, "I2C Write");
    for_all_lengths([&](const Bytes &offset, uint8_t offset_length, uint32_t length) {
        for (const bool null : {false, true}) {
            const Bytes data = null ? Bytes(length) : pattern(length);
            const auto call = [&] {
                return pango_i2c_write_multi_para(&target, 0x02, value, offset_length, length,
                                                  null ? nullptr : data.data());
            };
            check_write(target, joined(joined({0x02}, offset), data), call,
                        {on_stdout("ei2c_rdwr_xfer failed"), error});
            EXPECT_RUN_WITHOUT_MEMORY(1, -1, call());
        }
    });
}

TEST(PangoNack, TriesOnceAndHasNothingToSayOfIt)
{
    const Event no_memory = said(err("pango_i2c_write_or_read_with_nack"), "malloc failed");
    for (const int switches : {0, 1, 2})
        for (const Bytes &offset : offsets)
            for (const int read : {0, 1, -2})
                for (const int kind : {0, 1, 2, 3, 4}) { // 0: nothing fails
                    const ei2c_client target = device(switches);
                    Bytes sent = joined({0x33}, offset);
                    uint8_t byte = 0;
                    const i2c_msg messages[] = {
                        {target.addr, 0, static_cast<uint16_t>(sent.size()), sent.data()},
                        {target.addr, I2C_M_RD, 1, &byte}};
                    model::Story story = {target.bus};
                    model::Faults faults = {kind};
                    model::take(story);
                    model::open_path(story, target, {}, faults);
                    model::rdwr(story, target.addr, messages, read != 0 ? 2 : 1,
                                faults.next(kind != 0), {0x99});
                    model::close_path(story, target, {}, faults);
                    model::release(story);
                    const auto call = [&] {
                        return pango_i2c_write_or_read_with_nack(
                            &target, 0x33, value, static_cast<uint32_t>(offset.size()), read);
                    };
                    EXPECT_RUN(0, call(), story.script);
                    EXPECT_RUN_WITHOUT_MEMORY(1, -1, call(), {no_memory});
                }
}

TEST(PangoAccess, HasSixteenBitLengths)
{
    const ei2c_client target = device(0);
    Buffer buffer(65535);
    const auto read = [&](uint32_t offset_length, uint32_t length) {
        return pango_i2c_read_multi_para(&target, 1, 0, offset_length, length, buffer.data());
    };
    const auto write = [&](uint32_t offset_length, uint32_t length, const uint8_t *data) {
        return pango_i2c_write_multi_para(&target, 1, 0, offset_length, length, data);
    };
    // A write of 0 bytes modulo 65536 is nothing to do, for the read alone.
    for (const uint32_t length : {65535U, 131071U, 0xffffffffU})
        EXPECT_RUN(0, read(length, 1));
    for (const auto &[offset_length, length] :
         {Lengths{65536, 1}, {65537, 1}, {0xfffffffe, 1}, {3, 65536}, {3, 0xffffffff}})
        EXPECT_RUN(-1, read(offset_length, length));
    for (const auto &[offset_length, length] : {Lengths{65535, 0},
                                                {0, 65535},
                                                {3, 65532},
                                                {0xffffffff, 0},
                                                {0xffffffff, 1},
                                                {3, 65536},
                                                {0, 0xffffffff},
                                                {0xffffffff, 0xffffffff},
                                                {0x80000000, 0x7fffffff}}) {
        EXPECT_RUN(-1, write(offset_length, length, buffer.data()));
        EXPECT_RUN(-1, write(offset_length, length, nullptr));
    }
    for (const uint32_t length : {65535U, 65536U, 0xffffffffU})
        EXPECT_RUN(-1, pango_i2c_write_or_read_with_nack(&target, 1, 0, length, 1));
    EXPECT_TRUE(buffer.untouched());

    EXPECT_RUN(0, write(3, 65531, buffer.data()),
               transferred(target, {sends(joined({1, 0, 0, 0},
                                                 Bytes(buffer.data(), buffer.data() + 65531)))}));
    EXPECT_RUN(
        0, read(65534, 65535),
        transferred(target, {sends(joined({1}, Bytes(65534))), reads(65535)}, pattern(65535)));
    EXPECT_EQ(buffer.bytes(), pattern(65535));
}

TEST(SubcardRead, SucceedsWhenBothMessagesWereDone)
{
    const ei2c_client target = device();
    for (const uint16_t length : {uint16_t{0}, uint16_t{2}, uint16_t{65535}}) {
        Buffer good(length), bad(length);
        const Messages messages = {sends({0x10}), reads(length)};
        const auto call = [&](Buffer &buffer) {
            return epld_card_epld_read(&target, 0x10, buffer.data(), length);
        };
        EXPECT_RUN(0, call(good), transferred(target, messages, pattern(length)));
        EXPECT_EQ(good.bytes(), pattern(length));
        for (const int done : {0, 1, 3})
            EXPECT_RUN(-1, call(bad), transferred(target, messages, {}, done));
        EXPECT_RUN(-1, call(bad), refused(target, messages));
    }
}

TEST(SubcardTable, IsEmpty)
{
    EXPECT_RUN(-1, card_epld_read());
    EXPECT_RUN(0U, card_epld_cnt());
    for (const uint32_t index : {0U, 1U, 0xffffffffU})
        EXPECT_RUN(nullptr, card_epld_dev(index));
}

} // namespace
