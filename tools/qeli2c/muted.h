// Library calls whose failing tries are no failure: the lines they write are kept from the user.
#ifndef QELI2C_MUTED_H
#define QELI2C_MUTED_H

#include "tool.h"

namespace tool
{

// Until the end of the scope nothing reaches standard output or standard error; with --verbose both
// go to standard error.
class Muted
{
public:
    explicit Muted(const Options &options);
    ~Muted();
    Muted(const Muted &) = delete;
    Muted &operator=(const Muted &) = delete;

private:
    int out_, error_;
};

} // namespace tool

#endif
