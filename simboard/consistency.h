// Whether a board's state is what it can only be: for boards whose programs were killed, and for
// whoever changes the code that writes it.
#ifndef SIMBOARD_CONSISTENCY_H
#define SIMBOARD_CONSISTENCY_H

#include "simboard/description.h"
#include "simboard/view.h"

#include <cstdint>
#include <string>
#include <vector>

namespace simboard
{

// What is wrong with the board, a line each; none when it is sound. Every bus is waited for at most
// `patience_ms`; programs may go on using the board meanwhile. What a dead task left undone is
// undone first, as the next transfer would.
std::vector<std::string> find_inconsistencies(const BoardView &view,
                                              const BoardDescription &description,
                                              uint32_t patience_ms);

} // namespace simboard

#endif
