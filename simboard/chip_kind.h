// The kinds of chips there are: their names in a board's description, the memory they need, and
// what of their surroundings can be described and changed.
#ifndef SIMBOARD_CHIP_KIND_H
#define SIMBOARD_CHIP_KIND_H

#include <cstdint>
#include <set>
#include <string>

#include "simboard/state.h"

namespace simboard
{

// Something about a chip's surroundings: a key of its description, and a number that can be read
// and changed while programs run.
struct Stimulus {
    const char *name;
    const char *meaning; // with its unit
    uint32_t offset;     // in the chip's memory
    uint32_t size;       // bytes, 1 to 4, least significant first
    int64_t low, high;   // negative ones are kept in two's complement
    int64_t standard;    // when the description does not say
    bool described;      // whether it is a key of the description at all
};

struct ChipKind {
    ChipType type;
    const char *name;
    uint32_t memory_size;
    uint32_t scratch_size;
    uint8_t fill;            // what a byte of memory holds when new
    const Stimulus *stimuli; // lie side by side in the chip's memory, within kDescribedSize bytes
    uint32_t stimulus_count;
    uint32_t pins;    // that a description can name
    bool has_pattern; // memory that a description can fill with repeated bytes
};

const ChipKind &chip_kind(ChipType type);

// ChipType::none for a name that is none.
ChipType chip_type(const std::string &name);

// All names, each in quotes, as a sentence lists them.
std::string list_chip_types();

// Names of all kinds' stimuli that are keys of a description.
std::set<std::string> stimulus_keys();

// Null when chips of the kind have none of that name.
const Stimulus *find_stimulus(const ChipKind &kind, const std::string &name);

// Longest pattern of a description.
constexpr uint32_t kPatternSize = kDescribedSize - 1;

} // namespace simboard

#endif
