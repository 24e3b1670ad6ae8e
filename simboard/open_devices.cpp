// Marks of open devices.
#include "simboard/open_devices.h"

#include <dirent.h>
#include <errno.h>
#include <stdlib.h>

namespace simboard
{

std::atomic<uint32_t> device_marks[kMarkedDescriptors / 32];

namespace
{

uint32_t bit_of(int fd)
{
    return uint32_t{1} << fd % 32;
}

} // namespace

void mark_device(int fd)
{
    if (static_cast<unsigned>(fd) < kMarkedDescriptors && !may_be_device(fd)) {
        device_marks[fd / 32].fetch_or(bit_of(fd), std::memory_order_acq_rel);
    }
}

bool confirm_device(int fd, Descriptor &descriptor)
{
    if (read_descriptor(fd, descriptor)) {
        return true;
    }
    device_marks[fd / 32].fetch_and(~bit_of(fd), std::memory_order_acq_rel);
    // Another thread may have opened a device under this number meanwhile, its mark taken away
    // here.
    if (!read_descriptor(fd, descriptor)) {
        return false;
    }
    mark_device(fd);
    return true;
}

void find_inherited_devices()
{
    const int saved = errno;
    DIR *const dir = opendir("/proc/self/fd");
    while (const dirent *entry = dir != nullptr ? readdir(dir) : nullptr) {
        Descriptor descriptor;
        const int fd = atoi(entry->d_name);
        if (entry->d_name[0] != '.' && fd != dirfd(dir) && read_descriptor(fd, descriptor)) {
            mark_device(fd);
        }
    }
    if (dir != nullptr) {
        closedir(dir);
    }
    errno = saved;
}

} // namespace simboard
