// The library's functions by their names.
#ifndef QELI2C_BOARD_FUNCTIONS_H
#define QELI2C_BOARD_FUNCTIONS_H

#include "qeli2c.h"
#include "tool/requests.h"

#include <map>
#include <string>
#include <vector>

namespace board
{

constexpr uint8_t kFiller = 0xEE; // in whatever a function may write

// What one call takes and gives.
struct Request {
    ei2c_client device = {};
    std::vector<uint32_t> n;        // its numbers
    std::vector<i2c_msg> list;      // its messages
    const uint8_t *bytes = nullptr; // of the first of them
    uint32_t size = 0;
    Bytes out = Bytes(9000, kFiller);
    uint8_t count = kFiller;
    uint16_t word = 0xEEEE;
    uint32_t level = 0xEEEEEEEE;
    float value = -1;
    int32_t fd = -7; // of the bus that is held
    int32_t semaphore = -7;
};

const std::map<std::string, int32_t (*)(Request &)> &functions();

} // namespace board

#endif
