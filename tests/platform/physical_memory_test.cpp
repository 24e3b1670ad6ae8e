// Register reads through /dev/mem, which is a sparse file of 4 GiB in memory here.
#include "platform/qelplatform.h"
#include "tests/platform/process.h"

#include <cerrno>
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

int physical_memory = -1;    // stands behind /dev/mem
int open_error = 0;          // what opening /dev/mem fails with
int flags_of_last_open = -1; // of /dev/mem

int open_memory_or_file(const char *path, int flags, mode_t mode)
{
    if (physical_memory < 0 || strcmp(path, "/dev/mem") != 0) {
        return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
    }
    flags_of_last_open = flags;
    if (open_error != 0) {
        errno = open_error;
        return -1;
    }
    return fcntl(physical_memory, F_DUPFD_CLOEXEC, 0);
}

} // namespace

extern "C" int open64(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    return open_memory_or_file(path, flags, mode);
}

namespace
{

class PhysicalMemory : public testing::Test
{
protected:
    void SetUp() override
    {
        physical_memory = memfd_create("physical-memory", MFD_CLOEXEC);
        ASSERT_EQ(ftruncate(physical_memory, off_t{1} << 32), 0);
        open_error = 0;
    }
    void TearDown() override
    {
        close(physical_memory);
        physical_memory = -1;
    }
    static void store(uint32_t address, uint32_t value)
    {
        ASSERT_EQ(pwrite(physical_memory, &value, sizeof value, off_t{address}), 4);
    }
};

bool memory_is_mapped()
{
    std::ifstream maps("/proc/self/maps");
    const std::string text(std::istreambuf_iterator<char>(maps), {});
    return text.find("physical-memory") != std::string::npos;
}

TEST_F(PhysicalMemory, IsReadAtAnyAlignedAddress)
{
    const auto descriptors = open_descriptors();
    for (const uint32_t address : {0U, 0x1E78A088U, 0x1E78A808U, 0x7FFFFFFCU, 0x80000000U,
                                   0xB8210000U, 0xB8210FFCU, 0xFFFFFFFCU}) {
        store(address, address ^ 0xA5A5A5A5U);
        uint32_t value = 0;
        errno = 77;
        EXPECT_EQ(mmap_read32(address, &value), 0) << std::hex << address;
        EXPECT_EQ(value, address ^ 0xA5A5A5A5U) << std::hex << address;
        store(address, 1);
        EXPECT_EQ(mmap_read32(address, &value), 0);
        EXPECT_EQ(value, 1U) << "the register as it is now";
        EXPECT_EQ(errno, 77);
    }
    EXPECT_EQ(flags_of_last_open & O_ACCMODE, O_RDONLY);
    EXPECT_EQ(flags_of_last_open & (O_SYNC | O_CLOEXEC), O_SYNC | O_CLOEXEC);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_FALSE(memory_is_mapped());
}

TEST_F(PhysicalMemory, FailsWithoutTouchingTheValue)
{
    const auto descriptors = open_descriptors();
    uint32_t value = 0x12345678;
    for (const uint32_t unaligned : {1U, 0x1E78A08AU, 0xFFFFFFFFU}) {
        EXPECT_EQ(mmap_read32(unaligned, &value), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(mmap_read32(0x1000, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);

    open_error = EACCES;
    EXPECT_EQ(mmap_read32(0x1000, &value), -1);
    EXPECT_EQ(errno, EACCES);

    open_error = 0;
    close(physical_memory);
    physical_memory = eventfd(0, EFD_CLOEXEC); // cannot be mapped
    EXPECT_EQ(mmap_read32(0x1000, &value), -1);
    EXPECT_EQ(errno, ENODEV);

    EXPECT_EQ(value, 0x12345678U);
    EXPECT_EQ(open_descriptors().size(), descriptors.size());
}

} // namespace
