// Reading device registers at physical addresses through /dev/mem.
#include "platform/exported.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

static_assert(sizeof(off_t) == 8, "physical addresses from 0x80000000 up need 64-bit file offsets");

namespace
{

// The caller is told why the read failed, not how closing went.
int close_and_return(int fd, int result)
{
    const int saved_errno = errno;
    close(fd);
    errno = saved_errno;
    return result;
}

} // namespace

int mmap_read32(uint32_t physical_address, uint32_t *value)
{
    if (value == nullptr || physical_address % sizeof *value != 0) {
        errno = EINVAL;
        return -1;
    }
    const int fd = sigwrap_open("/dev/mem", O_RDONLY | O_SYNC);
    if (fd < 0) {
        return -1;
    }
    const auto page_size = static_cast<uint32_t>(sysconf(_SC_PAGESIZE));
    const uint32_t offset = physical_address % page_size;
    // Unsigned arithmetic first, then widened: nothing on the way has a sign to extend.
    const auto page_start = static_cast<off_t>(physical_address - offset);
    void *page = mmap(nullptr, page_size, PROT_READ, MAP_SHARED, fd, page_start);
    if (page == MAP_FAILED) {
        return close_and_return(fd, -1);
    }
    // One load of 32 bits: a device register must not be read in pieces or twice.
    const void *address = static_cast<const char *>(page) + offset;
    *value = *static_cast<const volatile uint32_t *>(address);
    munmap(page, page_size);
    return close_and_return(fd, 0);
}
