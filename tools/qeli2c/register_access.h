// How the registers of a device are reached: offset width, value width, byte order, plain messages
// or SMBus.
#ifndef QELI2C_REGISTER_ACCESS_H
#define QELI2C_REGISTER_ACCESS_H

#include "board_file.h"

#include <cstdint>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace tool
{

struct AccessOptions { // as typed
    std::string offset_width;
    std::string order = "little";
    std::string mask;
    bool word = false;
    bool dword = false;
    bool smbus = false;
    bool pec = false;
};

struct Access {
    uint32_t offset_width = 1;  // bytes sent ahead as the register number, most significant first
    uint32_t value_width = 1;   // bytes a value: 1, 2 or 4
    bool big_endian = false;    // order of the bytes of a value
    uint32_t mask = UINT32_MAX; // the bits of a value that are asked for
    bool smbus = false;
    bool pec = false;
};

struct Memory { // sizes of a known EEPROM, in bytes; 0 for any other device
    uint32_t size = 0;
    uint32_t page = 0;
};

void add_access_options(CLI::App &command, AccessOptions &options);
void add_mask_option(CLI::App &command, AccessOptions &options, const char *description);

// The options completed by what the target's type says; a usage error when they contradict each
// other.
Access make_access(const AccessOptions &options, const Target &target);

Memory memory_of(const Target &target);

// The failure of a transfer of registers that would need more bytes than the memory has.
void check_in_memory(const Memory &memory, uint32_t offset, size_t bytes);

// A register number that fits the offset's width.
uint32_t parse_register(const std::string &text, const Access &access);
int offset_digits(const Access &access);
std::vector<uint8_t> offset_bytes(uint32_t offset, const Access &access);

uint32_t largest_value(const Access &access);
std::vector<uint32_t> values_of(const std::vector<uint8_t> &bytes, const Access &access);
std::vector<uint8_t> bytes_of(const std::vector<uint32_t> &values, const Access &access);

} // namespace tool

#endif
