// See notation.h.
#include "tests/calls/notation.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <stdexcept>

namespace notation
{

std::string printed(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    char text[1024];
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return text;
}

int64_t number_of(const std::string &text)
{
    char *end = nullptr;
    const int64_t number = strtoll(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0')
        throw std::invalid_argument("not a number: " + text);
    return number;
}

std::vector<std::string> split(const std::string &text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);)
        parts.push_back(part);
    return parts;
}

Bytes bytes_of(const std::string &text)
{
    Bytes bytes;
    if (text == "-")
        return bytes;
    for (const std::string &part : split(text, '.')) {
        const size_t sign = part.find_first_of("*+");
        const std::string digits = part.substr(0, sign);
        if (digits.empty() || digits.size() % 2 != 0 ||
            digits.find_first_not_of("0123456789abcdef") != std::string::npos)
            throw std::invalid_argument("not bytes: " + text);
        for (size_t i = 0; i < digits.size(); i += 2)
            bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
        if (sign == std::string::npos)
            continue;
        const bool counts = part[sign] == '+';
        for (int64_t more = number_of(part.substr(sign + 1)); more > 1; --more)
            bytes.push_back(counts ? static_cast<uint8_t>((bytes.back() + 1) % 251) : bytes.back());
    }
    return bytes;
}

std::string text_of(const uint8_t *bytes, size_t count)
{
    std::string text;
    const auto run = [=](size_t from, bool counts) {
        size_t to = from + 1;
        while (to < count && bytes[to] == (counts ? (bytes[to - 1] + 1) % 251 : bytes[to - 1]))
            ++to;
        return to - from;
    };
    for (size_t i = 0; i < count;) {
        const size_t same = run(i, false);
        const size_t counting = run(i, true);
        const size_t length = std::max(same, counting);
        const bool shown = length >= 6;
        if (shown && !text.empty() && text.back() != '.')
            text += '.';
        text += printed("%02x", bytes[i]);
        if (shown)
            text += printed("%c%zu", same > counting ? '*' : '+', length);
        i += shown ? length : 1;
        if (shown && i < count)
            text += '.';
    }
    return text.empty() ? "-" : text;
}

std::string text_of(const i2c_msg *msgs, uint32_t count)
{
    std::string text;
    for (uint32_t i = 0; i < count; ++i) {
        const i2c_msg &msg = msgs[i];
        const bool reads = (msg.flags & I2C_M_RD) != 0;
        const int flags = msg.flags & ~I2C_M_RD;
        text += printed(i == 0 ? "%02x" : ",%02x", msg.addr);
        text += flags == 0 ? "" : printed("/%x", flags);
        text += reads ? printed("r%d", msg.len) : "w" + text_of(msg.buf, msg.len);
    }
    return text.empty() ? "none" : text;
}

std::string name_of(int error)
{
    const char *name = strerrorname_np(error);
    return name != nullptr ? name : printed("E%d", error);
}

int error_of(const std::string &name)
{
    for (int error = 1; error < 1000; ++error)
        if (name_of(error) == name)
            return error;
    throw std::invalid_argument("not an errno: " + name);
}

namespace
{

using Words = std::map<std::string, std::string>;

std::string filled(const std::string &pattern, const Words &words)
{
    std::string text = pattern;
    for (const auto &[name, word] : words)
        for (size_t at; (at = text.find(name)) != std::string::npos;)
            text.replace(at, name.size(), word);
    return text;
}

// Whether the line is the pattern with the words known, and those new in it.
bool matches(const std::string &pattern, const std::string &line, Words &words)
{
    size_t at = 0;
    for (size_t i = 0; i < pattern.size();) {
        if (pattern[i] != '{') {
            if (at == line.size() || line[at++] != pattern[i++])
                return false;
            continue;
        }
        const size_t close = pattern.find('}', i) + 1;
        const size_t end = close == pattern.size() ? line.size() : line.find(pattern[close], at);
        if (end == std::string::npos)
            return false;
        const std::string word = line.substr(at, end - at);
        const auto known = words.try_emplace(pattern.substr(i, close - i), word).first;
        if (word.empty() || known->second != word || word.find(' ') != std::string::npos)
            return false;
        at = end;
        i = close;
    }
    return at == line.size();
}

} // namespace

std::vector<Fold> folds_of(const std::string &text)
{
    std::vector<Fold> folds;
    for (const std::string &line : split(text, '\n'))
        if (line.starts_with("== "))
            folds.push_back({line.substr(3), {}});
        else if (line.starts_with("  "))
            folds.back().body.push_back(line.substr(2));
    return folds;
}

std::vector<std::string> folded(std::vector<std::string> lines, const std::vector<Fold> &folds)
{
    for (const Fold &fold : folds)
        for (size_t from = 0; from + fold.body.size() <= lines.size(); ++from) {
            Words words;
            size_t same = 0;
            while (same < fold.body.size() && matches(fold.body[same], lines[from + same], words))
                ++same;
            if (same < fold.body.size())
                continue;
            lines[from] = filled(fold.line, words);
            const auto rest = lines.begin() + static_cast<long>(from) + 1;
            lines.erase(rest, rest + static_cast<long>(same) - 1);
            for (const auto &[name, word] : words)
                if (fold.line.find(name) == std::string::npos)
                    throw std::logic_error("a fold hides " + name);
        }
    std::vector<std::string> shown;
    for (size_t i = 0, same = 1; i < lines.size(); ++i, ++same) {
        if (i + 1 < lines.size() && lines[i + 1] == lines[i])
            continue;
        shown.push_back(same > 2 ? printed("(%zu times) ", same) + lines[i] : lines[i]);
        if (same == 2)
            shown.push_back(lines[i]);
        same = 0;
    }
    return shown;
}

} // namespace notation
