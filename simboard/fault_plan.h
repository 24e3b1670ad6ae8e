// Fault plans: lists of faults that shall strike a board, read from a JSON file or made of words.
#ifndef SIMBOARD_FAULT_PLAN_H
#define SIMBOARD_FAULT_PLAN_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "simboard/description.h"
#include "simboard/state.h"

namespace simboard
{

struct PlannedFault {
    uint32_t bus = 0;
    FaultStep step = {}; // its counts 0, its number not given yet
};

// Reads a fault plan for `board`. Every mistake is added to `errors`; the result is meaningful only
// when none was. A `seed` other than 0 takes the place of the plan's own.
std::vector<PlannedFault> parse_fault_plan(const std::string &text, const BoardDescription &board,
                                           uint64_t seed, std::vector<DescriptionError> &errors);

// One step from its keys and values, as the plan's JSON has them.
PlannedFault make_fault(const std::vector<std::pair<std::string, std::string>> &members,
                        const BoardDescription &board, uint64_t seed,
                        std::vector<DescriptionError> &errors);

} // namespace simboard

#endif
