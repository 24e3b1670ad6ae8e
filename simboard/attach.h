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
    mutable std::atomic<int32_t> semaphores[kBuses]; // ids of the buses' semaphores and 1; 0: none
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

// All boards that were mapped so far, linked by `next`.
const Attachment *attached_boards();

// The board and bus that this process got the semaphore of that id for; null when it is another.
const Attachment *find_semaphore_board(int32_t id, uint32_t &bus);

} // namespace simboard

#endif
