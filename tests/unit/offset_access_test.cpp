// Reads and writes at an offset: the bytes on the wire, every length there can be, and what
// failures leave.
#include "tests/unit/device_calls.h"

using namespace calls;

namespace
{

const std::string runtime = "Runtime_DbgOut 135 [libi2c_qelifc]";
const Event overflow = said(runtime, "offsetlen + datalen overflow\n");

Script failing(const Exchange &exchange)
{
    return exchange + said(runtime, "ei2c_rdwr_xfer = %d\n", exchange.result);
}

const struct {
    uint32_t length, offset;
    Bytes wire;
} offsets[] = {
    {0, 0x12345678, {}},
    {1, 0x1ff, {0xff}},
    {2, 0x1234, {0x12, 0x34}},
    {3, 0x12345678, {0x34, 0x56, 0x78}},
    {4, 0x89abcdef, {0x89, 0xab, 0xcd, 0xef}},
    {5, 0x01020304, {0, 1, 2, 3, 4}},
    {9, 0xffffffff, {0, 0, 0, 0, 0, 0xff, 0xff, 0xff, 0xff}},
};

TEST(OffsetWrite, SendsOffsetAndDataInOneMessage)
{
    const ei2c_client target = device();
    for (const auto &row : offsets)
        for (const uint32_t length : {0U, 1U, 3U}) {
            const Bytes data = pattern(length);
            const uint8_t *given = length == 0 ? nullptr : data.data();
            const Messages messages = {sends(joined(row.wire, data))};
            const auto call = [&] {
                return i2cWrite(&target, length, given, row.length, row.offset);
            };
            EXPECT_RUN(1, call(), transferred(target, messages));
            const Exchange none = refused(target, messages);
            EXPECT_RUN(none.result, call(), failing(none));
            EXPECT_EQ(errno, none.error);
        }
}

TEST(OffsetWrite, RefusesASumOf65535OrMore)
{
    const ei2c_client target = device(0);
    const Bytes byte(1);
    constexpr std::pair<uint32_t, uint32_t> refusals[] = {{4, 65531},
                                                          {0, 65535},
                                                          {65535, 0},
                                                          {65534, 1},
                                                          {0, 0xffffffff},
                                                          {0xffffffff, 0},
                                                          {1, 0xffffffff},
                                                          {0xffffffff, 1},
                                                          {65536, 65536},
                                                          {0xffff, 1},
                                                          {0x80000000, 1U << 31},
                                                          {0x7fffffff, 0x80000001}};
    for (const auto &[offsetlen, datalen] : refusals)
        EXPECT_RUN(-1, i2cWrite(&target, datalen, byte.data(), offsetlen, 7), {overflow})
            << offsetlen << " " << datalen;
    for (const uint32_t offsetlen : {0U, 4U, 65533U, 65534U}) {
        const uint32_t datalen = 65534 - offsetlen;
        const Bytes data = pattern(datalen);
        EXPECT_RUN(1, i2cWrite(&target, datalen, data.data(), offsetlen, 0),
                   transferred(target, {sends(joined(Bytes(offsetlen), data))}));
    }
}

TEST(OffsetRead, SendsTheOffsetAndReadsInOneTransfer)
{
    const ei2c_client target = device();
    for (const auto &row : offsets)
        for (const uint32_t length : {0U, 1U, 5U}) {
            Messages messages = {sends(row.wire), reads(length)};
            if (row.length == 0)
                messages.erase(messages.begin());
            const Bytes data = pattern(length);
            Buffer good(length), bad(length);
            const auto call = [&](Buffer &buffer) {
                return i2cRead(&target, length, length == 0 ? nullptr : buffer.data(), row.length,
                               row.offset);
            };
            EXPECT_RUN(row.length == 0 ? 1 : 2, call(good), transferred(target, messages, data));
            EXPECT_EQ(good.bytes(), data);
            const Exchange none = refused(target, messages, data);
            EXPECT_RUN(none.result, call(bad), failing(none));
            EXPECT_EQ(errno, none.error);
            EXPECT_TRUE(bad.untouched());
        }
}

TEST(OffsetRead, HandsOutZerosWhereNothingArrived)
{
    const ei2c_client target = device(0);
    Buffer buffer(4);
    EXPECT_RUN(1, i2cRead(&target, 4, buffer.data(), 1, 9),
               transferred(target, {sends({9}), reads(4)}, {7, 8}, 1));
    EXPECT_EQ(buffer.bytes(), (Bytes{7, 8, 0, 0}));
}

TEST(OffsetRead, RefusesALengthOf65536OrMore)
{
    const ei2c_client target = device(0);
    Buffer small(1);
    constexpr std::pair<uint32_t, uint32_t> refusals[] = {
        {0, 65536}, {65536, 0}, {1, 0xffffffff}, {0xffffffff, 1}, {65537, 65537}, {0x10001, 4}};
    for (const auto &[offsetlen, datalen] : refusals)
        EXPECT_RUN(-1, i2cRead(&target, datalen, small.data(), offsetlen, 7), {overflow})
            << offsetlen << " " << datalen;
    EXPECT_TRUE(small.untouched());
    Buffer longest(65535);
    EXPECT_RUN(2, i2cRead(&target, 65535, longest.data(), 65535, 0),
               transferred(target, {sends(Bytes(65535)), reads(65535)}, pattern(65535)));
    EXPECT_EQ(longest.bytes(), pattern(65535));
}

TEST(OffsetAccess, WithoutMemorySendsNothing)
{
    const ei2c_client target = device();
    Buffer buffer(4);
    EXPECT_RUN_WITHOUT_MEMORY(1, 0, i2cRead(&target, 4, buffer.data(), 2, 1));
    EXPECT_RUN_WITHOUT_MEMORY(2, 0, i2cRead(&target, 4, buffer.data(), 2, 1));
    EXPECT_RUN_WITHOUT_MEMORY(1, 0, i2cRead(&target, 4, buffer.data(), 0, 1));
    EXPECT_RUN_WITHOUT_MEMORY(1, 0, i2cWrite(&target, 4, buffer.data(), 2, 1));
    EXPECT_TRUE(buffer.untouched());
    // What needs no buffer allocates none.
    EXPECT_RUN_WITHOUT_MEMORY(1, 1, i2cWrite(&target, 0, nullptr, 0, 1),
                              transferred(target, {sends({})}));
    EXPECT_RUN_WITHOUT_MEMORY(1, 1, i2cRead(&target, 0, nullptr, 0, 1),
                              transferred(target, {reads(0)}));
}

} // namespace
