// Which of the process's descriptors may be open devices of a board.
//
// What a descriptor is stands in its file offset, but asking there costs a system call, too much
// for every read and write of a program. So the process keeps a mark for each descriptor seen to be
// a device: when it was opened, duplicated, given a request, or found open at the start. A mark
// that outlived its descriptor is noticed, and taken away, by the next look at the offset.
#ifndef SIMBOARD_OPEN_DEVICES_H
#define SIMBOARD_OPEN_DEVICES_H

#include <stdint.h>

#include <atomic>

#include "simboard/descriptor.h"

namespace simboard
{

constexpr int kMarkedDescriptors = 65536; // those above are never taken for devices

extern std::atomic<uint32_t> device_marks[kMarkedDescriptors / 32];

inline bool may_be_device(int fd)
{
    return static_cast<unsigned>(fd) < kMarkedDescriptors &&
           (device_marks[fd / 32].load(std::memory_order_acquire) >> fd % 32 & 1) != 0;
}

// The descriptor has just become, or proved to be, an open device.
void mark_device(int fd);

// Whether a marked descriptor really is an open device.
bool confirm_device(int fd, Descriptor &descriptor);

// Marks the devices among the descriptors that the process was started with.
void find_inherited_devices();

} // namespace simboard

#endif
