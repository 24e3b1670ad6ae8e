// Laying a described board out in memory.
#include "simboard/build_state.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "simboard/bus_lock.h"
#include "simboard/chip.h"
#include "simboard/chip_kind.h"
#include "simboard/chip_memory.h"
#include "simboard/clock.h"

namespace simboard
{

namespace
{

constexpr uint32_t kDefaultTimeoutMs = 1000; // an adapter's default (drivers/i2c/i2c-core-base.c)

uint64_t whole_lines(uint64_t size)
{
    return (size + kLineSize - 1) / kLineSize * kLineSize;
}

uint64_t area_of(ChipType type)
{
    const ChipKind &kind = chip_kind(type);
    return whole_lines(kind.memory_size) + whole_lines(kind.scratch_size);
}

// What the description says of the chip's surroundings, as `clear_chip` puts it in its memory.
void describe_surroundings(Chip &chip, const DeviceDescription &device)
{
    const ChipKind &kind = chip_kind(chip.type);
    for (uint32_t i = 0; i < kind.stimulus_count; i++) {
        const Stimulus &stimulus = kind.stimuli[i];
        const auto given = device.surroundings.find(stimulus.name);
        const int64_t value =
            given != device.surroundings.end() ? given->second : stimulus.standard;
        store_number(chip.described + (stimulus.offset - kind.stimuli[0].offset), stimulus.size,
                     static_cast<uint32_t>(value));
    }
    if (kind.has_pattern) {
        chip.described[0] = static_cast<uint8_t>(device.pattern.size());
        std::copy(device.pattern.begin(), device.pattern.end(), chip.described + 1);
    }
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
    chip.memory_size = chip_kind(chip.type).memory_size;
    chip.memory_offset = offset;
    chip.scratch_offset = offset + whole_lines(chip.memory_size);
    offset += area_of(chip.type);
    describe_surroundings(chip, device);
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

void clear_chip(State &state, Chip &chip)
{
    chip.state = {};
    const ChipKind &kind = chip_kind(chip.type);
    uint8_t *const memory = memory_of(state, chip);
    if (chip.memory_size > 0) {
        std::memset(memory, kind.fill, chip.memory_size);
    }
    for (uint32_t i = 0; i < kind.stimulus_count; i++) {
        const Stimulus &stimulus = kind.stimuli[i];
        std::memcpy(memory + stimulus.offset,
                    chip.described + (stimulus.offset - kind.stimuli[0].offset), stimulus.size);
    }
    chip_power_on(memory, chip);
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
    header.created_ns = now_ns();
    std::snprintf(header.name, sizeof(header.name), "%s", description.name.c_str());
    int error = init_shared(state.process_mutex);
    for (uint32_t i = 0; i < kRecorders && error == 0; i++) {
        error = init_shared(state.recorders[i].alive);
    }
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
