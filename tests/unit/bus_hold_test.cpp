// Holding a bus across calls, and the MCTP calls that run inside such a hold.
#include "tests/unit/transfer_model.h"

#include <cstring>
#include <gtest/gtest.h>

using namespace scripted;
using model::Fault;
using model::Story;

namespace
{

const ei2c_client bare = model::device_behind(0, 5);

struct Taking {
    const char *name;
    int32_t (*run)(const ei2c_client *, int32_t *, int32_t *);
    bool opens_path;
};
const Taking lock_only = {"ei2c_smbus_lock_adapter", ei2c_smbus_lock_adapter, false};
const Taking with_path = {"ei2c_smbus_select_switch", ei2c_smbus_select_switch, true};

// Runs the call and sees that the outputs are written exactly with a result of 0 or more.
void expect_taken(const Taking &taking, int32_t expected, const ei2c_client &device,
                  const Script &script)
{
    SCOPED_TRACE(taking.name);
    int32_t fd = -77;
    int32_t semaphore = -78;
    EXPECT_PLAY(expected, taking.run(&device, &fd, &semaphore), script);
    EXPECT_EQ(fd, expected >= 0 ? fd_of(device.bus) : -77);
    EXPECT_EQ(semaphore, expected >= 0 ? semaphore_of(device.bus) : -78);
}

TEST(TakingAHold, OfAFreeBusHandsItOut)
{
    warm_up(5);
    for (const Taking &taking : {lock_only, with_path}) {
        owner_table()[5] = 0;
        Story story = {5};
        model::take(story);
        if (!taking.opens_path)
            story.script += line135("ei2c_smbus_lock_adapter success. \n");
        expect_taken(taking, 0, bare, story.script);
        EXPECT_EQ(owner_table()[5], pid);
    }
}

TEST(TakingAHold, StopsWhereItFails)
{
    warm_up(5);
    for (const Taking &taking : {lock_only, with_path}) {
        fail_next_mutex_lock();
        expect_taken(taking, -1, bare, {no_registry()});
        expect_taken(
            taking, -12345678, model::device_behind(1, 65534),
            {open_bus(65534, -1, ENOENT),
             line132("open /dev/i2c-65534 failed, fd = -1, %s\n", with_errno(ENOENT).c_str()),
             line135("fd = -1, errno = 2 \n")});
        const std::string text = error_text(EIDRM);
        expect_taken(taking, -2, bare,
                     {lock_semaphore(5, -1, EIDRM),
                      line132("bus:5 OAL_SemLockBySemId failed: %d, %s\n", EIDRM, text.c_str()),
                      taking.opens_path
                          ? line135("lock_adapter(5) failed, errno = %d, %s\n", EIDRM, text.c_str())
                          : line135("lock_adapter(5) failed, errno = %d\n", EIDRM)});
        for (const int released : {0, -9}) {
            Script script = {
                lock_semaphore(5), lock_file(fd_of(5), -1, ENOLCK),
                line132("fd:%d Error getting exclusive lock: No locks available", fd_of(5)),
                line135("Cannot obtain shared lock on i2c device file")};
            Story rest = {5};
            model::release(rest, released);
            rest.script.erase(rest.script.begin()); // the file was not locked
            expect_taken(taking, released < 0 ? -3 : -4, bare, script += rest.script);
        }
    }
}

TEST(AnyHold, OfABusAbove65534IsRefusedInSilence)
{
    for (const uint32_t bus : {65535U, 0xffffffffU}) {
        const ei2c_client high = model::device_behind(1, bus);
        expect_taken(lock_only, -1, high, {});
        expect_taken(with_path, -1, high, {});
        EXPECT_PLAY(-1, ei2c_smbus_unlock_adapter(&high, 41, 7), Script{});
        EXPECT_PLAY(-1, ei2c_smbus_deselect_switch(&high, 41, 7), Script{});
    }
}

// Up to four attempts, of which the first ones fail, at one switch or the other in turn.
struct Attempts {
    int switches, failing, first_failing;
    bool fails(int attempt, int written) const
    {
        return attempt < failing && (attempt + first_failing) % switches == written;
    }
};

std::vector<Attempts> all_attempts()
{
    std::vector<Attempts> all = {{0, 0, 0}};
    for (int switches = 1; switches <= 2; ++switches)
        for (int failing = 0; failing <= 4; ++failing)
            for (int first_failing = 0; first_failing < switches; ++first_failing)
                all.push_back({switches, failing, first_failing});
    return all;
}

TEST(HeldPath, IsOpenedInAtMostFourAttempts)
{
    warm_up(5);
    for (const Attempts &row : all_attempts())
        for (const int released : {0, -9}) {
            SCOPED_TRACE(testing::Message() << row.switches << row.failing << row.first_failing);
            const ei2c_client device = model::device_behind(row.switches, 5);
            model::Faults faults;
            Story story = {5};
            model::take(story);
            int ret = -1;
            for (int i = 0; i < 4 && ret < 0; ++i) {
                const bool upstream = row.switches == 2 && row.fails(i, 0);
                const bool near = row.switches != 0 && row.fails(i, row.switches - 1);
                ret = model::open_path(story, device, {upstream, near, 0, false, false}, faults,
                                       false);
            }
            if (ret < 0)
                model::release(story, released);
            expect_taken(with_path, ret >= 0 ? ret : (released < 0 ? -3 : -5), device,
                         story.script);
        }
}

TEST(HeldPath, IsClosedInAtMostFourAttemptsAndTheBusReleasedAnyway)
{
    warm_up(5);
    for (const Attempts &row : all_attempts())
        for (const int released : {6, -9}) {
            SCOPED_TRACE(testing::Message() << row.switches << row.failing << row.first_failing);
            const ei2c_client device = model::device_behind(row.switches, 5);
            model::Faults faults;
            Story story = {5};
            int ret = -1;
            for (int i = 0; i < 4 && row.switches != 0 && ret < 0; ++i) {
                ret = 0;
                for (int written = 0; written < row.switches && ret >= 0; ++written) {
                    ret = model::write_byte(story, written == 0 ? 0x71 : 0x70, 0,
                                            faults.next(row.fails(i, written)));
                    model::line_if_failed(story, device, "swi_deselect", ret, false);
                }
            }
            model::release(story, released);
            EXPECT_PLAY(released, ei2c_smbus_deselect_switch(&device, fd_of(5), semaphore_of(5)),
                        story.script);
        }
}

TEST(ReleasingAHold, GivesTheResultOfTheSemaphore)
{
    for (const int released : {3, -4}) {
        Story story = {5};
        model::release(story, released);
        if (released >= 0)
            story.script += line135("ei2c_smbus_unlock_adapter success. \n");
        EXPECT_PLAY(released, ei2c_smbus_unlock_adapter(&bare, fd_of(5), semaphore_of(5)),
                    story.script);
    }
    fail_next_mutex_lock(); // no record: the bus is released all the same
    EXPECT_PLAY(-1, ei2c_smbus_deselect_switch(&bare, fd_of(5), semaphore_of(5)),
                {no_registry(), unlock_file(fd_of(5)), unlock_semaphore(5)});
}

TEST(MctpTransfer, ReadsTheResponseOfAWrite)
{
    const Fault broken = {Fault::request, -6, EREMOTEIO};
    const struct {
        const char *what;
        uint32_t direction;
        int32_t write_only;
        Fault write;
        bool reads;
        int response;
    } rows[] = {
        {"write and response", 0, 0, {}, true, 4},
        {"empty response", 0, 0, {}, true, 0},
        {"failed response", 0, 0, {}, true, -3},
        {"response after a failed write", 0, 0, broken, true, 4},
        {"failed write alone", 0, 1, broken, false, 0},
        {"write alone", 0, -1, {}, false, 0},
        {"a read", 1, 0, {}, false, 0},
        {"a direction that only narrows to a write", 0x100, 0, {}, false, 0},
    };
    warm_up(5);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        const ei2c_client device = {5, 0x32, QELI2C_CLIENT_PEC, 0x71, 3, "fifteen letters"};
        Bytes data(QELI2C_SMBUS_AREA, 2);
        Bytes response(8, 0xee);
        uint32_t length = 99;
        Story story = {5};
        int expected = model::smbus(story, device, row.direction & 0xff, 0x0f, 5, data, row.write);
        if (expected < 0)
            story.script += line135("ui2c_smbus_xfer(5,32) = %d, %s\n", expected,
                                    with_errno(story.error).c_str());
        if (row.reads) {
            expected = row.response;
            story.script += read_mctp(61, expected, expected < 0 ? ENODATA : 0);
            if (expected < 0)
                story.script += line135("pcie name fifteen letters, I2C ioctl ret -3, %s\n",
                                        with_errno(ENODATA).c_str());
        }
        EXPECT_PLAY(expected,
                    ei2c_smbus_xfer_wtrd(&device, 61, row.direction, 0x10f, 5, data.data(),
                                         response.data(), &length, row.write_only),
                    story.script);
        EXPECT_EQ(length, row.response > 0 ? 4U : 0U);
    }
}

