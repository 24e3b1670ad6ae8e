// What the files of the EPLD access share.
#ifndef QELI2C_EPLD_EPLD_H
#define QELI2C_EPLD_EPLD_H

#include <cstdlib>

#include "bus/report.h"
#include "bus/wire.h"
#include "qeli2c.h"

constexpr char log_tag[] = "epld";

// Ends a call whose transfer gave `ret`: frees its buffer, which must not change the errno of the
// transfer.
inline void free_keeping_errno(uint8_t *buffer)
{
    const int error = errno;
    free(buffer);
    errno = error;
}

#endif
