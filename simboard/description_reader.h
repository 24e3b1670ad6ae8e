// Common ground of the files that read a board description, or another file about a board.
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
    BoardDescription board;          // that is read, or that the file is about
    std::vector<size_t> line_ends{}; // found when the first line is asked for
};

// False, with what is wrong, when the text is not valid JSON. Keys that are there twice are
// complained about as well.
bool parse_json(const std::string &text, Json::Value &root, std::vector<DescriptionError> &errors);

// Mistakes in the order of the file.
void sort_by_line(std::vector<DescriptionError> &errors);

unsigned line_of(Reader &reader, const Json::Value &value);

// Adds an error at `value`; `key` is its path.
void complain(Reader &reader, const Json::Value &value, const std::string &key,
              const std::string &message);

// Path of a member of what stands at `path`.
std::string join(const std::string &path, const std::string &key);
std::string join(const std::string &path, Json::ArrayIndex index);

// A number, or a text that holds one in decimal or with 0x in front.
std::optional<int64_t> parse_number(const Json::Value &value);

// False, with a complaint, when `value` is no object. Keys not `known` are complained about each.
bool check_object(Reader &reader, const Json::Value &value, const std::string &path,
                  const std::set<std::string> &known);

// A member, or null with a complaint when it is missing.
const Json::Value *require(Reader &reader, const Json::Value &object, const std::string &path,
                           const char *key);

// A member that must be a number from `low` to `high`, which `range` tells.
std::optional<uint32_t> read_number(Reader &reader, const Json::Value &object,
                                    const std::string &path, const char *key, uint32_t low,
                                    uint32_t high, const char *range);

// A member that must be a text, not empty; empty after a complaint.
std::string read_text(Reader &reader, const Json::Value &object, const std::string &path,
                      const char *key);

// All keys that a device may have.
std::set<std::string> device_keys();

// The keys of a device that not every kind of chip has. A type that is not known, and then empty,
// has been complained about.
void read_options(Reader &reader, const Json::Value &value, const std::string &path,
                  DeviceDescription &device);

} // namespace simboard

#endif