TEST(MctpResponse, IsReadAlone)
{
    for (const auto &call : {qel_ei2c_smbus_xfer_read, qel_ei2c_smbus_mctp_read_block_data})
        for (const int result : {6, 0, -2}) {
            Bytes response(8, 0xee);
            uint32_t length = 99;
            Script script = {read_mctp(61, result, 0, Bytes(result > 0 ? 6U : 0U, 1))};
            if (result <= 0)
                script += line135("pcie name node, ioctl I2C_MCTP_READ finsh ret: %d \n", result);
            EXPECT_PLAY(result, call(&bare, 61, response.data(), &length), script);
            EXPECT_EQ(length, result > 0 ? 6U : 0U);
            EXPECT_EQ(response[5], result > 0 ? 1 : 0xee);
            EXPECT_EQ(response[6], 0xee);
        }
}

TEST(MctpResponse, OfADeviceWhoseNameHasNoEndPrintsTheRecordsNameOnly)
{
    ei2c_client device = {5, 0x32, 0, 0, 0, {}};
    memset(device.pcie_name, 'n', sizeof(device.pcie_name));
    uint8_t value = 0;
    uint32_t length = 99;
    EXPECT_PLAY(0, qel_ei2c_smbus_xfer_read(&device, 61, &value, &length),
                {read_mctp(61, 0),
                 line135("pcie name nnnnnnnnnnnnnnnn, ioctl I2C_MCTP_READ finsh ret: 0 \n")});
}

} // namespace
