// What the two GPIO expanders have in common: registers with a bit for each pin, changed by reading
// and writing back.
#ifndef QELI2C_DRIVERS_EXPANDER_H
#define QELI2C_DRIVERS_EXPANDER_H

#include <climits>
#include <cstdint>

#include "qeli2c.h"

// An expander by the width of its registers, the calls that access them and their command codes.
template <typename Word, auto Read, auto Write, uint8_t Output, uint8_t Configuration>
struct Expander {
    // The bit of a pin; none for a pin the device does not have.
    static Word bit(uint32_t pin)
    {
        return pin < sizeof(Word) * CHAR_BIT ? static_cast<Word>(1U << pin) : Word{0};
    }

    // Sets the masked bits of a register to those of `value`. Ends at the first result that is not
    // 0.
    static int32_t update(const ei2c_client *eclient, uint8_t command, Word mask, Word value)
    {
        Word word = 0;
        const int32_t ret = Read(eclient, command, &word);
        if (ret != 0)
            return ret;
        return Write(eclient, command,
                     static_cast<Word>((word & static_cast<Word>(~mask)) | (value & mask)));
    }

    static int32_t set_input(const ei2c_client *eclient, Word mask)
    {
        return update(eclient, Configuration, mask, mask);
    }

    static int32_t set_level(const ei2c_client *eclient, Word mask, Word value)
    {
        return update(eclient, Output, mask, value);
    }

    // The level goes first, so that a pin never drives what it was not told.
    static int32_t set_output(const ei2c_client *eclient, Word mask, Word value)
    {
        const int32_t ret = set_level(eclient, mask, value);
        return ret != 0 ? ret : update(eclient, Configuration, mask, 0);
    }

    static Word all(int value) { return value != 0 ? static_cast<Word>(~Word{0}) : Word{0}; }
};

#endif
