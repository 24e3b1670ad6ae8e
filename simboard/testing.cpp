// Boards for tests.
#include "simboard/testing.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "simboard/board.h"
#include "simboard/description.h"

namespace simboard::testing
{

namespace
{

void require_none(const std::string &path, const std::vector<DescriptionError> &errors)
{
    std::string report;
    for (const DescriptionError &error : errors) {
        report += to_string(path, error) + "\n";
    }
    if (!report.empty()) {
        throw std::runtime_error(report);
    }
}

std::string read_description(const std::string &given, BoardDescription &description)
{
    const bool is_text = !given.empty() && given[0] == '{';
    const std::string path = is_text ? "description" : given;
    std::string text = given;
    if (!is_text) {
        text.clear();
        if (!read_text_file(given, text)) {
            throw std::runtime_error(given + ": " + std::strerror(errno));
        }
    }
    std::vector<DescriptionError> errors;
    description = parse_board_description(text, errors);
    require_none(path, errors);
    return text;
}

bool replace_variable(const char *name, const std::string &value, std::string &former)
{
    const char *const old = std::getenv(name);
    former = old != nullptr ? old : "";
    setenv(name, value.c_str(), 1);
    return old != nullptr;
}

void restore_variable(const char *name, bool had, const std::string &former)
{
    if (had) {
        setenv(name, former.c_str(), 1);
    } else {
        unsetenv(name);
    }
}

void append_message(std::vector<std::string> &lines, const MessageRecord &message)
{
    char part[16];
    std::snprintf(part, sizeof(part), "%c 0x%02x", (message.flags & I2C_M_RD) != 0 ? 'R' : 'W',
                  message.address);
    std::string line = part;
    for (const uint8_t byte : message.bytes) {
        std::snprintf(part, sizeof(part), " %02x", byte);
        line += part;
    }
    if (message.outcome == Outcome::address_nack || message.outcome == Outcome::data_nack) {
        line += " NACK";
    }
    if (message.outcome != Outcome::not_reached) {
        lines.push_back(line);
    }
}

int open_memory(const std::string &directory)
{
    const int fd = open((directory + "/mem").c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        throw std::runtime_error(directory + "/mem: " + std::strerror(errno));
    }
    return fd;
}

} // namespace

std::string reference_board()
{
    return SIMBOARD_REFERENCE_BOARD;
}

Board::Board(const std::string &description, const std::string &speed)
{
    const std::string text = read_description(description, description_);
    BoardOptions options;
    options.has_speed = true;
    if (!parse_speed(speed, options.bit_ns)) {
        throw std::runtime_error("\"" + speed + "\" is no speed");
    }
    const NewBoard made = create_board(description_, text, options);
    directory_ = made.directory;
    owner_fd_ = made.owner_fd;
    view_ = open_board(directory_);
    had_sim_ = replace_variable("QELI2C_SIM", directory_, former_sim_);
    had_board_ = replace_variable("QELI2C_BOARD", directory_ + "/board.json", former_board_);
}

Board::~Board()
{
    restore_variable("QELI2C_SIM", had_sim_, former_sim_);
    restore_variable("QELI2C_BOARD", had_board_, former_board_);
    close_board(view_);
    try {
        delete_board(directory_);
    } catch (const std::runtime_error &error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
    close(owner_fd_);
}

std::vector<uint8_t> Board::peek(const std::string &device, uint32_t offset, uint32_t count)
{
    return simboard::peek(view_, find_chip(view_, device), offset, count);
}

uint8_t Board::peek(const std::string &device, uint32_t offset)
{
    return peek(device, offset, 1)[0];
}

void Board::poke(const std::string &device, uint32_t offset, const std::vector<uint8_t> &bytes)
{
    simboard::poke(view_, find_chip(view_, device), offset, bytes);
}

int64_t Board::stimulus(const std::string &device, const std::string &name)
{
    return read_stimulus(view_, find_chip(view_, device), name);
}

void Board::set_stimulus(const std::string &device, const std::string &name, int64_t value)
{
    write_stimulus(view_, find_chip(view_, device), name, value);
}

void Board::set_pin(const std::string &device, uint32_t pin, bool level)
{
    write_pin(view_, find_chip(view_, device), pin, level);
}

void Board::inject(const std::string &plan, uint64_t seed)
{
    std::vector<DescriptionError> errors;
    const std::vector<PlannedFault> faults = parse_fault_plan(plan, description_, seed, errors);
    require_none("plan", errors);
    add_faults(view_, faults);
}

std::vector<FaultRecord> Board::faults()
{
    return read_faults(view_);
}

std::string Board::unfired()
{
    return describe_unfired(faults(), "");
}

void Board::reset()
{
    clear_faults(view_);
    reset_board(view_);
    clear_memory(directory_, description_);
}

Counters Board::totals()
{
    Counters sum = {};
    for (const ProcessCounters &process : read_counters(view_)) {
        for (const Counters &column : process.by_bus) {
            add_counters(sum, column);
        }
    }
    return sum;
}

Counters Board::totals(uint32_t bus)
{
    Counters sum = {};
    for (const ProcessCounters &process : read_counters(view_)) {
        add_counters(sum, process.by_bus[bus]);
    }
    return sum;
}

std::string Board::wrongs()
{
    return describe_wrongs(totals(), "");
}

std::vector<TransferRecord> Board::trace(uint32_t bus)
{
    return read_trace(view_, bus);
}

std::vector<std::string> Board::wire(uint32_t bus)
{
    std::vector<std::string> lines;
    for (const TransferRecord &record : trace(bus)) {
        for (const MessageRecord &message : record.messages) {
            append_message(lines, message);
        }
        lines.push_back(record.result < 0 ? std::string("P ") + strerrorname_np(-record.result)
                                          : "P");
    }
    return lines;
}

uint32_t Board::physical(uint64_t address)
{
    uint32_t value = 0;
    const int fd = open_memory(directory_);
    const ssize_t size = pread(fd, &value, sizeof(value), static_cast<off_t>(address));
    close(fd);
    if (size != ssize_t{sizeof(value)}) {
        throw std::runtime_error("no physical memory at " + std::to_string(address));
    }
    return value;
}

void Board::set_physical(uint64_t address, uint32_t value)
{
    const int fd = open_memory(directory_);
    const ssize_t size = pwrite(fd, &value, sizeof(value), static_cast<off_t>(address));
    close(fd);
    if (size != ssize_t{sizeof(value)}) {
        throw std::runtime_error("no physical memory at " + std::to_string(address));
    }
}

} // namespace simboard::testing
