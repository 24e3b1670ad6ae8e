// Numbers as people type them and as the tool prints them.
#ifndef QELI2C_NUMBER_H
#define QELI2C_NUMBER_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tool
{

// Decimal, 0x or 0b, no sign and nothing around it; nothing when the text is anything else or above
// 32 bits.
std::optional<uint32_t> parse_number(std::string_view text);

// The number of `text`, which must lie in [low, high]; otherwise a usage error that names `what`.
uint32_t number_in(std::string_view text, uint32_t low, uint32_t high, const std::string &what);

// "0x" and at least `digits` lower-case digits.
std::string hex(uint32_t value, int digits);

} // namespace tool

#endif
