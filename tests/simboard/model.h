// Runs a chip model through steps on a bus that has nothing else on it.
#ifndef TESTS_SIMBOARD_MODEL_H
#define TESTS_SIMBOARD_MODEL_H

#include <gtest/gtest.h>

#include "device.h"
#include "simboard/testing.h"

// One transfer: the bytes written, then, after a repeated START, those that must come back. Without
// the one or the other it is a read or a write alone.
struct Step {
    const char *what;
    Bytes write;
    Bytes read;
    int error = 0; // the errno it must fail with
};

inline std::string board_with(const std::string &device)
{
    return R"({"name": "model", "buses": [{"bus": 0, "devices": [)" + device + "]}]}";
}

inline void follow(const Device &bus, uint16_t address, const std::vector<Step> &steps)
{
    for (const Step &step : steps) {
        SCOPED_TRACE(step.what);
        Bytes bytes(step.read.size());
        int result;
        if (step.read.empty()) {
            result = bus.write(address, step.write);
        } else if (step.write.empty()) {
            result = bus.read(address, bytes);
        } else {
            result = bus.write_read(address, step.write, bytes);
        }
        const int messages = step.read.empty() || step.write.empty() ? 1 : 2;
        EXPECT_EQ(result, step.error != 0 ? -step.error : messages);
        if (step.error == 0) {
            EXPECT_EQ(bytes, step.read);
        }
    }
}

#endif
