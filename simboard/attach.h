// Finding the board that this process shall see, and mapping it.
#ifndef SIMBOARD_ATTACH_H
#define SIMBOARD_ATTACH_H

#include <limits.h>

#include "simboard/state.h"

namespace simboard
{

struct Attachment {
    State *state;
    const Attachment *next;
    char directory[PATH_MAX];
};

// Maps the state of the board in `directory`, after checking that the directory is private to the
// caller. Null with a reason otherwise.
State *map_board(const char *directory, const char *&reason);
void unmap_board(State *state);

// Whether QELI2C_SIM names a board. Set-user-id programs never see one.
bool wants_board();

// The board QELI2C_SIM names, mapped on first use; null with errno ENODEV, and a line on standard
// error the first time, when it cannot be used.
const Attachment *attach_board();

// The board with this id that a descriptor was opened on; boards are told apart because a test
// program may have seen several. Null when there is none.
const Attachment *attached_board(uint16_t id);

} // namespace simboard

#endif
