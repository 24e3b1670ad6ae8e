// The bus controllers themselves: one that stops answering, and their status registers. The
// controller's registers lie at 0x1E78A080 + 0x80 x bus (ASPEED AST2600 data sheet, I2C
// controller).
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sched.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/mount.h>
#include <unistd.h>

#include "cases.h"
#include "command.h"
#include "link.h"
#include "wire.h"

namespace board
{

namespace
{

constexpr uint32_t controllers = 0x1E78A080;
constexpr uint32_t controller_size = 0x80;
constexpr uint32_t function_control = 0x00;
constexpr uint32_t status_word = 0x08;
constexpr uint32_t interrupt_control = 0x0C;

uint32_t address_of(uint32_t bus, uint32_t number)
{
    return controllers + controller_size * bus + number;
}

// From within, as a program gone wrong on the board would: clears a register of the controller.
void clear_register(uint32_t bus, uint32_t number)
{
    const int fd = open("/dev/mem", O_RDWR | O_SYNC | O_CLOEXEC);
    const uint32_t address = address_of(bus, number);
    void *page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd,
                      static_cast<off_t>(address & ~4095U));
    (void)close(fd);
    if (page == MAP_FAILED)
        throw std::runtime_error("cannot map the controller's registers");
    static_cast<volatile uint32_t *>(page)[(address & 4095U) / 4] = 0;
    (void)munmap(page, 4096);
}

double seconds()
{
    timespec time = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// One transfer times out, the driver sets the controller up again, the next one works.
void stops_answering(Check &check, uint32_t number)
{
    const ei2c_client pins = device(Chip::pins, Level::root);
    uint8_t command = 3;
    uint8_t value = 0;
    i2c_msg both[2] = {{pins.addr, 0, 1, &command}, {pins.addr, I2C_M_RD, 1, &value}};
    wire::set_registers(pins, 3, {0xFF});
    equal(check, "result before", ei2c_rdwr_xfer_without_retry(&pins, both, 2), 2);
    clear_register(bench_bus, number);
    const double start = seconds();
    refused(check, "the transfer", ei2c_rdwr_xfer_without_retry(&pins, both, 2), -1, ETIMEDOUT);
    is_true(check, "it waited for the controller, and not for ever",
            seconds() - start > 0.5 && seconds() - start < 5);
    value = 0;
    equal(check, "result of the next one", ei2c_rdwr_xfer_without_retry(&pins, both, 2), 2);
    equal(check, "value", value, 0xFF);
}

// The library's own tries get over it. The path is opened first, so that is what times out.
void tried_again(Check &check, Level level)
{
    const ei2c_client pins = device(Chip::pins, level);
    uint8_t value = 0;
    wire::set_registers(pins, 3, {0xFF});
    equal(check, "result before", ei2c_smbus_read_byte_data(&pins, 3, &value), 0);
    clear_register(bench_bus, function_control);
    const double start = seconds();
    value = 0;
    equal(check, "result", ei2c_smbus_read_byte_data(&pins, 3, &value), 0);
    is_true(check, "a try timed out", seconds() - start > 0.5);
    equal(check, "value", value, 0xFF);
    equal(check, "switch registers afterwards", wire::switches(), {0, 0});
}

// Of this register the machine keeps only the low three bits. They are put there from outside, and
// the library's own trace tells which word it read where.
void status_word_read(Check &check, uint32_t bus)
{
    const uint32_t address = address_of(bus, status_word);
    const uint32_t before = link::read_memory(address);
    for (const uint32_t word : {5U, 2U}) {
        link::write_memory(address, word);
        char wanted[80];
        (void)std::snprintf(wanted, sizeof wanted, "regAddr: 0x%x, regData: 0x%x, status: 0x0",
                            address, word);
        const Outcome outcome =
            run_command("QELPLATFORM_LOG=135=stderr board-guest status " + std::to_string(bus));
        equal(check, "exit status", outcome.status, 0);
        if (outcome.output.find(wanted) == std::string::npos)
            fail(check, std::string("no '") + wanted + "' in: " + outcome.output);
    }
    link::write_memory(address, before);
}

// A file in the place of /dev/mem, for this process alone, can have bit 16 set: all other bits of
// the bus asked for and of its neighbours say the opposite.
void status_bit(Check &check)
{
    constexpr char file[] = "/tmp/memory";
    const int fd = open(file, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    is_true(check, "the file takes the place of /dev/mem",
            fd >= 0 && unshare(CLONE_NEWNS) == 0 &&
                mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                mount(file, "/dev/mem", nullptr, MS_BIND, nullptr) == 0);
    for (const uint32_t marked : {0U, 4U, 15U}) {
        for (uint32_t bus = 0; bus < 16; bus++) {
            const uint32_t word = bus == marked ? 0x00010000 : 0xFFFEFFFF;
            (void)!pwrite(fd, &word, sizeof word, address_of(bus, status_word));
        }
        for (uint32_t bus = 0; bus < 16; bus++) {
            uint8_t bit = 7;
            equal(check, "result", i2c_bus_status_check(bus, &bit), 0);
            equal(check, "status of bus " + std::to_string(bus), bit, bus == marked);
        }
    }
    uint8_t bit = 7;
    equal(check, "result for bus 16", i2c_bus_status_check(16, &bit), -1);
    equal(check, "the caller's byte", bit, 7);
    (void)close(fd);
    (void)unlink(file);
}

} // namespace

void add_controller_cases(Cases &cases)
{
    cases.push_back({"controller/stops-answering",
                     [](Check &check) { stops_answering(check, function_control); }});
    cases.push_back({"controller/interrupts-lost",
                     [](Check &check) { stops_answering(check, interrupt_control); }});
    for (const Level level : {Level::root, Level::far})
        cases.push_back({"controller/tried-again/" + name_of(level),
                         [level](Check &check) { tried_again(check, level); }});
    for (const uint32_t bus : {0U, 9U, 15U})
        cases.push_back({"controller/status-word-of-bus-" + std::to_string(bus),
                         [bus](Check &check) { status_word_read(check, bus); }});
    cases.push_back({"controller/status-bit-in-a-memory-file", status_bit});
}

} // namespace board
