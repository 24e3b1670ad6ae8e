// Bounds-checked memory and string functions: results, and what is left untouched.
#include "platform/qelplatform.h"
#include "tests/platform/process.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace
{

constexpr size_t kSize = 8; // bytes said to belong to the destination; what follows must stay
const std::string kBefore = "0123456789abcdef";

TEST(Bounded, MemsetWritesAllOrNothing)
{
    for (const size_t count : {size_t{0}, size_t{1}, kSize, kSize + 1, SIZE_MAX}) {
        const bool fits = count <= kSize;
        std::string buffer = kBefore;
        std::string expected = kBefore;
        expected.replace(0, fits ? count : 0, fits ? count : 0, 'v');
        EXPECT_EQ(outcome(qel_memset_s(buffer.data(), kSize, 'v', count)), fits ? 0 : -ERANGE);
        EXPECT_EQ(buffer, expected);
    }
    EXPECT_EQ(qel_memset_s(nullptr, kSize, 0, 0), 0);
    EXPECT_EQ(outcome(qel_memset_s(nullptr, kSize, 0, 1)), -EINVAL);
}

TEST(Bounded, MemcpyCopiesAllOrNothing)
{
    struct Row {
        ptrdiff_t dest, source; // offsets in the buffer, -1 for null
        size_t size, count;
        int outcome;
        std::string after;
    };
    for (const Row &row : {
             Row{0, 8, 8, 8, 0, "89abcdef89abcdef"},
             Row{8, 0, 8, 8, 0, "0123456701234567"},
             Row{0, 8, 8, 0, 0, kBefore},
             Row{-1, -1, 0, 0, 0, kBefore},
             Row{-1, 0, 8, 1, -EINVAL, kBefore},
             Row{0, -1, 8, 1, -EINVAL, kBefore},
             Row{0, 8, 7, 8, -ERANGE, kBefore},
             Row{0, 8, 8, SIZE_MAX, -ERANGE, kBefore},
             Row{0, 7, 8, 8, -EINVAL, kBefore}, // the last byte of one is the first of the other
             Row{7, 0, 8, 8, -EINVAL, kBefore},
             Row{3, 3, 8, 1, -EINVAL, kBefore},
         }) {
        std::string buffer = kBefore;
        const auto at = [&](ptrdiff_t offset) {
            return offset < 0 ? nullptr : buffer.data() + offset;
        };
        EXPECT_EQ(outcome(qel_memcpy_s(at(row.dest), row.size, at(row.source), row.count)),
                  row.outcome)
            << row.dest << " " << row.source << " " << row.count;
        EXPECT_EQ(buffer, row.after) << row.dest << " " << row.source << " " << row.count;
    }
}

TEST(Bounded, SnprintfCutsAndSaysSo)
{
    const std::string text = "123456789abcde";
    for (const size_t length : {0U, 7U, 8U, 14U}) {
        std::string buffer = kBefore;
        EXPECT_EQ(outcome(qel_snprintf_s(buffer.data(), kSize, "%.*s", static_cast<int>(length),
                                         text.c_str())),
                  length < kSize ? static_cast<int>(length) : -ERANGE);
        EXPECT_STREQ(buffer.c_str(), text.substr(0, std::min(length, kSize - 1)).c_str());
        EXPECT_EQ(buffer.substr(kSize), kBefore.substr(kSize));
    }
    std::string buffer = kBefore;
    EXPECT_EQ(outcome(qel_snprintf_s(buffer.data(), 0, "%d", 1)), -EINVAL);
    EXPECT_EQ(buffer, kBefore);
    EXPECT_EQ(outcome(qel_snprintf_s(nullptr, kSize, "%d", 1)), -EINVAL);
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
