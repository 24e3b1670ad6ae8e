// What all parts of reading a board description need.
#include "simboard/description_reader.h"

#include <algorithm>

namespace simboard
{

unsigned line_of(const Reader &reader, const Json::Value &value)
{
    const auto start = reader.text.begin();
    return 1 + static_cast<unsigned>(std::count(start, start + value.getOffsetStart(), '\n'));
}

void complain(Reader &reader, const Json::Value &value, const std::string &key,
              const std::string &message)
{
    reader.errors.push_back({line_of(reader, value), key, message});
}

std::string join(const std::string &path, const std::string &key)
{
    return path.empty() ? key : path + "." + key;
}

std::string join(const std::string &path, Json::ArrayIndex index)
{
    return path + "[" + std::to_string(index) + "]";
}

std::optional<int64_t> parse_number(const Json::Value &value)
{
    if (value.type() == Json::intValue || value.type() == Json::uintValue) {
        return value.isInt64() ? std::optional(value.asInt64()) : std::nullopt;
    }
    if (!value.isString()) {
        return std::nullopt;
    }
    const std::string text = value.asString();
    const bool negative = text.compare(0, 1, "-") == 0;
    const std::string number = text.substr(negative ? 1 : 0);
    const bool hex = number.compare(0, 2, "0x") == 0;
    const std::string digits = hex ? number.substr(2) : number;
    const char *const allowed = hex ? "0123456789abcdefABCDEF" : "0123456789";
    if (digits.empty() || digits.size() > 10 ||
        digits.find_first_not_of(allowed) != std::string::npos) {
        return std::nullopt;
    }
    const int64_t magnitude = std::stoll(digits, nullptr, hex ? 16 : 10);
    return negative ? -magnitude : magnitude;
}

} // namespace simboard
