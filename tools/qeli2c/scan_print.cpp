// The result of a scan as a tree, as grids and as JSON.
#include "number.h"
#include "output.h"
#include "scan.h"

#include <iostream>

namespace tool
{

namespace
{

struct Branches { // what the lines of the tree begin with
    const char *fork, *last, *pass, *blank;
};

Branches branches_for_terminal()
{
    if (writes_utf8())
        return {"├── ", "└── ", "│   ", "    "};
    return {"|-- ", "`-- ", "|   ", "    "};
}

struct Node { // of the tree
    std::string text;
    std::vector<Node> children;
};

// "0-4, 6": the channels on which nothing is to be shown.
std::string ranges(const std::vector<uint32_t> &numbers)
{
    std::string text;
    for (size_t i = 0; i < numbers.size(); i++) {
        size_t end = i;
        while (end + 1 < numbers.size() && numbers[end + 1] == numbers[end] + 1)
            end++;
        text += (text.empty() ? "" : ", ") + std::to_string(numbers[i]);
        if (end > i)
            text += "-" + std::to_string(numbers[end]);
        i = end;
    }
    return text;
}

std::string label_of(const Entry &entry)
{
    const std::string state = state_of(entry);
    std::string text = hex(entry.address, 2) + "  ";
    if (entry.known)
        text += painted(entry.channels.empty() ? "32" : "36", entry.known->name) + " (" +
                entry.known->type + ")";
    else
        text += painted("33", entry.channels.empty() ? "unknown device" : "unknown switch");
    if (state == "driver")
        text += "  UU: a kernel driver owns it";
    else if (state == "missing")
        text += painted("31", "  NO ANSWER");
    else if (state == "hidden")
        text += painted("31", "  HIDDEN by the same address in front of the switch");
    else if (state == "unknown")
        text += "  not probed";
    return text;
}

std::vector<Node> nodes_of(const Board &board, const Segment &segment);

Node node_of(const Board &board, const Entry &entry)
{
    Node node{label_of(entry), {}};
    std::vector<uint32_t> empty;
    for (const Segment *channel : entry.channels) {
        const uint32_t number = channel->hops.back().channel;
        std::vector<Node> behind = nodes_of(board, *channel);
        if (behind.empty())
            empty.push_back(number);
        else
            node.children.push_back({"channel " + std::to_string(number), std::move(behind)});
    }
    if (!empty.empty())
        node.children.push_back(
            {(empty.size() == 1 ? "channel " : "channels ") + ranges(empty) + ": nothing", {}});
    return node;
}

std::vector<Node> nodes_of(const Board &board, const Segment &segment)
{
    std::vector<Node> nodes;
    for (const Entry &entry : entries_of(board, segment))
        nodes.push_back(node_of(board, entry));
    if (!segment.failure.empty())
        nodes.push_back({"not scanned to the end, see the message", {}});
    return nodes;
}

void print_nodes(const std::vector<Node> &nodes, const std::string &prefix,
                 const Branches &branches)
{
    for (size_t i = 0; i < nodes.size(); i++) {
        const bool last = i + 1 == nodes.size();
        std::cout << prefix << (last ? branches.last : branches.fork) << nodes[i].text << "\n";
        print_nodes(nodes[i].children, prefix + (last ? branches.blank : branches.pass), branches);
    }
}

const char *grid_field(Found found, uint16_t address, char (&buffer)[4])
{
    switch (found) {
    case Found::not_probed:
        return "  ";
    case Found::nothing:
        return "--";
    case Found::busy:
        return "UU";
    case Found::in_front:
        return "..";
    case Found::device:
        break;
    }
    std::snprintf(buffer, sizeof buffer, "%02x", address & 0x7fU);
    return buffer;
}

void print_grid(const Segment &segment)
{
    std::cout << "bus " << segment_text(segment.bus, segment.hops) << "\n";
    std::cout << "     0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f\n";
    for (uint16_t row = 0; row < 0x80; row = static_cast<uint16_t>(row + 0x10)) {
        std::string line = hex(row, 2).substr(2) + ":";
        for (uint16_t column = 0; column < 0x10; column++) {
            const auto address = static_cast<uint16_t>(row + column);
            char buffer[4];
            line += std::string(" ") + grid_field(segment.found[address], address, buffer);
        }
        line.erase(line.find_last_not_of(' ') + 1);
        std::cout << line << "\n";
    }
    for (const Segment &channel : segment.channels)
        print_grid(channel);
}

Json::Value json_of_segment(const Board &board, const Segment &segment)
{
    Json::Value devices(Json::arrayValue);
    for (const Entry &entry : entries_of(board, segment)) {
        Json::Value device;
        device["address"] = entry.address;
        device["path"] = to_string(DevicePath{segment.bus, segment.hops, entry.address});
        device["state"] = state_of(entry);
        if (entry.known) {
            device["name"] = entry.known->name;
            device["type"] = entry.known->type;
        }
        for (const Segment *channel : entry.channels) {
            Json::Value behind = json_of_segment(board, *channel);
            behind["channel"] = channel->hops.back().channel;
            device["channels"].append(behind);
        }
        devices.append(device);
    }
    Json::Value json;
    json["devices"] = devices;
    if (!segment.failure.empty())
        json["error"] = segment.failure;
    return json;
}

} // namespace

std::vector<Entry> entries_of(const Board &board, const Segment &segment)
{
    std::vector<Entry> entries;
    for (uint16_t address = 0; address < segment.found.size(); address++) {
        Entry entry;
        entry.address = address;
        entry.found = segment.found[address];
        entry.known = device_at(board, {segment.bus, segment.hops, address});
        for (const Segment &channel : segment.channels)
            if (channel.hops.back().address == address)
                entry.channels.push_back(&channel);
        if (entry.known || entry.found == Found::device || entry.found == Found::busy)
            entries.push_back(entry);
    }
    return entries;
}

std::string state_of(const Entry &entry)
{
    switch (entry.found) {
    case Found::device:
        return "present";
    case Found::busy:
        return "driver";
    case Found::nothing:
        return "missing";
    case Found::in_front:
        return "hidden";
    case Found::not_probed:
        break;
    }
    return "unknown";
}

void print_tree(const Board &board, const std::vector<Segment> &buses)
{
    const Branches branches = branches_for_terminal();
    for (const Segment &bus : buses) {
        const std::vector<Node> nodes = nodes_of(board, bus);
        std::cout << painted("1", "bus " + std::to_string(bus.bus))
                  << (nodes.empty() ? ": nothing" : "") << "\n";
        print_nodes(nodes, "", branches);
    }
}

void print_grids(const std::vector<Segment> &buses)
{
    for (const Segment &bus : buses)
        print_grid(bus);
}

void print_scan_json(const Board &board, const std::vector<Segment> &buses)
{
    Json::Value json;
    json["buses"] = Json::Value(Json::arrayValue);
    for (const Segment &bus : buses) {
        Json::Value entry = json_of_segment(board, bus);
        entry["bus"] = bus.bus;
        json["buses"].append(entry);
    }
    print_json(json);
}

} // namespace tool
