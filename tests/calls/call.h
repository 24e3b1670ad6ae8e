// Calls of the library by name, with their arguments as words.
//
//   a device       BUS/ADDR, BUS/SWITCH.CHANNEL/ADDR, BUS/UPSTREAM.CHANNEL/SWITCH.CHANNEL/ADDR;
//                  ":FLAGS" and "@NAME" may follow. A bus for itself is its number, a switch
//                  BUS/ADDR. All but buses is hex.
//   a monitor      DEVICE,CONFIGURATION,CALIBRATION and the four coefficients
//   a number       decimal or 0x; several as 1,2
//   bytes          as notation.h has them, also for a retimer's record
//   messages       likewise; "50w57.b0:1" has more bytes than its length; two arrays with a "|"
//   an output      ">" and for bytes how many: ">4"; "=" and what is there before: ">4=12ab".
//                  A number that is another one each time may have a name: ">fd"
//   "null"         a null pointer
#ifndef TESTS_CALLS_CALL_H
#define TESTS_CALLS_CALL_H

#include "tests/calls/exported_calls.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/** A call ready to be made: it gives its result as text. */
struct Call {
    struct Output {
        std::string name;
        uint8_t *bytes; // with as many as a margin has around them
        size_t size;
        std::vector<uint8_t> before; // margins included
        bool is_float, is_number;
    };
    std::function<std::string()> run;
    std::vector<Output> outputs;
    std::vector<std::shared_ptr<void>> memory;
};

ei2c_client client_of(const std::string &device);

/** What is to be done first with each device of a call; one with address 0 is a bus. */
using Prepare = std::function<void(const ei2c_client &)>;

/** Throws std::invalid_argument when it makes no sense. */
Call call_of(const std::string &line, const Prepare &prepare);

/** What the outputs are now: "untouched", or what was written, or its name; a word to each. */
std::string outputs_of(const Call &call);

#endif
