// Which model answers for which type of chip.
#include "simboard/chip.h"

namespace simboard
{

int chip_event(const ChipAccess &access, BusEvent event, uint8_t byte)
{
    switch (access.chip.type) {
    case ChipType::pca9548:
        return pca9548(access, event, byte);
    case ChipType::registers:
        return registers(access, event, byte);
    case ChipType::at24c512:
        return at24c512(access, event, byte);
    case ChipType::none:
        break;
    }
    return kNack;
}

uint32_t chip_memory_size(ChipType type)
{
    switch (type) {
    case ChipType::registers:
        return 256;
    case ChipType::at24c512:
        return 65536;
    case ChipType::pca9548:
    case ChipType::none:
        break;
    }
    return 0;
}

uint32_t chip_scratch_size(ChipType type)
{
    return type == ChipType::at24c512 ? 128 : 0; // one page
}

uint8_t chip_memory_fill(ChipType type)
{
    return type == ChipType::at24c512 ? 0xff : 0; // an EEPROM is delivered erased
}

} // namespace simboard
