// Boards as things that are made, found, listed and deleted: private directories that hold the
// state file, the files that stand for devices, and a copy of the description.
#ifndef SIMBOARD_BOARD_H
#define SIMBOARD_BOARD_H

#include <cstdint>
#include <string>
#include <vector>

#include "simboard/description.h"

namespace simboard
{

struct BoardOptions {
    std::string
        name; // of a board that stays, letters, digits, '-' and '_'; empty for a throwaway board
    uint32_t bit_ns =
        0; // wire time of a bit on every bus, overriding the description's when `has_speed`
    bool has_speed = false;
    uint32_t seed = 0; // of fault plans, in the place of their own; 0 leaves them theirs
};

struct NewBoard {
    std::string directory;
    int owner_fd =
        -1; // throwaway boards: holds the board for this process; close it after delete_board
};

// The directory under which this user's boards live: $QELI2C_SIM_DIR, else
// $XDG_RUNTIME_DIR/qeli2c-sim, else /dev/shm/qeli2c-sim-UID, else /tmp/qeli2c-sim-UID. Created when
// absent; a std::runtime_error when it is not private to the user.
std::string boards_directory();

// Makes a board; `description_text` becomes its board.json. Throws std::runtime_error, leaving
// nothing behind.
NewBoard create_board(const BoardDescription &description, const std::string &description_text,
                      const BoardOptions &options);

// Puts the described status of the bus controllers into the board's physical memory.
void write_bus_status(const std::string &directory, const BoardDescription &description);

// Clears the board's physical memory, as it is when new.
void clear_memory(const std::string &directory, const BoardDescription &description);

// Removes a board with its semaphores. Programs that still use it keep what they have mapped.
void delete_board(const std::string &directory);

// Deletes throwaway boards whose maker is gone.
void sweep_boards();

struct ListedBoard {
    std::string name; // empty for a throwaway board
    std::string directory;
};
std::vector<ListedBoard> list_boards();

// Directory of a board that stays; whether or not there is one.
std::string named_board_directory(const std::string &name);

// Whether `name` may name a board that stays.
bool is_board_name(const std::string &name);

} // namespace simboard

#endif
