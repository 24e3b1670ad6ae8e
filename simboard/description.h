// The description of a board: its buses, switches and devices, read from a JSON file.
#ifndef SIMBOARD_DESCRIPTION_H
#define SIMBOARD_DESCRIPTION_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace simboard
{

struct DeviceDescription {
    std::string name;     // unique on the board
    std::string type;     // the name of a ChipKind
    uint32_t bus = 0;     // 0 to 15
    uint16_t address = 0; // 7-bit address, 0x08 to 0x77
    int parent = -1;      // index of the switch it sits behind, -1 when it sits on the bus itself
    uint32_t channel = 0; // channel of that switch, 0 to 7
    bool busy_after_write = true; // at24c512: not acknowledging during the write cycle
    std::map<std::string, int64_t> surroundings; // by name, as far as described (Stimulus)
    std::vector<uint8_t> pattern;                // what the memory is filled with, repeated
    std::vector<std::string> pins; // of an expander, from pin 0 on; "" for one without a name
    unsigned line = 0;             // where the file describes it
};

struct BoardDescription {
    std::string name;
    std::vector<uint32_t> buses;
    std::vector<uint32_t>
        bit_ns; // of each of the buses: time of one bit on the wire, 0 for instant
    std::vector<std::optional<uint32_t>> status; // of each of the buses: its controller's register
    std::vector<DeviceDescription> devices;      // a switch stands before everything behind it
};

struct DescriptionError {
    unsigned line = 0;   // 1 is the first line; 0 when the file as a whole is meant
    std::string key;     // path of the key, for example "buses[0].devices[2].address"
    std::string message; // in words
};

// Reads a board description. Every mistake is added to `errors`; the result is meaningful only when
// none was.
BoardDescription load_board_description(const std::string &path,
                                        std::vector<DescriptionError> &errors);

// The same from the text itself.
BoardDescription parse_board_description(const std::string &text,
                                         std::vector<DescriptionError> &errors);

// "instant", "100k" or "400k" as nanoseconds per bit; false for anything else.
bool parse_speed(const std::string &text, uint32_t &bit_ns);

// A whole file; false with errno set.
bool read_text_file(const std::string &path, std::string &text);

// "FILE:LINE: KEY: MESSAGE", as people and editors expect it.
std::string to_string(const std::string &path, const DescriptionError &error);

} // namespace simboard

#endif
