// Bounds-checked memory and string functions: results, and what is left untouched.
#include "platform/qelplatform.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace
{

constexpr size_t kSize = 8;
using Buffer = std::array<char, 16>; // kSize bytes are said to belong to it, the rest must stay

Buffer filled()
{
    Buffer buffer;
    buffer.fill('#');
    return buffer;
}

TEST(Bounded, MemsetWritesAllOrNothing)
{
    for (const size_t count : {size_t{0}, size_t{1}, kSize, kSize + 1, SIZE_MAX}) {
        const bool fits = count <= kSize;
        Buffer buffer = filled();
        Buffer expected = filled();
        memset(expected.data(), 'v', fits ? count : 0);
        errno = 0;
        EXPECT_EQ(qel_memset_s(buffer.data(), kSize, 'v', count), fits ? 0 : -1) << count;
        EXPECT_EQ(errno, fits ? 0 : ERANGE) << count;
        EXPECT_EQ(buffer, expected) << count;
    }
    EXPECT_EQ(qel_memset_s(nullptr, kSize, 0, 0), 0);
    EXPECT_EQ(qel_memset_s(nullptr, kSize, 0, 1), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(Bounded, MemcpyCopiesAllOrNothing)
{
    struct Row {
        ptrdiff_t dest;   // offset in the buffer, -1 for null
        ptrdiff_t source; // likewise
        size_t size;
        size_t count;
        int result;
        int error;
    };
    const std::array rows = {
        Row{0, 8, 8, 8, 0, 0},        Row{8, 0, 8, 8, 0, 0},
        Row{0, 8, 8, 0, 0, 0},        Row{-1, -1, 0, 0, 0, 0},
        Row{-1, 0, 8, 1, -1, EINVAL}, Row{0, -1, 8, 1, -1, EINVAL},
        Row{0, 8, 7, 8, -1, ERANGE},  Row{0, 8, 8, SIZE_MAX, -1, ERANGE},
        Row{0, 7, 8, 8, -1, EINVAL}, // the last byte of one is the first of the other
        Row{7, 0, 8, 8, -1, EINVAL},  Row{3, 3, 8, 1, -1, EINVAL},
    };
    for (const Row &row : rows) {
        Buffer buffer{};
        memcpy(buffer.data(), "0123456789abcdef", buffer.size());
        Buffer expected = buffer;
        const auto at = [&](Buffer &memory, ptrdiff_t offset) {
            return offset < 0 ? nullptr : memory.data() + offset;
        };
        if (row.result == 0 && row.count > 0) {
            memcpy(at(expected, row.dest), at(buffer, row.source), row.count);
        }
        errno = 0;
        EXPECT_EQ(qel_memcpy_s(at(buffer, row.dest), row.size, at(buffer, row.source), row.count),
                  row.result);
        EXPECT_EQ(errno, row.error) << row.dest << " " << row.source << " " << row.count;
        EXPECT_EQ(buffer, expected) << row.dest << " " << row.source << " " << row.count;
    }
}

TEST(Bounded, SnprintfCutsAndSaysSo)
{
    struct Row {
        const char *text;
        int result;
        const char *written;
    };
    for (const Row &row : {Row{"", 0, ""}, Row{"1234567", 7, "1234567"},
                           Row{"12345678", -1, "1234567"}, Row{"123456789abcdef", -1, "1234567"}}) {
        Buffer buffer = filled();
        errno = 0;
        EXPECT_EQ(qel_snprintf_s(buffer.data(), kSize, "%s", row.text), row.result);
        EXPECT_EQ(errno, row.result < 0 ? ERANGE : 0);
        EXPECT_STREQ(buffer.data(), row.written);
        EXPECT_EQ(std::string(buffer.data() + kSize, kSize), "########");
    }
    Buffer buffer = filled();
    EXPECT_EQ(qel_snprintf_s(buffer.data(), 0, "%d", 1), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(buffer, filled());
    EXPECT_EQ(qel_snprintf_s(nullptr, kSize, "%d", 1), -1);
}

TEST(Bounded, PrintfWritesToStandardOutput)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(qel_printf_s("%s=%d\n", "value", 5), 8);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "value=5\n");
}

TEST(Bounded, EveryErrorNumberHasAText)
{
    EXPECT_STREQ(qel_strerror_s(ENXIO), "No such device or address");
    const char *mine = qel_strerror_s(4000);
    std::thread([] { EXPECT_STREQ(qel_strerror_s(-5), "Unknown error -5"); }).join();
    EXPECT_STREQ(mine, "Unknown error 4000");
    EXPECT_STREQ(qel_strerror_s(INT_MIN), "Unknown error -2147483648");
}

} // namespace
