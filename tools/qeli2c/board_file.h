// The board file: what the board description knows about names, types and paths of devices.
#ifndef QELI2C_BOARD_FILE_H
#define QELI2C_BOARD_FILE_H

#include "device_path.h"
#include "simboard/description.h"

#include <string>

namespace tool
{

struct Board {
    std::string file; // empty: no board file, nothing is known by name
    simboard::BoardDescription description;
};

// A device somebody asked for.
struct Target {
    DevicePath path;
    std::string name; // empty when the board file does not know it
    std::string type; // likewise
};

// Reads `file`, else $QELI2C_BOARD, else /etc/qeli2c/board.json where it exists. Every mistake goes
// to standard error as "FILE:LINE: KEY: MESSAGE", then it fails. A file is read once.
const Board &load_board(const std::string &file);

DevicePath path_of(const simboard::BoardDescription &board,
                   const simboard::DeviceDescription &device);

// The device the board file describes at `path`; null when it describes none.
const simboard::DeviceDescription *device_at(const Board &board, const DevicePath &path);

// A device by its path or by its name in the board file.
Target resolve(const Board &board, const std::string &text);

// "eeprom0 (4/0x70.5/0x50)", or the path alone.
std::string to_string(const Target &target);

} // namespace tool

#endif
