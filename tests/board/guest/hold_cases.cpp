// Buses held across several calls, and who is kept out meanwhile.
#include <cerrno>
#include <csignal>
#include <ctime>
#include <sys/wait.h>
#include <unistd.h>

#include "cases.h"
#include "wire.h"

namespace board
{

namespace
{

// What the two switches of the bench hold while the path to that level is open.
Bytes open_switches(Level level)
{
    if (level == Level::root)
        return {0, 0};
    return level == Level::near ? Bytes{1U << 3, 0} : Bytes{1U << 5, 1U << 2};
}

void path_held_open(Check &check, Level level)
{
    const ei2c_client pins = device(Chip::pins, level);
    int32_t fd = -1;
    int32_t semaphore = -1;
    equal(check, "result of the taking",
          ei2c_smbus_select_switch(&pins, &fd, &semaphore) >= 0 ? 0 : -1, 0);
    equal(check, "switch registers while held", wire::switches(), open_switches(level));
    const ui2c_client *record = ui2c_to_client(pins.bus, pins.addr, pins.swi_addr, pins.swi_chnl);
    uint8_t sent[2] = {2, static_cast<uint8_t>(0x61 + static_cast<int>(level))};
    i2c_msg message = {pins.addr, 0, 2, sent};
    equal(check, "result of the transfer", ui2c_rdwr_xfer(record->adapter, pins.addr, &message, 1),
          1);
    equal(check, "result of the release", ei2c_smbus_deselect_switch(&pins, fd, semaphore), 0);
    equal(check, "switch registers afterwards", wire::switches(), {0, 0});
    equal(check, "register", wire::registers(pins, 2, 1), {sent[1]});
    wire::set_registers(pins, 2, {0});
}

void bus_held(Check &check, Level level)
{
    const ei2c_client pins = device(Chip::pins, level);
    int32_t fd = -1;
    int32_t semaphore = -1;
    uint8_t value = 0;
    equal(check, "result of the taking", ei2c_smbus_lock_adapter(&pins, &fd, &semaphore), 0);
    equal(check, "switch registers while held", wire::switches(), {0, 0});
    equal(check, "result of the write", ei2c_smbus_write_byte_data_without_lock(&pins, 2, 0x3D), 0);
    equal(check, "result of the read", ei2c_smbus_read_byte_data_without_lock(&pins, 2, &value), 0);
    equal(check, "switch registers after the transfers", wire::switches(), {0, 0});
    equal(check, "result of the release", ei2c_smbus_unlock_adapter(&pins, fd, semaphore), 0);
    equal(check, "value", value, 0x3D);
    equal(check, "register", wire::registers(pins, 2, 1), {0x3D});
    wire::set_registers(pins, 2, {0});
}

void bridge_held(Check &check, Level level)
{
    const ei2c_client pins = device(Chip::pins, level);
    int32_t fd = -1;
    int32_t semaphore = -1;
    wire::set_registers(pins, 2, {0x92});
    equal(check, "result of the taking", lockAndSelectBridge_Ridgeback(&pins, &semaphore, &fd), 0);
    equal(check, "switch registers while held", wire::switches(), open_switches(level));
    const Bytes seen = wire::read(pins.bus, pins.addr, {2}, 1);
    equal(check, "result of the release", unlockAndDeselectBridge_Ridgeback(&pins, &semaphore, &fd),
          0);
    equal(check, "register behind the bridge", seen, {0x92});
    equal(check, "switch registers afterwards", wire::switches(), {0, 0});
    wire::set_registers(pins, 2, {0});
}

void switch_status(Check &check)
{
    const ei2c_client pins = device(Chip::pins, Level::near);
    uint8_t status = 0xFF;
    equal(check, "result while closed", readSwitchStatus(&pins, &status), 1);
    equal(check, "register while closed", status, 0);
    wire::open_path(pins);
    equal(check, "result while open", readSwitchStatus(&pins, &status), 1);
    equal(check, "register while open", status, 1 << 3);
    equal(check, "result of the closing", DeselectSwitch(&pins), 1);
    equal(check, "switch registers afterwards", wire::switches(), {0, 0});
}

int64_t milliseconds()
{
    timespec time = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &time);
    return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

// A second process that wants the bus: gets it, or is still waiting after that time.
bool another_gets_the_bus(int64_t within)
{
    const pid_t child = fork();
    if (child == 0) {
        const ei2c_client pins = device(Chip::pins, Level::root);
        uint8_t value = 0;
        _exit(ei2c_smbus_read_byte_data(&pins, 0, &value) == 0 ? 0 : 1);
    }
    int status = 0;
    const int64_t end = milliseconds() + within;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (milliseconds() >= end) {
            (void)kill(child, SIGKILL);
            (void)waitpid(child, &status, 0);
            return false;
        }
        (void)usleep(2000);
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void others_wait(Check &check)
{
    const ei2c_client pins = device(Chip::pins, Level::root);
    int32_t fd = -1;
    int32_t semaphore = -1;
    is_true(check, "free bus: another process gets it", another_gets_the_bus(5000));
    equal(check, "result of the taking", ei2c_smbus_lock_adapter(&pins, &fd, &semaphore), 0);
    is_true(check, "held bus: another process waits", !another_gets_the_bus(400));
    equal(check, "result of the release", ei2c_smbus_unlock_adapter(&pins, fd, semaphore), 0);
    is_true(check, "released bus: another process gets it", another_gets_the_bus(5000));
}

void holder_dies(Check &check)
{
    const ei2c_client pins = device(Chip::pins, Level::far);
    const pid_t child = fork();
    if (child == 0) {
        int32_t fd = -1;
        int32_t semaphore = -1;
        if (ei2c_smbus_select_switch(&pins, &fd, &semaphore) >= 0)
            (void)raise(SIGKILL);
        _exit(1);
    }
    int status = 0;
    (void)waitpid(child, &status, 0);
    is_true(check, "the holder was killed while it held", WIFSIGNALED(status));
    is_true(check, "another process gets the bus", another_gets_the_bus(5000));
    // The dead holder's path is still open; whoever goes that way next closes it.
    uint8_t value = 0;
    equal(check, "result through the same switches", ei2c_smbus_read_byte_data(&pins, 0, &value),
          0);
    equal(check, "switch registers afterwards", wire::switches(), {0, 0});
}

} // namespace

void add_hold_cases(Cases &cases)
{
    for (const Level level : all_levels) {
        cases.push_back({"hold/path-held-open/" + name_of(level),
                         [level](Check &check) { path_held_open(check, level); }});
        cases.push_back(
            {"hold/bus-held/" + name_of(level), [level](Check &check) { bus_held(check, level); }});
        cases.push_back({"hold/bridge-held/" + name_of(level),
                         [level](Check &check) { bridge_held(check, level); }});
    }
    cases.push_back({"hold/switch-status", switch_status});
    cases.push_back({"hold/others-wait", others_wait});
    cases.push_back({"hold/holder-dies", holder_dies});
}

} // namespace board
