// What qeli2c-sim verify finds in a board's state, and that a sound one has none of it.
#include <gtest/gtest.h>

#include <functional>

#include "device.h"
#include "simboard/consistency.h"
#include "simboard/testing.h"

namespace
{

using simboard::testing::Board;

TEST(Consistency, WhatCannotBeIsNoticed)
{
    Board board(simboard::testing::reference_board());
    simboard::State &state = *board.view().state;
    Bytes byte(1);
    ASSERT_EQ(Device(7).write_read(0x30, {0x11}, byte), 2);
    ASSERT_EQ(Device(7).write(0x30, {0x11, 0x5a}), 1);
    uint32_t process = 1;
    while (state.processes[process].by_bus[7].transfers == 0) {
        process++;
    }
    simboard::Counters &own = state.processes[process].by_bus[7];
    simboard::Chip &chip = simboard::find_chip(board.view(), "scratch-registers");
    simboard::Journal &journal = state.journals[7];
    const struct {
        const char *finding;
        std::function<void(int)> change; // by 1, and back by -1
    } rows[] = {
        {"bus 7: the counters do not add up to the transfers of its trace",
         [&](int by) { own.transfers += static_cast<uint64_t>(by); }},
        {"bus 7: its trace does not end with the last transfer",
         [&](int by) {
             state.buses[7].state.records += static_cast<uint64_t>(by);
             own.transfers += static_cast<uint64_t>(by);
         }},
        {"bus 7: slot 1 of its trace is out of order",
         [&](int by) { state.traces[7][1].number += static_cast<uint64_t>(by); }},
        {"bus 7: its journal was left by somebody who let go",
         [&](int by) {
             journal.lines[0].offset = sizeof(simboard::Header) / 128 * 128 + 128;
             journal.count = by > 0 ? 1 : 0; // what is found is made final
         }},
        {"bus 7: line 0 of its journal is of nowhere",
         [&](int by) {
             journal.lines[0].offset = state.header.size;
             journal.count += static_cast<uint32_t>(by);
         }},
        {"scratch-registers: takes part in a transfer that nobody makes",
         [&](int by) { chip.state.touched = static_cast<uint8_t>(chip.state.touched + by); }},
        {"layout: scratch-registers is not as described",
         [&](int by) { chip.address = static_cast<uint8_t>(chip.address + by); }},
    };
    const auto findings = [&board] {
        return simboard::find_inconsistencies(board.view(), board.description(), 5000);
    };
    for (const auto &row : rows) {
        row.change(1);
        EXPECT_EQ(findings(), std::vector<std::string>{row.finding});
        row.change(-1);
        EXPECT_EQ(findings(), std::vector<std::string>{}) << row.finding;
    }
}

} // namespace
