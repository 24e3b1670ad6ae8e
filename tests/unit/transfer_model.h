// What the library does on a bus, restated as a list of events: raw requests, switch writes, the
// retry loop around them and the taking of the bus. Tests compare the library's calls with it under
// every pattern of failures.
#ifndef TESTS_UNIT_TRANSFER_MODEL_H
#define TESTS_UNIT_TRANSFER_MODEL_H

#include "include/qeli2c.h"
#include "tests/unit/scripted_kernel.h"

namespace model
{

using scripted::Bytes;

/** Where a raw request fails, with the result and errno it then gives. Waits fail with -1. */
struct Fault {
    enum At { nowhere, request, slave, wait, timeout, pec };
    At at = nowhere;
    int result = 0;
    int error = 0;
};

/** A supply of faults, all different in result and errno, going through the kinds in turn. */
struct Faults {
    int serial = 0;
    Fault next(bool fails, bool smbus = false);
};

/** The story so far: one bus, the events in order, and errno as it stands. */
struct Story {
    uint32_t bus;
    scripted::Script script = {};
    int error = 0;
};

// Each adds its events and gives its result.
int rdwr(Story &story, uint16_t addr, const i2c_msg *msgs, uint32_t count, const Fault &fault = {},
         const Bytes &reply = {});
int write_byte(Story &story, uint16_t addr, uint8_t value, const Fault &fault = {});
int smbus(Story &story, const ei2c_client &device, unsigned read_write, unsigned command,
          unsigned size, const Bytes &area, const Fault &fault = {}, const Bytes &reply = {});
void line_if_failed(Story &story, const ei2c_client &device, const char *what, int result,
                    bool with_text = true);

/** The semaphore, then the file lock; and back, with the result of the semaphore's release. */
void take(Story &story);
void release(Story &story, int result = 0);

/** One try of a locked transfer: which of its steps fail. transfer is 0 or the number of the part
 * that fails. */
struct Try {
    bool upstream_select = false;
    bool near_select = false;
    int transfer = 0;
    bool near_deselect = false;
    bool upstream_deselect = false;
};

/** Upstream first, up to the first failure; and near first, always both. The result of the last
 * switch written. */
int open_path(Story &story, const ei2c_client &device, const Try &attempt, Faults &faults,
              bool with_text = true);
int close_path(Story &story, const ei2c_client &device, const Try &attempt, Faults &faults);

/** The transfer step of a locked call: told which part fails and how, it gives its result. */
using Transfer = std::function<int(Story &, int failing_part, const Fault &)>;

struct Outcome {
    int result;
    int error; // errno of the last transfer; 0 when no try came to one
};

/** The whole loop with its summary line. name is that of the raw call in the failure line. */
Outcome switched_loop(Story &story, const ei2c_client &device, const std::vector<Try> &tries,
                      const char *name, const Transfer &transfer, Faults faults = {});

/** Every way one try can fail, or succeed, with that many switches and parts of the transfer. */
std::vector<Try> ways(int switches, int parts, bool succeeding);

/**
 * Every sequence of at most four tries of such ways: ended by a success, or four failures. With two
 * switches the third try fails as the first one did.
 */
std::vector<std::vector<Try>> sequences(int switches, int parts);
std::string described(const std::vector<Try> &tries);

/** A device at 0x50: alone, behind 0x71 channel 3, or behind that and 0x70 channel 5. */
ei2c_client device_behind(int switches, uint32_t bus);

} // namespace model

#endif
