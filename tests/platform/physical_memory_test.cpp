// Register reads through /dev/mem, which is a sparse file of 4 GiB in memory here.
#include "platform/qelplatform.h"
#include "tests/platform/process.h"

#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{
int behind_dev_mem = -1;     // negative: the real file
int error_of_open = 0;       // what opening /dev/mem fails with
int flags_of_last_open = -1; // of /dev/mem
} // namespace

extern "C" int open64(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    if (behind_dev_mem < 0 || strcmp(path, "/dev/mem") != 0) {
        return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    }
    flags_of_last_open = flags;
    errno = error_of_open;
    return error_of_open != 0 ? -1 : fcntl(behind_dev_mem, F_DUPFD_CLOEXEC, 0);
}

namespace
{

// Each read gives back its descriptor and its mapping.
class PhysicalMemory : public testing::Test
{
protected:
    void SetUp() override
    {
        behind_dev_mem = memfd_create("physical-memory", MFD_CLOEXEC);
        ASSERT_EQ(ftruncate(behind_dev_mem, off_t{1} << 32), 0);
        first_descriptor = next_descriptor();
    }
    void TearDown() override
    {
        EXPECT_EQ(next_descriptor(), first_descriptor);
        std::ifstream maps("/proc/self/maps");
        const std::string text(std::istreambuf_iterator<char>(maps), {});
        EXPECT_EQ(text.find("physical-memory"), std::string::npos);
        close(behind_dev_mem);
        behind_dev_mem = -1;
        error_of_open = 0;
    }
    static int next_descriptor()
    {
        const int next = dup(behind_dev_mem);
        close(next);
        return next;
    }

    int first_descriptor = -1;
};

TEST_F(PhysicalMemory, IsReadAtAnyAlignedAddress)
{
    for (const uint32_t address : {0U, 0x1E78A088U, 0x1E78A808U, 0x7FFFFFFCU, 0x80000000U,
                                   0xB8210000U, 0xB8210FFCU, 0xFFFFFFFCU}) {
        for (const uint32_t stored : {address ^ 0xA5A5A5A5U, 1U}) { // the register as it is now
            ASSERT_EQ(pwrite(behind_dev_mem, &stored, sizeof stored, off_t{address}), 4);
            uint32_t value = 0;
            EXPECT_EQ(mmap_read32(address, &value), 0) << std::hex << address;
            EXPECT_EQ(value, stored) << std::hex << address;
        }
    }
    EXPECT_EQ(flags_of_last_open & (O_ACCMODE | O_SYNC | O_CLOEXEC), O_RDONLY | O_SYNC | O_CLOEXEC);
}

TEST_F(PhysicalMemory, FailsWithoutTouchingTheValue)
{
    uint32_t value = 0x12345678;
    for (const uint32_t unaligned : {1U, 0x1E78A08AU, 0xFFFFFFFFU}) {
        EXPECT_EQ(outcome(mmap_read32(unaligned, &value)), -EINVAL);
    }
    EXPECT_EQ(outcome(mmap_read32(0x1000, nullptr)), -EINVAL);
    error_of_open = EACCES;
    EXPECT_EQ(outcome(mmap_read32(0x1000, &value)), -EACCES);
    error_of_open = 0;
    const int unmappable = eventfd(0, EFD_CLOEXEC);
    dup3(unmappable, behind_dev_mem, O_CLOEXEC);
    close(unmappable);
    EXPECT_EQ(outcome(mmap_read32(0x1000, &value)), -ENODEV);
    EXPECT_EQ(value, 0x12345678U);
}

} // namespace
