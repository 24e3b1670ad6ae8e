// Common ground of the files that read a board description.
#ifndef SIMBOARD_DESCRIPTION_READER_H
#define SIMBOARD_DESCRIPTION_READER_H

#include <json/json.h>

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "simboard/description.h"

namespace simboard
{

struct Reader {
    const std::string &text;
    std::vector<DescriptionError> &errors;
    BoardDescription board;
};

unsigned line_of(const Reader &reader, const Json::Value &value);

// Adds an error at `value`; `key` is its path.
void complain(Reader &reader, const Json::Value &value, const std::string &key,
              const std::string &message);

// Path of a member of what stands at `path`.
std::string join(const std::string &path, const std::string &key);
std::string join(const std::string &path, Json::ArrayIndex index);

// A number, or a text that holds one in decimal or with 0x in front.
std::optional<int64_t> parse_number(const Json::Value &value);

// All keys that a device may have.
std::set<std::string> device_keys();

// The keys of a device that not every kind of chip has. A type that is not known, and then empty,
// has been complained about.
void read_options(Reader &reader, const Json::Value &value, const std::string &path,
                  DeviceDescription &device);

} // namespace simboard

#endif
