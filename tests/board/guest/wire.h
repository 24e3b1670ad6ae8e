// The devices as a program without the library sees them: its own requests to i2c-dev, its own
// switch writes. What the library wrote is read here, and the other way round.
#ifndef QELI2C_BOARD_WIRE_H
#define QELI2C_BOARD_WIRE_H

#include "check.h"
#include "qeli2c.h"

namespace board
{

// The same chips stand on one bus three times: in front of all switches, behind one, behind two.
enum class Level { root, near, far };
constexpr Level all_levels[] = {Level::root, Level::near, Level::far};

constexpr uint32_t bench_bus = 3;
constexpr uint16_t switch_a = 0x70; // on the bus
constexpr uint16_t switch_b = 0x71; // on channel 5 of it

std::string name_of(Level level);

enum class Chip { eeprom, monitor, pins, supply };
ei2c_client device(Chip chip, Level level);

namespace wire
{

// One transfer of one or two messages; throws std::runtime_error with errno in words when refused.
void write(uint32_t bus, uint16_t address, const Bytes &bytes);
Bytes read(uint32_t bus, uint16_t address, const Bytes &sent, size_t count);

// Opens and closes all switches in front of a device, one write each.
void open_path(const ei2c_client &client);
void close_path(const ei2c_client &client);

// Memory of a 64 KiB EEPROM and registers of any chip, path opened and closed around it.
Bytes memory(const ei2c_client &eeprom, uint16_t offset, size_t count);
void set_memory(const ei2c_client &eeprom, uint16_t offset, const Bytes &bytes);
Bytes registers(const ei2c_client &client, uint8_t number, size_t count);
void set_registers(const ei2c_client &client, uint8_t number, const Bytes &bytes);

// Control registers of the two switches of the bench, a then b; b is reached through a, which is
// put back.
Bytes switches();

} // namespace wire
} // namespace board

#endif
