// An EEPROM page by page, while other processes' EEPROM accesses are kept out.
#ifndef QELI2C_EEPROM_PAGES_H
#define QELI2C_EEPROM_PAGES_H

#include "board_file.h"
#include "register_access.h"

#include <cstdint>
#include <vector>

namespace tool
{

// The semaphore that keeps whole EEPROM operations of all processes apart, until the end of the
// scope.
class EepromLock
{
public:
    EepromLock();
    ~EepromLock();
    EepromLock(const EepromLock &) = delete;
    EepromLock &operator=(const EepromLock &) = delete;
};

enum class Pace {
    safe, // the library's pages of 32 bytes and its pauses, which suit every part of the class
    fast  // the part's own pages, and polling for the end of each write cycle
};

struct Eeprom {
    Target target;
    Memory memory;
    Pace pace = Pace::safe;
};

// How many of `count` bytes at `offset` one transfer takes: to the end of the page at most.
uint32_t page_part(const Eeprom &eeprom, uint32_t offset, size_t count);

// Reads or writes bytes of one page. Fails in words.
void read_page(const Eeprom &eeprom, uint32_t offset, uint8_t *bytes, uint32_t count);
void write_page(const Eeprom &eeprom, uint32_t offset, const uint8_t *bytes, uint32_t count);

} // namespace tool

#endif
