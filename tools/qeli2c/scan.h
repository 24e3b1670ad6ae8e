// The result of a scan together with what the board file says, and its three forms.
#ifndef QELI2C_SCAN_H
#define QELI2C_SCAN_H

#include "board_file.h"
#include "probe.h"

#include <string>
#include <vector>

namespace tool
{

// A line of the result: an address that answers, or that the board file describes.
struct Entry {
    uint16_t address = 0;
    Found found = Found::not_probed;
    const simboard::DeviceDescription *known = nullptr; // null: not in the board file
    std::vector<const Segment *> channels;              // scanned behind it, when it is a switch
};

std::vector<Entry> entries_of(const Board &board, const Segment &segment);

// "present", "driver", "missing", "hidden" or "unknown" (not probed).
std::string state_of(const Entry &entry);

void print_tree(const Board &board, const std::vector<Segment> &buses);
void print_grids(const std::vector<Segment> &buses);
void print_scan_json(const Board &board, const std::vector<Segment> &buses);

} // namespace tool

#endif
