// The kinds of chips, as one table.
#include "simboard/chip_kind.h"

#include <iterator>

#include "simboard/chip_layout.h"

namespace simboard
{

namespace
{

constexpr Stimulus kPca9535[] = {
    {"inputs", "levels at the pins, bit p for pin p", kExpanderInputs, 2, 0, 0xffff, 0xffff, true},
};
constexpr Stimulus kPca9554[] = {
    {"inputs", "levels at the pins, bit p for pin p", kExpanderInputs, 1, 0, 0xff, 0xff, true},
};
constexpr Stimulus kTpa626[] = {
    {"voltage_mv", "bus voltage in millivolts", kMonitorVoltage, 4, 0, 36000, 12000, true},
    {"current_ma", "current through the shunt in milliamperes", kMonitorCurrent, 4, -1000000,
     1000000, 1000, true},
    {"shunt_uohm", "shunt resistance in microohms", kMonitorShunt, 4, 1, 10000000, 1000, true},
};
constexpr Stimulus kLattice[] = {
    {"id", "device identification, as sent", kEpldId, 4, 0, UINT32_MAX, 0x012ba043, true},
};
constexpr Stimulus kPango[] = {
    {"id", "device identification, as sent", kEpldId, 4, 0, UINT32_MAX, 0x80524c99, true},
};
constexpr Stimulus kAnlogicEf2[] = {
    {"id", "JEDEC identification of the SPI flash", kEpldId, 4, 0, 0xffffff, 0xc84213, true},
};
constexpr Stimulus kAnlogicEf3[] = {
    {"id", "device identification, as sent", kEpldId, 4, 0, UINT32_MAX, 0xfc330000, true},
};
constexpr Stimulus kMctp[] = {
    {"eid", "endpoint identifier, 0 for none assigned", kMctpEid, 1, 0, 254, 0, true},
    {"response_length", "bytes of the response that waits to be read", kMctpResponseLength, 2, 0,
     256, 0, false},
};

constexpr ChipKind kKinds[] = {
    {ChipType::pca9548, "pca9548", 0, 0, 0, nullptr, 0, 0, false},
    {ChipType::registers, "registers", 256, 0, 0, nullptr, 0, 0, true},
    {ChipType::at24c512, "at24c512", 65536, 128, 0xff, nullptr, 0, 0, false}, // delivered erased
    {ChipType::pca9535, "pca9535", kExpanderMemory, 0, 0, kPca9535, 1, 16, false},
    {ChipType::pca9554, "pca9554", kExpanderMemory, 0, 0, kPca9554, 1, 8, false},
    {ChipType::tpa626, "tpa626", kMonitorMemory, 0, 0, kTpa626, 3, 0, false},
    {ChipType::retimer, "retimer", 256, 0, 0, nullptr, 0, 0, true},
    {ChipType::epld_lattice, "epld-lattice", kEpldMemory, 0, 0, kLattice, 1, 0, false},
    {ChipType::epld_pango, "epld-pango", kEpldMemory, 0, 0, kPango, 1, 0, false},
    {ChipType::epld_anlogic_ef2, "epld-anlogic-ef2", kEpldMemory, 0, 0, kAnlogicEf2, 1, 0, false},
    {ChipType::epld_anlogic_ef3, "epld-anlogic-ef3", kEpldMemory, 0, 0, kAnlogicEf3, 1, 0, false},
    {ChipType::epld_subcard, "epld-subcard", 256, 0, 0, nullptr, 0, 0, true},
    {ChipType::mctp, "mctp", kMctpMemory, 0, 0, kMctp, 2, 0, false},
};
constexpr ChipKind kNoKind = {ChipType::none, "none", 0, 0, 0, nullptr, 0, 0, false};

} // namespace

const ChipKind &chip_kind(ChipType type)
{
    for (const ChipKind &kind : kKinds) {
        if (kind.type == type) {
            return kind;
        }
    }
    return kNoKind;
}

ChipType chip_type(const std::string &name)
{
    for (const ChipKind &kind : kKinds) {
        if (name == kind.name) {
            return kind.type;
        }
    }
    return ChipType::none;
}

std::string list_chip_types()
{
    std::string list;
    for (const ChipKind &kind : kKinds) {
        const bool last = &kind == std::end(kKinds) - 1;
        list += (list.empty() ? "\"" : last ? " or \"" : ", \"") + std::string(kind.name) + "\"";
    }
    return list;
}

std::set<std::string> stimulus_keys()
{
    std::set<std::string> keys;
    for (const ChipKind &kind : kKinds) {
        for (uint32_t i = 0; i < kind.stimulus_count; i++) {
            if (kind.stimuli[i].described) {
                keys.insert(kind.stimuli[i].name);
            }
        }
    }
    return keys;
}

const Stimulus *find_stimulus(const ChipKind &kind, const std::string &name)
{
    for (uint32_t i = 0; i < kind.stimulus_count; i++) {
        if (name == kind.stimuli[i].name) {
            return &kind.stimuli[i];
        }
    }
    return nullptr;
}

} // namespace simboard
