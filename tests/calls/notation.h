// How transcripts write bytes, errno and lines.
#ifndef TESTS_CALLS_NOTATION_H
#define TESTS_CALLS_NOTATION_H

#include <cstdint>
#include <linux/i2c.h>
#include <string>
#include <vector>

namespace notation
{

using Bytes = std::vector<uint8_t>;

std::string printed(const char *format, ...) __attribute__((format(printf, 1, 2)));

/**
 * Bytes in hex, with a point between parts: "12ab" two bytes, "00*9" nine times 0, "03+300" 300
 * bytes counting up from 3, with 0 behind 250. No bytes are "-".
 */
Bytes bytes_of(const std::string &text);
std::string text_of(const uint8_t *bytes, size_t count);

/** "50w12ab" a message written to 0x50, "50r4" four bytes read, "50/10w12" one with flags 0x10. */
std::string text_of(const i2c_msg *msgs, uint32_t count);

int error_of(const std::string &name); // its name, or "E201" when it has none
std::string name_of(int error);

/** Decimal or 0x; anything else throws. */
int64_t number_of(const std::string &text);
std::vector<std::string> split(const std::string &text, char separator);

/** A sequence of lines that has a shorter form. Words in braces stand for any text of no space. */
struct Fold {
    std::string line;
    std::vector<std::string> body;
};
std::vector<Fold> folds_of(const std::string &text);
std::vector<std::string> folded(std::vector<std::string> lines, const std::vector<Fold> &folds);

} // namespace notation

#endif
