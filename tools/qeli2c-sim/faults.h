// Fault plans as the commands of qeli2c-sim deal with them.
#ifndef QELI2C_SIM_FAULTS_H
#define QELI2C_SIM_FAULTS_H

#include "simboard/fault_view.h"

#include <cstdint>
#include <json/value.h>
#include <optional>
#include <string>
#include <vector>

namespace runner
{

constexpr size_t kWidth = 80; // of a screen

// 0 for none.
uint32_t parse_seed(const std::optional<uint64_t> &seed);

// Prints every mistake of a bad plan on standard error, and throws.
std::vector<simboard::PlannedFault>
read_fault_plan(const std::string &file, const simboard::BoardDescription &board, uint64_t seed);

// The board in `directory` gets the faults.
void add_faults_at(const std::string &directory, const std::vector<simboard::PlannedFault> &faults);

// A table of the steps with what they matched and how often they struck; nothing when there are
// none.
void print_faults(const std::vector<simboard::FaultRecord> &faults);
Json::Value faults_to_json(const std::vector<simboard::FaultRecord> &faults);

// `status`, or kFailed in the place of kDone when a step never struck, which is then told on
// standard error.
int judge_faults(const std::string &directory, int status);

} // namespace runner

#endif
