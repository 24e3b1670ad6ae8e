// Laying a described board out in memory.
#include "simboard/build_state.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "simboard/bus_lock.h"
#include "simboard/chip.h"

namespace simboard
{

namespace
{

constexpr ChipType kTypes[] = {ChipType::pca9548, ChipType::registers, ChipType::at24c512};
constexpr uint32_t kDefaultTimeoutMs = 1000; // an adapter's default (drivers/i2c/i2c-core-base.c)

uint64_t whole_lines(uint64_t size)
{
    return (size + kLineSize - 1) / kLineSize * kLineSize;
}

uint64_t area_of(ChipType type)
{
    return whole_lines(chip_memory_size(type)) + whole_lines(chip_scratch_size(type));
}

void add_chip(State &state, const DeviceDescription &device, uint64_t &offset)
{
    const uint32_t index = state.header.chip_count++;
    Chip &chip = state.chips[index];
    Bus &bus = state.buses[device.bus];
    std::snprintf(chip.name, sizeof(chip.name), "%s", device.name.c_str());
    chip.type = chip_type(device.type);
    chip.bus = static_cast<uint8_t>(device.bus);
    chip.address = static_cast<uint8_t>(device.address);
    chip.channel = static_cast<uint8_t>(device.channel);
    chip.parent =
        static_cast<uint16_t>(device.parent < 0 ? kNoParent : static_cast<uint32_t>(device.parent));
    chip.busy_after_write = device.busy_after_write ? 1 : 0;
    chip.memory_size = chip_memory_size(chip.type);
    chip.memory_offset = offset;
    chip.scratch_offset = offset + whole_lines(chip.memory_size);
    offset += area_of(chip.type);
    clear_chip(state, chip);

    if (bus.chip_count == 0) {
        bus.first_chip = index;
    }
    bus.addresses[bus.chip_count++] = chip.address;
    if (chip.type == ChipType::pca9548) {
        bus.switches[bus.switch_count++] = static_cast<uint16_t>(index);
    }
}

} // namespace

ChipType chip_type(const std::string &name)
{
    for (const ChipType type : kTypes) {
        if (name == chip_type_name(type)) {
            return type;
        }
    }
    return ChipType::none;
}

const char *chip_type_name(ChipType type)
{
    switch (type) {
    case ChipType::pca9548:
        return "pca9548";
    case ChipType::registers:
        return "registers";
    case ChipType::at24c512:
        return "at24c512";
    case ChipType::none:
        break;
    }
    return "none";
}

void clear_chip(State &state, Chip &chip)
{
    chip.state = {};
    if (chip.memory_size > 0) {
        std::memset(memory_of(state, chip), chip_memory_fill(chip.type), chip.memory_size);
    }
}

uint64_t state_size(const BoardDescription &description)
{
    uint64_t size = whole_lines(sizeof(State));
    for (const DeviceDescription &device : description.devices) {
        size += area_of(chip_type(device.type));
    }
    return size;
}

int build_state(State &state, const BoardDescription &description, const uint32_t *bit_ns)
{
    Header &header = state.header;
    header.version = kStateVersion;
    header.mutex_size = sizeof(pthread_mutex_t);
    header.size = state_size(description);
    header.created_at = static_cast<uint64_t>(std::time(nullptr));
    std::snprintf(header.name, sizeof(header.name), "%s", description.name.c_str());
    int error = init_shared(state.process_mutex);
    for (uint32_t number = 0; number < kBuses && error == 0; number++) {
        Bus &bus = state.buses[number];
        bus.number = static_cast<uint8_t>(number);
        bus.timeout_ms = kDefaultTimeoutMs;
        error = init_shared(bus.mutex);
    }
    for (size_t i = 0; i < description.buses.size(); i++) {
        Bus &bus = state.buses[description.buses[i]];
        bus.described = 1;
        bus.bit_ns = bit_ns != nullptr ? *bit_ns : description.bit_ns[i];
    }
    // A bus's chips lie side by side, since the description goes bus by bus.
    uint64_t offset = whole_lines(sizeof(State));
    for (const DeviceDescription &device : description.devices) {
        add_chip(state, device, offset);
    }
    header.magic = kStateMagic;
    return error;
}

} // namespace simboard
