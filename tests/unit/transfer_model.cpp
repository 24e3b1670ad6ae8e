// See transfer_model.h. Written from the description of the calls, with nothing of the library in
// it.
#include "tests/unit/transfer_model.h"

#include <linux/i2c-dev.h>

using namespace scripted;

namespace model
{
namespace
{

// Appends a request; a failing one leaves its errno.
int ask(Story &story, const Event &event)
{
    if (event.error != 0)
        story.error = event.error;
    story.script += event;
    return event.result;
}

bool wait(Story &story, bool writable_too, const Fault &fault)
{
    story.error = 0;
    const bool fails = fault.at == Fault::wait;
    const bool times_out = fault.at == Fault::timeout;
    ask(story, wait_ready(fd_of(story.bus), writable_too, fails ? -1 : (times_out ? 0 : 1),
                          fails ? fault.error : 0));
    if (times_out)
        story.error = ETIMEDOUT;
    return !fails && !times_out;
}

// The fault's result when it is this one that happens.
int result_at(Fault::At at, const Fault &fault, int otherwise = 0)
{
    return fault.at == at ? fault.result : otherwise;
}
int error_at(Fault::At at, const Fault &fault)
{
    return fault.at == at ? fault.error : 0;
}

} // namespace

int rdwr(Story &story, uint16_t addr, const i2c_msg *msgs, uint32_t count, const Fault &fault,
         const Bytes &reply)
{
    const int bus = static_cast<int>(story.bus);
    const int fd = fd_of(story.bus);
    story.script +=
        line135("ui2c_rdwr_xfer() bus=%d, addr=%x num=%d chl/offset=%d start\n", bus, addr,
                static_cast<int>(count), msgs[0].buf == nullptr ? -1 : msgs[0].buf[0]);
    int result = ask(story, set_slave(fd, true, addr, result_at(Fault::slave, fault),
                                      error_at(Fault::slave, fault)));
    if (result < 0) {
        story.script +=
            line132("I2C_SLAVE_FORCE ioctl = %d, %s\n", result, with_errno(story.error).c_str());
    } else {
        if (!wait(story, true, fault))
            return -1;
        const int done = static_cast<int>(count);
        result = ask(story, transfer(fd, msgs, count, result_at(Fault::request, fault, done),
                                     error_at(Fault::request, fault), reply));
        if (result < 0)
            story.script +=
                line135("I2C_RDWR ioctl = %d, %s\n", result, with_errno(story.error).c_str());
    }
    story.script += line135("ui2c_rdwr_xfer() bus=%d, addr=%x stop\n", bus, addr);
    return result;
}

int write_byte(Story &story, uint16_t addr, uint8_t value, const Fault &fault)
{
    const i2c_msg msg = {addr, 0, 1, &value};
    const int result = rdwr(story, addr, &msg, 1, fault);
    if (result < 0)
        story.script +=
            line135("ui2c_rdwr_xfer = %d, %s\n", result, with_errno(story.error).c_str());
    return result;
}

int smbus(Story &story, const ei2c_client &device, unsigned read_write, unsigned command,
          unsigned size, const Bytes &area, const Fault &fault, const Bytes &reply)
{
    const int bus = static_cast<int>(story.bus);
    const int fd = fd_of(story.bus);
    story.script += line135("ui2c_smbus_xfer() bus=%d, addr=%x, r/w=%u cmd=%u start\n", bus,
                            device.addr, read_write, command);
    int result = ask(story, set_slave(fd, false, device.addr, result_at(Fault::slave, fault),
                                      error_at(Fault::slave, fault)));
    if (result >= 0)
        result = ask(story, set_pec(fd, (device.flags & 0x0004) != 0, result_at(Fault::pec, fault),
                                    error_at(Fault::pec, fault)));
    if (result >= 0) {
        if (!wait(story, false, fault)) {
            story.script += line132("Error waiting for bus to be readable");
            return -1;
        }
        const bool copied_in = read_write == I2C_SMBUS_WRITE || size == I2C_SMBUS_BLOCK_PROC_CALL;
        result =
            ask(story, scripted::smbus(fd, read_write, command, size, copied_in ? area : Bytes{},
                                       result_at(Fault::request, fault),
                                       error_at(Fault::request, fault), reply));
    }
    story.script += line135("ui2c_smbus_xfer() bus=%d, addr=%x stop\n", bus, device.addr);
    return result;
}

void line_if_failed(Story &story, const ei2c_client &device, const char *what, int result,
                    bool with_text)
{
    const std::string end =
        with_text ? with_errno(story.error) : printed("errno = %d ", story.error);
    if (result < 0)
        story.script += line135("%s(%u,%x,%u) = %d, %s\n", what, device.bus, device.swi_addr,
                                device.swi_chnl, result, end.c_str());
}

void take(Story &story)
{
    story.script += lock_semaphore(story.bus);
    story.script += lock_file(fd_of(story.bus));
}

void release(Story &story, int result)
{
    story.script += unlock_file(fd_of(story.bus));
    story.script += unlock_semaphore(story.bus, result, result < 0 ? EPERM : 0);
    if (result < 0)
        story.script +=
            line132("unlock_adapter(%u) = %d, %s\n", story.bus, result, with_errno(EPERM).c_str());
}

Fault Faults::next(bool fails, bool smbus)
{
    if (!fails)
        return {};
    ++serial;
    return {static_cast<Fault::At>(Fault::request + serial % (smbus ? 5 : 4)), -100 - serial,
            200 + serial};
}

int open_path(Story &story, const ei2c_client &device, const Try &attempt, Faults &faults,
              bool with_text)
{
    int ret = 0;
    const auto select = [&](uint32_t addr, uint32_t channel, bool fails) {
        ret = write_byte(story, static_cast<uint16_t>(addr), static_cast<uint8_t>(1 << channel),
                         faults.next(fails));
        line_if_failed(story, device, "swi_select", ret, with_text);
    };
    if (device.swi_addr > 0xffff)
        select(device.swi_addr >> 16, device.swi_chnl >> 16, attempt.upstream_select);
    if (device.swi_addr != 0 && ret >= 0)
        select(device.swi_addr & 0xffff, device.swi_chnl & 0xffff, attempt.near_select);
    return ret;
}

int close_path(Story &story, const ei2c_client &device, const Try &attempt, Faults &faults)
{
    int ret = 0;
    const auto deselect = [&](uint32_t addr, bool fails) {
        ret = write_byte(story, static_cast<uint16_t>(addr), 0, faults.next(fails));
        line_if_failed(story, device, "swi_deselect", ret);
    };
    if (device.swi_addr != 0)
        deselect(device.swi_addr & 0xffff, attempt.near_deselect);
    if (device.swi_addr > 0xffff)
        deselect(device.swi_addr >> 16, attempt.upstream_deselect);
    return ret;
}

Outcome switched_loop(Story &story, const ei2c_client &device, const std::vector<Try> &tries,
                      const char *name, const Transfer &transfer, Faults faults)
{
    Outcome outcome = {-1, 0};
    int ret = 0;
    int failed = 0;
    for (const Try &attempt : tries) {
        ret = open_path(story, device, attempt, faults);
        if (ret >= 0) {
            const bool is_smbus = std::string(name) == "ui2c_smbus_xfer";
            const int xfer =
                transfer(story, attempt.transfer, faults.next(attempt.transfer != 0, is_smbus));
            outcome = {xfer, story.error};
            if (xfer < 0)
                story.script += line135("%s(%u,%x) = %d, %s\n", name, device.bus, device.addr, xfer,
                                        with_errno(story.error).c_str());
            ret = close_path(story, device, attempt, faults);
            if (ret >= 0 && xfer >= 0)
                break;
        }
        ++failed;
    }
    if (failed >= 3 && tries.size() == 4)
        story.script += line135(
            "bus=%u, addr=%x, swiaddr=%x, swichnl=%u, ret=%d, xfer=%d, tries=%d, retries=3, "
            "errno=%d, %s\n",
            device.bus, device.addr, device.swi_addr, device.swi_chnl, ret, outcome.result, failed,
            story.error, error_text(story.error).c_str());
    return outcome;
}

std::vector<Try> ways(int switches, int parts, bool succeeding)
{
    std::vector<Try> found;
    if (!succeeding && switches == 2)
        found.push_back({true, false, 0, false, false});
    if (!succeeding && switches >= 1)
        found.push_back({false, true, 0, false, false});
    for (int transfer = 0; transfer <= parts; ++transfer)
        for (int closing = 0; closing < 1 << switches; ++closing) {
            const Try attempt = {false, false, transfer, (closing & 1) != 0, (closing & 2) != 0};
            const bool closed = switches == 2 ? !attempt.upstream_deselect : !attempt.near_deselect;
            if ((transfer == 0 && closed) == succeeding)
                found.push_back(attempt);
        }
    return found;
}

std::vector<std::vector<Try>> sequences(int switches, int parts)
{
    const std::vector<Try> failures = ways(switches, parts, false);
    const std::vector<Try> successes = ways(switches, parts, true);
    std::vector<std::vector<Try>> ended;
    std::vector<std::vector<Try>> going = {{}};
    for (int length = 1; length <= 4; ++length) {
        std::vector<std::vector<Try>> longer;
        for (const auto &tries : going) {
            const auto add = [&tries](std::vector<std::vector<Try>> &list, const Try &last) {
                list.push_back(tries);
                list.back().push_back(last);
            };
            for (const Try &last : successes)
                add(ended, last);
            const bool repeats = switches == 2 && length == 3;
            for (const Try &last : repeats ? std::vector<Try>{tries[0]} : failures)
                add(length == 4 ? ended : longer, last);
        }
        going = std::move(longer);
    }
    return ended;
}

std::string described(const std::vector<Try> &tries)
{
    std::string text = "failing:";
    for (const Try &attempt : tries) {
        text += attempt.upstream_select ? " select-upstream" : "";
        text += attempt.near_select ? " select-near" : "";
        text += attempt.transfer != 0 ? printed(" transfer-%d", attempt.transfer) : "";
        text += attempt.near_deselect ? " deselect-near" : "";
        text += attempt.upstream_deselect ? " deselect-upstream" : "";
        text += ";";
    }
    return text;
}

ei2c_client device_behind(int switches, uint32_t bus)
{
    constexpr uint32_t addrs[] = {0, 0x71, 0x00700071};
    constexpr uint32_t channels[] = {0, 3, 0x00050003};
    return {bus, 0x50, 0, addrs[switches], channels[switches], "node"};
}

} // namespace model
