// Opening what paths of a board stand for.
#ifndef SIMBOARD_OPEN_DEVICE_H
#define SIMBOARD_OPEN_DEVICE_H

namespace simboard
{

// Opens a board's device, memory or sysfs entry; `fd` is -1 with errno set when that fails. False
// when the path is none of these, and the next definition shall have it.
bool open_device(int dir, const char *path, int flags, int &fd);

} // namespace simboard

#endif
