// What a chip of the board says about itself.
#ifndef QELI2C_SIM_SHOW_FACTS_H
#define QELI2C_SIM_SHOW_FACTS_H

#include "simboard/view.h"

#include <cstdint>
#include <json/value.h>
#include <string>
#include <vector>

namespace runner
{

struct Fact {
    std::string name;
    Json::Value value;
    std::string text;  // the value for people
    bool brief = true; // told where all devices are
};

// Of the chip's own kind: levels and directions of an expander, what a monitor measures, how much
// of an EEPROM is written. Empty for a switch.
std::vector<Fact> facts_of(const simboard::BoardView &view, const simboard::Chip &chip);

// A pin of an expander as it is on the board, whatever polarity it is read with.
struct Pin {
    std::string name; // of the board file; may be empty
    bool is_input = true;
    bool level = true;
};

// All pins of an expander, from 0 on; empty for other chips.
std::vector<Pin> pins_of(const simboard::BoardView &view, const simboard::Chip &chip,
                         const std::vector<std::string> &names);

// Who opened a switch's channels, or holds one of a bus's locks.
struct Holder {
    simboard::Task task; // pid 0 for nobody
    std::string name;    // of the process, where it is known
    bool alive = false;
};

// "qeli2c 1203/1207, ended": its name, its process, its thread unless that is the first.
std::string holder_text(const Holder &holder);

struct SwitchState {
    uint8_t channels = 0;
    Holder opener;
};

struct BusHolders {
    Holder semaphore;
    Holder file;
};

SwitchState read_switch(const simboard::BoardView &view, const simboard::Chip &chip);
BusHolders read_holders(const simboard::BoardView &view, uint32_t bus);

// "4/0x70.5/0x71.3/0x50"
std::string path_of(const simboard::State &state, const simboard::Chip &chip);

} // namespace runner

#endif
