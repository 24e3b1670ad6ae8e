// Laying a described board out in a new, zeroed state file.
#ifndef SIMBOARD_BUILD_STATE_H
#define SIMBOARD_BUILD_STATE_H

#include <cstdint>

#include "simboard/description.h"
#include "simboard/state.h"

namespace simboard
{

// Bytes that the board's state takes, chips' memory included.
uint64_t state_size(const BoardDescription &description);

// Fills in `state`, whose header.semaphore_base and id are the caller's. `bit_ns`, when not null,
// is every bus's wire time. 0, or the errno of a mutex that could not be made.
int build_state(State &state, const BoardDescription &description, const uint32_t *bit_ns);

// A chip after power-on, in the surroundings that were described.
void clear_chip(State &state, Chip &chip);

} // namespace simboard

#endif
