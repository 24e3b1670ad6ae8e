// Locked transfers: every pattern of failing tries, each lock that can fail, and what is left of
// errno.
#include "tests/unit/transfer_model.h"

#include <gtest/gtest.h>

using namespace scripted;
using model::Fault;
using model::Story;
using model::Try;

namespace
{

// What all calls below send: two messages, one message, or one SMBus word.
uint8_t first_bytes[] = {0x12, 0x34};
uint8_t second_byte[] = {0x56};
i2c_msg first_set[] = {{0x50, 0, 2, first_bytes}, {0x51, 0, 1, second_byte}};
i2c_msg second_set[] = {{0x52, 0, 1, second_byte}};
i2c_msg *both_sets[] = {first_set, second_set};
const uint32_t both_counts[] = {2, 1};
Bytes word(QELI2C_SMBUS_AREA, 0x21);

struct Call {
    const char *name;
    const char *raw; // the name in its failure line
    int parts;       // transfers of one try
    int tries;
    bool locks;
    bool runtime_line_for_file_lock; // 135, else 132
    int32_t (*run)(const ei2c_client *);
};

// The name of a case in reports; without it they show addresses, which differ from run to run.
void PrintTo(const Call &call, std::ostream *out)
{
    *out << call.name;
}

using Device = const ei2c_client *;
const Call one = {"ei2c_rdwr_xfer", "ui2c_rdwr_xfer", 1, 4, true, true, [](Device device) {
                      return ei2c_rdwr_xfer(device, first_set, 2);
                  }};
const Call two = {"ei2c_rdwr_mxfer", "ui2c_rdwr_xfer", 2, 4, true, false, [](Device device) {
                      return ei2c_rdwr_mxfer(device, both_sets, both_counts);
                  }};
const Call once = {
    "ei2c_rdwr_xfer_without_retry", "ui2c_rdwr_xfer", 1, 1, true, false, [](Device device) {
        return ei2c_rdwr_xfer_without_retry(device, first_set, 2);
    }};
const Call smbus_locked = {
    "ei2c_smbus_xfer", "ui2c_smbus_xfer", 1, 4, true, false, [](Device device) {
        return ei2c_smbus_xfer(device, 0, 0x44, 3, word.data());
    }};
const Call smbus_unlocked = {
    "ei2c_smbus_xfer_without_lock", "ui2c_smbus_xfer", 1, 4, false, false, [](Device device) {
        return ei2c_smbus_xfer_without_lock(device, 0, 0x44, 3, word.data());
    }};

int model_transfer(const Call &call, const ei2c_client &device, Story &story, int failing,
                   const Fault &fault)
{
    if (std::string(call.raw) == "ui2c_smbus_xfer")
        return model::smbus(story, device, 0, 0x44, 3, word, fault);
    const int result =
        model::rdwr(story, device.addr, first_set, 2, failing == 1 ? fault : Fault{});
    if (call.parts == 1 || result < 0)
        return result;
    return model::rdwr(story, device.addr, second_set, 1, failing == 2 ? fault : Fault{});
}

// The whole call, with the semaphore's release giving that result.
model::Outcome model_call(const Call &call, const ei2c_client &device,
                          const std::vector<Try> &tries, Story &story, int serial = 0,
                          int released = 0)
{
    if (call.locks)
        model::take(story);
    model::Outcome outcome = {-1, 0};
    model::Faults faults = {serial};
    if (call.tries == 4) {
        const auto transfer = [&](Story &s, int failing, const Fault &fault) {
            return model_transfer(call, device, s, failing, fault);
        };
        outcome = model::switched_loop(story, device, tries, call.raw, transfer, faults);
    } else if (model::open_path(story, device, tries[0], faults) >= 0) {
        const Fault fault = faults.next(tries[0].transfer != 0);
        outcome.result = model_transfer(call, device, story, tries[0].transfer, fault);
        outcome.error = story.error;
        model::close_path(story, device, tries[0], faults);
    }
    if (call.locks)
        model::release(story, released);
    return outcome;
}

void compare(const Call &call, const ei2c_client &device, const std::vector<Try> &tries, int serial,
             int released = 0)
{
    Story story = {device.bus};
    const auto outcome = model_call(call, device, tries, story, serial, released);
    EXPECT_PLAY(outcome.result, call.run(&device), story.script) << model::described(tries);
    const int error = errno;
    if (outcome.result < 0 && outcome.error != 0) {
        EXPECT_EQ(error, outcome.error) << model::described(tries);
    }
}

class RetryLoop : public testing::TestWithParam<std::tuple<Call, int>>
{
};

TEST_P(RetryLoop, FollowsEveryPatternOfFailures)
{
    const auto &[call, switches] = GetParam();
    const ei2c_client device = model::device_behind(switches, 3);
    warm_up(3);
    int serial = 0;
    for (const auto &tries : model::sequences(switches, call.parts)) {
        compare(call, device, tries, ++serial);
        if (HasFailure())
            return;
    }
}

INSTANTIATE_TEST_SUITE_P(Calls, RetryLoop,
                         testing::Combine(testing::Values(one, two, smbus_locked, smbus_unlocked),
                                          testing::Values(0, 1, 2)),
                         [](const auto &row) {
                             return printed("%s_%d_switches", std::get<0>(row.param).name,
                                            std::get<1>(row.param));
                         });

TEST(OneTry, OpensTransfersAndClosesOrStopsAtTheSelect)
{
    warm_up(3);
    for (int switches = 0; switches <= 2; ++switches)
        for (const bool success : {true, false})
            for (const Try &attempt : model::ways(switches, 1, success))
                for (int kind = 0; kind < 4; ++kind)
                    compare(once, model::device_behind(switches, 3), {attempt}, kind);
}

TEST(RetryLoopAlone, RefusesAChannelAboveSevenFourTimesWithoutTraffic)
{
    warm_up(3);
    const std::string text = with_errno(0);
    for (const Call &call : {one, two, smbus_locked, smbus_unlocked}) {
        SCOPED_TRACE(call.name);
        ei2c_client device = model::device_behind(2, 3);
        device.swi_chnl = 0x00080003;
        Story story = {3};
        if (call.locks)
            model::take(story);
        for (int times = 0; times < 4; ++times)
            story.script += line135("swi_select(3,700071,524291) = -12345678, %s\n", text.c_str());
        story.script += line135("bus=3, addr=50, swiaddr=700071, swichnl=524291, ret=-12345678, "
                                "xfer=-1, tries=4, retries=3, errno=0, %s\n",
                                error_text(0).c_str());
        if (call.locks)
            model::release(story);
        EXPECT_PLAY(-1, call.run(&device), story.script);
    }
}

TEST(RetryLoopAlone, ClosesWhatItOpenedThoughTheSwitchIsLookedUpDifferentlyMeanwhile)
{
    warm_up(3);
    const ei2c_client device = model::device_behind(2, 3);
    Story story = {3};
    model_call(smbus_locked, device, {{}}, story);
    for (Event &event : story.script)
        if (event.text.find("I2C_SMBUS") != std::string::npos)
            event.meanwhile = [] { ui2c_to_client(3, 0x51, 0x71, 0); }; // another thread's device
    EXPECT_PLAY(0, smbus_locked.run(&device), story.script);
}

class TakingTheBus : public testing::TestWithParam<Call>
{
};

TEST_P(TakingTheBus, StopsWhereItFails)
{
    warm_up(3);
    const auto run = GetParam().run;
    const ei2c_client device = model::device_behind(2, 3);
    const ei2c_client elsewhere = model::device_behind(2, fresh_bus());
    const ei2c_client nowhere = model::device_behind(0, fresh_bus());

    fail_next_mutex_lock();
    EXPECT_PLAY(-1, run(&device), {no_registry()});

    Script no_adapter = argument_check("ui2c_ioctls", "ui2c_adapter_fd", "adapter");
    no_adapter += line135("fd = -1, %s\n", with_errno(ENOMEM).c_str());
    fail_allocation(1);
    EXPECT_PLAY(-12345678, run(&nowhere), no_adapter);

    std::string error = with_errno(ENOENT);
    EXPECT_PLAY(-12345678, run(&elsewhere),
                {open_bus(elsewhere.bus, -4, ENOENT),
                 line132("open /dev/i2c-%u failed, fd = -4, %s\n", elsewhere.bus, error.c_str()),
                 line135("fd = -4, %s\n", error.c_str())});

    EXPECT_PLAY(-1, run(&elsewhere), // a bus that cannot be locked
                {open_bus(elsewhere.bus, fd_of(elsewhere.bus)), no_semaphore(elsewhere.bus),
                 line135("lock_adapter(%u) failed, %s\n", elsewhere.bus, with_errno(0).c_str())});

    error = with_errno(EIDRM);
    EXPECT_PLAY(
        -1, run(&device),
        {lock_semaphore(3, -1, EIDRM),
         line132("bus:3 OAL_SemLockBySemId failed: %d, %s\n", EIDRM, error_text(EIDRM).c_str()),
         line135("lock_adapter(3) failed, %s\n", error.c_str())});
}

TEST_P(TakingTheBus, WithoutTheFileLockReleasesTheSemaphoreAlone)
{
    warm_up(3);
    const ei2c_client device = model::device_behind(2, 3);
    const char *refused = "Cannot obtain exclusive lock on i2c device file";
    for (const int released : {0, -6}) {
        Script script = {
            lock_semaphore(3), lock_file(fd_of(3), -1, ENOLCK),
            line132("fd:%d Error getting exclusive lock: No locks available", fd_of(3)),
            GetParam().runtime_line_for_file_lock ? line135("%s", refused)
                                                  : line132("%s", refused)};
        Story rest = {3};
        model::release(rest, released);
        rest.script.erase(rest.script.begin()); // the file was not locked
        EXPECT_PLAY(-1, GetParam().run(&device), script += rest.script);
    }
}

TEST_P(TakingTheBus, ReportsAFailedReleaseAndKeepsTheResultAndErrno)
{
    warm_up(3);
    for (const int failing : {0, 1})
        compare(GetParam(), model::device_behind(1, 3),
                std::vector<Try>(failing != 0 ? 4 : 1, {false, false, failing, false, false}), 7,
                -5);
}

INSTANTIATE_TEST_SUITE_P(Calls, TakingTheBus, testing::Values(one, two, once, smbus_locked),
                         [](const auto &row) { return std::string(row.param.name); });

TEST(Owner, IsRecordedForTheBusTaken)
{
    warm_up(3);
    warm_up(8);
    for (const Call &call : {one, two, once, smbus_locked, smbus_unlocked}) {
        owner_table()[3] = owner_table()[8] = 0;
        compare(call, model::device_behind(0, 8), {{}}, 0);
        EXPECT_EQ(owner_table()[8], call.locks ? pid : 0U) << call.name;
        EXPECT_EQ(owner_table()[3], 0U);
    }
}

TEST(LockedTransfer, ReadsIntoTheCallersBuffersOrDoesNothingAtAll)
{
    warm_up(3);
    const ei2c_client device = model::device_behind(0, 3);
    Bytes answer(5, 0xee);
    i2c_msg msgs[] = {{0x50, 0, 1, second_byte}, {0x50, I2C_M_RD, 4, answer.data()}};
    for (const uint32_t count : {2U, 0U}) { // how many there are is not the call's business
        Story story = {3};
        model::take(story);
        model::rdwr(story, 0x50, msgs, count, {}, {1, 2, 3, 4});
        model::release(story);
        EXPECT_PLAY(static_cast<int32_t>(count), ei2c_rdwr_xfer(&device, msgs, count),
                    story.script);
    }
    EXPECT_EQ(answer, Bytes({1, 2, 3, 4, 0xee}));
}

TEST(LockedTransfer, NarrowsCommandAndDirectionOnlyForTheRawCall)
{
    warm_up(3);
    const ei2c_client device = {3, 0x50, QELI2C_CLIENT_PEC, 0, 0, ""};
    Story story = {3};
    model::take(story);
    model::smbus(story, device, 0, 0x34, 3, word);
    model::release(story);
    EXPECT_PLAY(0, ei2c_smbus_xfer(&device, 0x100, 0x1234, 3, word.data()), story.script);
}

} // namespace
