// What all parts of reading a board description, or another file about a board, need.
#include "simboard/description_reader.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "simboard/description_keys.h"

namespace simboard
{

namespace
{

// jsoncpp reports syntax as text: "* Line 3, Column 5", then the message on an indented line of its
// own.
void add_syntax_errors(const std::string &report, std::vector<DescriptionError> &errors)
{
    unsigned line = 0;
    for (size_t start = 0; start < report.size();) {
        const size_t end = std::min(report.find('\n', start), report.size());
        const std::string text = report.substr(start, end - start);
        start = end + 1;
        if (std::sscanf(text.c_str(), "* Line %u", &line) == 1 || text.size() < 3 ||
            text.compare(0, 4, "See ") == 0) {
            continue;
        }
        // What follows on the same line is mostly a consequence of the first mistake there.
        if (errors.empty() || errors.back().line != line) {
            errors.push_back({line, "", "not valid JSON: " + text.substr(2)});
        }
    }
    if (errors.empty()) {
        errors.push_back({0, "", "not valid JSON"});
    }
}

Json::CharReaderBuilder strict_json()
{
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    builder["rejectDupKeys"] = false; // looked for apart, so that they do not hide other mistakes
    return builder;
}

} // namespace

bool parse_json(const std::string &text, Json::Value &root, std::vector<DescriptionError> &errors)
{
    static const Json::CharReaderBuilder builder = strict_json();
    const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
    std::string report;
    try {
        if (reader->parse(text.data(), text.data() + text.size(), &root, &report)) {
            find_duplicate_keys(text, errors);
            return true;
        }
    } catch (const Json::Exception &error) { // nested too deeply
        report = std::string("  ") + error.what();
    }
    add_syntax_errors(report, errors);
    return false;
}

void sort_by_line(std::vector<DescriptionError> &errors)
{
    std::stable_sort(
        errors.begin(), errors.end(),
        [](const DescriptionError &a, const DescriptionError &b) { return a.line < b.line; });
}

unsigned line_of(Reader &reader, const Json::Value &value)
{
    std::vector<size_t> &ends = reader.line_ends;
    if (ends.empty()) {
        for (size_t at = 0; (at = reader.text.find('\n', at)) != std::string::npos; at++) {
            ends.push_back(at);
        }
        ends.push_back(reader.text.size());
    }
    const auto start = static_cast<size_t>(value.getOffsetStart());
    return 1 +
           static_cast<unsigned>(std::lower_bound(ends.begin(), ends.end(), start) - ends.begin());
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

bool check_object(Reader &reader, const Json::Value &value, const std::string &path,
                  const std::set<std::string> &known)
{
    if (!value.isObject()) {
        complain(reader, value, path, "must be an object");
        return false;
    }
    for (const std::string &key : value.getMemberNames()) {
        if (known.count(key) == 0) {
            complain(reader, value[key], join(path, key), "unknown key");
        }
    }
    return true;
}

const Json::Value *require(Reader &reader, const Json::Value &object, const std::string &path,
                           const char *key)
{
    if (!object.isMember(key)) {
        complain(reader, object, join(path, key), "is missing");
        return nullptr;
    }
    return &object[key];
}

std::optional<uint32_t> read_number(Reader &reader, const Json::Value &object,
                                    const std::string &path, const char *key, uint32_t low,
                                    uint32_t high, const char *range)
{
    const Json::Value *const value = require(reader, object, path, key);
    if (value == nullptr) {
        return std::nullopt;
    }
    const std::optional<int64_t> number = parse_number(*value);
    if (!number || *number < low || *number > high) {
        complain(reader, *value, join(path, key), std::string("must be a number from ") + range);
        return std::nullopt;
    }
    return static_cast<uint32_t>(*number);
}

std::string read_text(Reader &reader, const Json::Value &object, const std::string &path,
                      const char *key)
{
    const Json::Value *const value = require(reader, object, path, key);
    if (value == nullptr) {
        return {};
    }
    if (!value->isString() || value->asString().empty()) {
        complain(reader, *value, join(path, key), "must be a text that is not empty");
        return {};
    }
    return value->asString();
}

} // namespace simboard
