// i2c-dev requests that arrive through CUSE. The arguments lie in the caller's memory, so the first
// answers to a request only name the areas the kernel shall fetch; it then asks again.
#ifndef QELI2C_SIM_CUSE_REQUESTS_H
#define QELI2C_SIM_CUSE_REQUESTS_H

#define FUSE_USE_VERSION 35

#include "simboard/state.h"

#include <cstddef>
#include <cstdint>
#include <cuse_lowlevel.h>

namespace runner
{

struct CuseCall {
    fuse_req_t request;
    simboard::State &state;
    int device;        // the open stand-in file, which keeps what i2c-dev would
    unsigned number;   // of the ioctl
    uint64_t argument; // as the caller gave it
    bool narrow;       // by a 32-bit caller of a 64-bit kernel
    const uint8_t *fetched;
    size_t fetched_size;
    size_t room; // bytes that the answer may put into the caller's memory
};

// Answers it, or asks for more of the caller's memory.
void answer_ioctl(const CuseCall &call);

} // namespace runner

#endif
