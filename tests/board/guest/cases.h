// The groups of cases, in the order they run.
#ifndef QELI2C_BOARD_CASES_H
#define QELI2C_BOARD_CASES_H

#include <vector>

#include "check.h"

namespace board
{

using Cases = std::vector<Case>;

void add_layout_cases(Cases &cases);
void add_transfer_cases(Cases &cases);
void add_hold_cases(Cases &cases);
void add_driver_cases(Cases &cases);
void add_eeprom_cases(Cases &cases);
void add_order_cases(Cases &cases);
void add_packet_check_cases(Cases &cases);
void add_witness_cases(Cases &cases);
void add_refusal_cases(Cases &cases);
void add_controller_cases(Cases &cases);
void add_owner_cases(Cases &cases);
void add_cost_cases(Cases &cases);
void add_crowd_cases(Cases &cases);
void add_tool_cases(Cases &cases);
void add_unit_test_cases(Cases &cases);
void add_served_cases(Cases &cases); // the last: the machine's own devices are gone then

} // namespace board

#endif
