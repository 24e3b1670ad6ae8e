// What must hold between the devices of a board, beyond the form of each.
#ifndef SIMBOARD_DESCRIPTION_CHECK_H
#define SIMBOARD_DESCRIPTION_CHECK_H

#include <string>
#include <vector>

#include "simboard/description.h"

namespace simboard
{

bool is_device_name(const std::string &name);
bool is_device_type(const std::string &type);

// Where the file describes a device.
struct DevicePlace {
    std::string path;
    unsigned name_line;
    unsigned address_line;
};

// Checks the last device against those before it. An address must be free on its
// own segment and on every segment that is connected to it when it is reached.
void check_new_device(const BoardDescription &board, const DevicePlace &place,
                      std::vector<DescriptionError> &errors);

} // namespace simboard

#endif
