// Keys that an object of a JSON text holds twice; a parser keeps one of the values and says
// nothing.
#ifndef SIMBOARD_DESCRIPTION_KEYS_H
#define SIMBOARD_DESCRIPTION_KEYS_H

#include <string>
#include <vector>

#include "simboard/description.h"

namespace simboard
{

// Adds a mistake for every such key of `text`, which is valid JSON.
void find_duplicate_keys(const std::string &text, std::vector<DescriptionError> &errors);

} // namespace simboard

#endif
