// Numbers as people type them and as the tool prints them.
#include "number.h"

#include "failure.h"

#include <charconv>
#include <cstdio>

namespace tool
{

std::optional<uint32_t> parse_number(std::string_view text)
{
    int base = 10;
    if (text.size() > 2 && text[0] == '0') {
        if (text[1] == 'x' || text[1] == 'X')
            base = 16;
        else if (text[1] == 'b' || text[1] == 'B')
            base = 2;
    }
    if (base != 10)
        text.remove_prefix(2);
    uint32_t value = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc() || stop != end)
        return std::nullopt;
    return value;
}

uint32_t number_in(std::string_view text, uint32_t low, uint32_t high, const std::string &what)
{
    const std::optional<uint32_t> value = parse_number(text);
    if (!value)
        throw usage_error(what + " '" + std::string(text) +
                          "' is not a number (write decimal, 0x or 0b)");
    if (*value < low || *value > high) {
        const bool as_hex = text.size() > 1 && (text[1] == 'x' || text[1] == 'X');
        const auto show = [as_hex](uint32_t n) { return as_hex ? hex(n, 2) : std::to_string(n); };
        throw usage_error(what + " " + std::string(text) + " is out of range: " + show(low) +
                          " to " + show(high));
    }
    return *value;
}

std::string hex(uint32_t value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*x", digits, value);
    return text;
}

} // namespace tool
