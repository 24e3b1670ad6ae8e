// What goes to standard output and standard error, and the questions asked there.
#ifndef QELI2C_OUTPUT_H
#define QELI2C_OUTPUT_H

#include "board_file.h"
#include "tool.h"

#include <cstdint>
#include <json/value.h>
#include <string>
#include <vector>

namespace tool
{

// A JSON document on standard output, keys in alphabetical order.
void print_json(const Json::Value &value);
// The same on one line, for results that come one by one; written at once.
void print_json_line(const Json::Value &value);

// {"path": ..., "name": ..., "type": ...}, the latter two where they are known.
Json::Value json_of(const Target &target);

template <typename Value>
Json::Value json_array(const std::vector<Value> &values)
{
    Json::Value array(Json::arrayValue);
    for (const Value &value : values)
        array.append(value);
    return array;
}

// Values of `width` bytes from `offset` on, sixteen bytes a line: "0x0010: 00 01 ..." and
// their characters.
void print_dump(uint32_t offset, int offset_digits, const std::vector<uint32_t> &values, int width);

// "0x00 0x01 ...", at most sixteen a line.
void print_bytes(const std::vector<uint8_t> &bytes);

// Writes out what has been printed. Fails when that cannot be done, without a word when the reader
// has gone: what goes on for long calls it after each result, so as not to go on for nobody.
void flush_results();

// "qeli2c: MESSAGE" on standard error: one line for programs and logs, broken between words for the
// width of a terminal. What has been printed before comes before it.
void tell(const std::string &message);

// Says on standard error what is about to be done to something that can be damaged; asks when a
// person is at the terminal and --yes was not given. Fails when the answer is no.
void announce(const Options &options, const std::string &what);

// What to call a target whose registers are not to be written lightly, "the EEPROM", "the switch"
// or "the logic device"; empty for any other. One the board file does not describe is judged by its
// address.
std::string delicate(const Target &target);

// One line that is overwritten by the next, on a terminal only; an empty text removes it.
void show_progress(const Options &options, const std::string &text);

// Columns of the terminal at the descriptor; 80 where there is none.
size_t terminal_columns(int fd);

// Whether the user wants colours on terminals: NO_COLOR is not set, or empty.
bool wants_colour();

// Whether standard output is a terminal that may be coloured, and text in a
// colour or "1", bold, there.
bool paints();
std::string painted(const char *code, const std::string &text);

// Whether the terminal and its users read UTF-8.
bool writes_utf8();

} // namespace tool

#endif
