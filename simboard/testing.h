// A simulated board for one test program: made, looked into behind the bus's back, and gone
// afterwards.
//
// Link `simboard_testing`, and `qelsim` ahead of anything that opens devices; then plain
// open("/dev/i2c-4"), ioctl, fcntl locks, semget and /dev/mem of this process and its children
// reach the board.
//
//     simboard::testing::Board board(simboard::testing::reference_board());
//     board.poke("id-eeprom", 0, {1, 2, 3});
//     ... exercise the code under test ...
//     EXPECT_EQ(board.wrongs(), "");
//
// A descriptor belongs to the board it was opened on, so a program that keeps descriptors (or
// semaphores) for its whole life makes one board and calls `reset` between its tests. Every
// function throws std::runtime_error with a message that says what went wrong, such as a device the
// board has not got.
#ifndef SIMBOARD_TESTING_H
#define SIMBOARD_TESTING_H

#include <cstdint>
#include <string>
#include <vector>

#include "simboard/description.h"
#include "simboard/fault_view.h"
#include "simboard/view.h"

namespace simboard::testing
{

// Path of the reference board's description.
std::string reference_board();

class Board
{
public:
    // From a description file, or from the description itself when the text starts with '{'. Sets
    // QELI2C_SIM, and QELI2C_BOARD to the board's copy of the description; both get their former
    // values back at the end.
    explicit Board(const std::string &description, const std::string &speed = "instant");
    ~Board();
    Board(const Board &) = delete;
    Board &operator=(const Board &) = delete;

    const std::string &directory() const { return directory_; }
    const BoardDescription &description() const { return description_; }
    BoardView &view() { return view_; }

    // Registers, EEPROM bytes, or a switch's control register (offset 0), without traffic. A poke
    // of a control register makes nobody the opener.
    std::vector<uint8_t> peek(const std::string &device, uint32_t offset, uint32_t count);
    uint8_t peek(const std::string &device, uint32_t offset = 0);
    void poke(const std::string &device, uint32_t offset, const std::vector<uint8_t> &bytes);

    // What surrounds a device, by its name as in the description (read_stimulus, write_stimulus).
    int64_t stimulus(const std::string &device, const std::string &name);
    void set_stimulus(const std::string &device, const std::string &name, int64_t value);
    // The level that stands at an expander's pin from outside.
    void set_pin(const std::string &device, uint32_t pin, bool level);

    // Adds the steps of a fault plan, given as its JSON text; the same seed brings the same faults.
    void inject(const std::string &plan, uint64_t seed = 0);
    std::vector<FaultRecord> faults();
    // The steps that never struck, one line each; empty when every one did.
    std::string unfired();

    // The board as it was described: chips after power-on, EEPROMs 0xff, channels closed, counters
    // 0, trace empty, no faults, the access-owner table 0. Descriptors stay valid.
    void reset();

    Counters totals();             // of all processes on all buses
    Counters totals(uint32_t bus); // of all processes on one bus
    // What must never happen and did, one line each; empty when all is well.
    std::string wrongs();

    // Every transfer on the bus since creation or reset, oldest first, as far as the trace still
    // holds it.
    std::vector<TransferRecord> trace(uint32_t bus);
    // The same as text, one message a line: "W 0x50 00 10 ff", "R 0x50 12 34", "W 0x51 NACK",
    // "W 0x50 00 10 NACK"; the messages of one transfer follow each other, a transfer ends with "P"
    // and, when it failed, its errno: "P ENXIO".
    std::vector<std::string> wire(uint32_t bus);

    // 32-bit words of physical memory, as /dev/mem shows them.
    uint32_t physical(uint64_t address);
    void set_physical(uint64_t address, uint32_t value);

private:
    std::string directory_;
    BoardDescription description_;
    int owner_fd_ = -1;
    BoardView view_;
    std::string former_sim_;
    std::string former_board_;
    bool had_sim_ = false;
    bool had_board_ = false;
};

} // namespace simboard::testing

#endif
