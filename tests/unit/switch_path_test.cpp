// The switch driver and the path calls: which switch is written first, and what a failure on the
// way leaves.
#include "tests/unit/transfer_model.h"

#include <gtest/gtest.h>

using namespace scripted;
using model::Fault;
using model::Story;

namespace
{

// A device behind that many switches on a bus of its own, whose file is open.
ei2c_client placed(int switches)
{
    const ei2c_client device = model::device_behind(switches, fresh_bus());
    observe({}, [&] { ui2c_adapter_fd(ui2c_to_adapter(device.bus)); });
    return device;
}

TEST(SwitchDriver, WritesOneBitOrNone)
{
    const ei2c_client device = placed(1);
    ui2c_switch *near = ui2c_to_client(device.bus, device.addr, device.swi_addr, 0)->swi;
    const Script nothing;
    for (const uint32_t channel : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 0x10000U, 0xffffffffU}) {
        Story select = {device.bus};
        int expected = -12345678;
        if (channel < 8)
            expected = model::write_byte(select, 0x71, static_cast<uint8_t>(1 << channel));
        EXPECT_PLAY(expected, ui2c_swi_select(near, channel), select.script);
        Story deselect = {device.bus};
        model::write_byte(deselect, 0x71, 0);
        EXPECT_PLAY(1, ui2c_swi_deselect(near, channel), deselect.script);
    }
    Story failing = {device.bus};
    model::write_byte(failing, 0x71, 0x10, {Fault::request, -9, EREMOTEIO});
    EXPECT_PLAY(-9, ui2c_swi_select(near, 4), failing.script);
}

TEST(Path, OpensUpstreamFirstAndClosesNearFirst)
{
    for (int switches = 0; switches <= 2; ++switches)
        for (const bool success : {true, false})
            for (const model::Try &attempt : model::ways(switches, 0, success)) {
                SCOPED_TRACE(model::described({attempt}));
                const ei2c_client device = placed(switches);
                model::Faults faults;
                Story opening = {device.bus};
                const int opened = model::open_path(opening, device, attempt, faults);
                EXPECT_PLAY(opened < 0 ? -1 : 0, SelectSwitch(&device), opening.script);
                Story closing = {device.bus};
                const int closed = model::close_path(closing, device, attempt, faults);
                EXPECT_PLAY(closed, DeselectSwitch(&device), closing.script);
            }
}

TEST(Path, WithAChannelAboveSevenIsRefusedBeforeTheBus)
{
    for (const auto &[switches, channels] : {std::pair(1, 8U), {2, 0x00080003U}}) {
        ei2c_client device = placed(switches);
        device.swi_chnl = channels;
        EXPECT_PLAY(-1, SelectSwitch(&device),
                    {line135("swi_select(%u,%x,%u) = -12345678, %s\n", device.bus, device.swi_addr,
                             channels, with_errno(0).c_str())});
    }
}

TEST(Path, IgnoresAnUpstreamHalfWithoutANearOne)
{
    ei2c_client device = placed(0);
    device.swi_addr = 0x00700000;
    EXPECT_PLAY(0, SelectSwitch(&device), Script{});
    EXPECT_PLAY(0, DeselectSwitch(&device), Script{});
}

TEST(Path, StatusReadsTheNearSwitchOnly)
{
    uint8_t value = 0xee;
    const ei2c_client device = placed(2);
    for (const Fault &fault : {Fault{Fault::request, -8, EIO}, Fault{}}) {
        uint8_t zero = 0;
        const i2c_msg msg = {0x71, I2C_M_RD, 1, &zero};
        Story story = {device.bus};
        const int expected = model::rdwr(story, 0x71, &msg, 1, fault, {0x08});
        if (expected < 0)
            story.script += line132("ui2c_rdwr_xfer = -8, %s\n", with_errno(EIO).c_str());
        model::line_if_failed(story, device, "ui2c_swi_status", expected);
        EXPECT_PLAY(expected, readSwitchStatus(&device, &value), story.script);
        EXPECT_EQ(value, expected < 0 ? 0xee : 0x08);
    }
    const ei2c_client bare = placed(0);
    EXPECT_PLAY(-1, readSwitchStatus(&bare, &value), {line132("Pointer uc_swi is NULL\n")});
}

TEST(Path, WithoutARecordFails)
{
    const ei2c_client device = placed(2);
    uint8_t value = 0xee;
    fail_next_mutex_lock();
    EXPECT_PLAY(-1, SelectSwitch(&device), {no_registry()});
    fail_next_mutex_lock();
    EXPECT_PLAY(-1, DeselectSwitch(&device), {no_registry()});
    fail_next_mutex_lock();
    EXPECT_PLAY(-1, readSwitchStatus(&device, &value),
                {no_registry(), line132("Pointer _uc is NULL\n")});
}

} // namespace
