// Which model answers for which type of chip.
#include "simboard/chip.h"

#include "simboard/chip_layout.h"

namespace simboard
{

int chip_event(const ChipAccess &access, BusEvent event, uint8_t byte)
{
    switch (access.chip.type) {
    case ChipType::pca9548:
        return pca9548(access, event, byte);
    case ChipType::registers:
    case ChipType::retimer:
    case ChipType::epld_subcard:
        return registers(access, event, byte);
    case ChipType::at24c512:
        return at24c512(access, event, byte);
    case ChipType::pca9535:
    case ChipType::pca9554:
        return pca953x(access, event, byte);
    case ChipType::tpa626:
        return tpa626(access, event, byte);
    case ChipType::epld_lattice:
    case ChipType::epld_pango:
    case ChipType::epld_anlogic_ef2:
    case ChipType::epld_anlogic_ef3:
        return epld(access, event, byte);
    case ChipType::mctp:
        return mctp(access, event, byte);
    case ChipType::none:
        break;
    }
    return kNack;
}

void chip_power_on(uint8_t *memory, const Chip &chip)
{
    const uint32_t length = chip.described[0]; // of the pattern
    switch (chip.type) {
    case ChipType::registers:
    case ChipType::retimer:
    case ChipType::epld_subcard:
        for (uint32_t i = 0; i < chip.memory_size; i++) {
            memory[i] = length > 0 ? chip.described[1 + i % length] : uint8_t{0};
        }
        break;
    case ChipType::pca9535:
    case ChipType::pca9554:
        pca953x_power_on(memory, chip.type);
        break;
    case ChipType::tpa626:
        tpa626_power_on(memory);
        break;
    default:
        break;
    }
}

void chip_settle(const ChipAccess &access)
{
    switch (access.chip.type) {
    case ChipType::pca9535:
    case ChipType::pca9554:
        pca953x_settle(access);
        break;
    case ChipType::tpa626:
        tpa626_settle(access);
        break;
    default:
        break;
    }
}

} // namespace simboard
