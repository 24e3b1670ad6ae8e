// The bridge hold under every pattern of switch failures, what it takes and gives back, and the bus
// status check.
#include "tests/unit/device_calls.h"

#include <cstring>

using namespace calls;
using namespace scripted;
using model::Story;

namespace
{

const char *const locking = "lockAndSelectBridge_Ridgeback";
const char *const unlocking = "unlockAndDeselectBridge_Ridgeback";

Event rb(const char *function, const std::string &text)
{
    return said("DbgOut 130 [libi2c_qelifc]", "RB: [%s] %s", function, text.c_str());
}

// The caller's two variables.
struct Hold {
    int32_t semid = semaphore_of(bus);
    int32_t fd = 88;
    int32_t lock(const ei2c_client &bridge)
    {
        return lockAndSelectBridge_Ridgeback(&bridge, &semid, &fd);
    }
    int32_t unlock(const ei2c_client &bridge)
    {
        return unlockAndDeselectBridge_Ridgeback(&bridge, &semid, &fd);
    }
};

// One attempt on a path: which of its switches fails, if any.
enum Attempt { good, near_fails, upstream_fails };

struct Path {
    const ei2c_client bridge;
    const int switches;
    Story story = {bus};
    model::Faults faults = {};

    int write(bool opening, bool near, bool fails)
    {
        const auto addr =
            static_cast<uint16_t>(near ? bridge.swi_addr & 0xffff : bridge.swi_addr >> 16);
        const uint8_t channel = near ? 1 << 3 : 1 << 5;
        const int result =
            model::write_byte(story, addr, opening ? channel : 0, faults.next(fails));
        if (result < 0)
            story.script +=
                rb(opening ? locking : unlocking,
                   printed("%s(%u,%x,%u) = %d\n", opening ? "swi_select" : "swi_deselect",
                           bridge.bus, bridge.swi_addr, bridge.swi_chnl, result));
        return result;
    }
    // Opens upstream first, closes near first; stops at the switch that fails.
    int attempt(bool opening, Attempt outcome)
    {
        const bool near_first = !opening || switches == 1;
        int ret = write(opening, near_first, outcome == (near_first ? near_fails : upstream_fails));
        if (ret >= 0 && switches == 2)
            ret = write(opening, opening, outcome == (opening ? near_fails : upstream_fails));
        return ret;
    }
};

// All patterns of four attempts.
template <class Body>
void for_all_patterns(int switches, Body body)
{
    for (int code = 0; code < (switches == 2 ? 81 : 16); ++code) {
        SCOPED_TRACE(printed("%d switches, pattern %d", switches, code));
        Attempt attempts[4];
        for (int i = 0, rest = code; i < 4; ++i, rest /= switches + 1)
            attempts[i] = static_cast<Attempt>(rest % (switches + 1));
        body(Path{device(switches), switches}, attempts);
    }
}

TEST(BridgeHold, TriesFourTimesToOpenThePathAndHoldsTheBusInAnyCase)
{
    warm_up(bus);
    owner_table()[bus] = 0xcafe;
    for (const int switches : {1, 2})
        for_all_patterns(switches, [](Path path, const Attempt *attempts) {
            model::take(path.story);
            for (int i = 0; i < 4 && path.attempt(true, attempts[i]) < 0; ++i)
                ;
            Hold hold = {-5, -5};
            EXPECT_RUN(0, hold.lock(path.bridge), path.story.script);
            EXPECT_EQ(hold.semid, semaphore_of(bus));
            EXPECT_EQ(hold.fd, fd_of(bus));
        });
    EXPECT_EQ(owner_table()[bus], 0xcafe); // who holds a bridge is not recorded
}

TEST(BridgeHold, ClosesThePathFourTimesAndReleasesTheBus)
{
    for (const int switches : {1, 2})
        for_all_patterns(switches, [](Path path, const Attempt *attempts) {
            const ei2c_client &bridge = path.bridge;
            int ret = -1;
            for (int i = 0; i < 4; ++i)
                ret = path.attempt(false, attempts[i]);
            Script script = path.story.script;
            if (ret < 0)
                script += rb(unlocking, printed("bus=%u, addr=50, swiaddr=%x, swichnl=%u, ret=%d\n",
                                                bus, bridge.swi_addr, bridge.swi_chnl, ret));
            script = script + unlock_file(88) + unlock_semaphore(bus);
            Hold hold;
            EXPECT_RUN(0, hold.unlock(bridge), script);
            script.back() = unlock_semaphore(bus, -6); // a failed release is told, no more
            EXPECT_RUN(0, hold.unlock(bridge),
                       script + rb(unlocking, printed("unlock_adapter(%u) = -6\n", bus)));
        });
}

TEST(BridgeHold, KeepsItsOwnPathWhenAnotherThreadLooksItsSwitchUpMeanwhile)
{
    const ei2c_client bridge = device(2);
    Path path = {bridge, 2};
    model::take(path.story);
    path.attempt(true, good);
    path.story.script[0].meanwhile = [near = bridge.swi_addr & 0xffff] {
        ui2c_to_client(bus, 0x51, near, 0);
    };
    path.story.script[0].meanwhile(); // makes its record
    Hold hold;
    EXPECT_RUN(0, hold.lock(bridge), path.story.script);
}

TEST(BridgeHold, OfADeviceWithoutSwitchesWritesNone)
{
    const ei2c_client bridge = device(0);
    Hold hold;
    EXPECT_RUN(0, hold.lock(bridge), {lock_semaphore(bus), lock_file(fd_of(bus))});
    EXPECT_RUN(0, hold.unlock(bridge),
               {rb(unlocking, printed("bus=%u, addr=50, swiaddr=0, swichnl=0, ret=-1\n", bus)),
                unlock_file(fd_of(bus)), unlock_semaphore(bus)});
}

TEST(BridgeHold, HoldsTheBusWhenAChannelDoesNotExist)
{
    ei2c_client bridge = device(1);
    bridge.swi_chnl = 0x10008; // the high half belongs to no switch here
    Script script = {lock_semaphore(bus), lock_file(fd_of(bus))};
    script.resize(6, rb(locking, printed("swi_select(%u,71,65544) = -12345678\n", bus)));
    Hold hold;
    EXPECT_RUN(0, hold.lock(bridge), script);
}

TEST(BridgeHold, FailsWithNothingHeld)
{
    const ei2c_client bridge = device(1);
    ei2c_client closed = bridge;
    closed.bus = fresh_bus();
    Hold hold = {77, 88};
    EXPECT_EQ(play({open_bus(closed.bus, -9, ENOENT),
                    line132("open /dev/i2c-%u failed, fd = -9, errno = %d, %s\n", closed.bus,
                            ENOENT, error_text(ENOENT).c_str()),
                    rb(locking, "*pfd = -9\n")},
                   [&] { return hold.lock(closed); }),
              -1);
    EXPECT_EQ(hold.fd, -9);
    EXPECT_EQ(hold.semid, 77);

    EXPECT_RUN(-1, hold.lock(bridge),
               {lock_semaphore(bus, 2, EIDRM),
                line132("bus:%u OAL_SemLockBySemId failed: %d, %s\n", bus, EIDRM,
                        error_text(EIDRM).c_str()),
                rb(locking, printed("lock_adapter(%u) failed\n", bus))});
    EXPECT_EQ(hold.fd, fd_of(bus));
    EXPECT_EQ(hold.semid, -1);

    Script script = {lock_semaphore(bus),
                     lock_file(fd_of(bus), -1, EAGAIN),
                     line132("fd:%d Error getting exclusive lock: Resource temporaril", fd_of(bus)),
                     rb(locking, "Cannot obtain exclusive lock on i2c device file"),
                     unlock_file(fd_of(bus)),
                     unlock_semaphore(bus)};
    EXPECT_RUN(-1, hold.lock(bridge), script);
    script.back() = unlock_semaphore(bus, -6);
    EXPECT_RUN(-1, hold.lock(bridge),
               script + rb(locking, printed("unlock_adapter(%u) = -6\n", bus)));
}

TEST(BridgeHold, OfAnUnknownDeviceIsReleasedNevertheless)
{
    const ei2c_client bridge = device(1);
    const Event no_mutex = on_stdout("pthread_mutex_lock failed.\n");
    Hold hold;
    fail_next_mutex_lock();
    EXPECT_RUN(-1, hold.lock(bridge), {no_mutex, rb(locking, "_uc is NULL\n")});
    EXPECT_EQ(hold.fd, 88);
    for (const int result : {0, -2}) {
        Script script = {no_mutex, unlock_file(88), unlock_semaphore(bus, result)};
        if (result < 0)
            script += rb(unlocking, printed("unlock_adapter(%u) = -2\n", bus));
        fail_next_mutex_lock();
        EXPECT_RUN(-1, hold.unlock(bridge), script + rb(unlocking, "_uc is NULL\n"));
    }
}

TEST(BridgeHold, ChecksItsArgumentsFirst)
{
    const ei2c_client bridge = device(1);
    int32_t semid = 77, fd = 88;
    const struct {
        const ei2c_client *bridge;
        int32_t *semid, *fd;
    } rows[] = {{nullptr, &semid, &fd}, {&bridge, nullptr, &fd}, {&bridge, &semid, nullptr}};
    const char *const text = "eclient or psdwSemId or pfd is NULL\n";
    for (const auto &row : rows) {
        EXPECT_RUN(-1, lockAndSelectBridge_Ridgeback(row.bridge, row.semid, row.fd),
                   {rb(locking, text)});
        EXPECT_RUN(-1, unlockAndDeselectBridge_Ridgeback(row.bridge, row.semid, row.fd),
                   {rb(unlocking, text)});
    }
    EXPECT_EQ(semid, 77);
    EXPECT_EQ(fd, 88);
}

Event read_register(uint32_t address, int result, uint32_t value)
{
    Bytes bytes(sizeof(value));
    memcpy(bytes.data(), &value, sizeof(value));
    return {printed("mmap_read32 %x", address), result, 0, bytes};
}

TEST(BusStatus, IsBitSixteenOfTheBussOwnRegister)
{
    constexpr struct {
        uint32_t bus, address, value;
        uint8_t status;
    } rows[] = {{0, 0x1E78A088, 0x00010000, 1},  {1, 0x1E78A108, 0xFFFEFFFF, 0},
                {7, 0x1E78A408, 0xFFFFFFFF, 1},  {8, 0x1E78A488, 0, 0},
                {14, 0x1E78A788, 0x00020000, 0}, {15, 0x1E78A808, 0x80018000, 1}};
    for (const auto &row : rows) {
        Buffer status(1);
        EXPECT_RUN(0, i2c_bus_status_check(row.bus, status.data()),
                   {read_register(row.address, 0, row.value),
                    said("Runtime_DbgOut 135 [libi2c_qelifc]",
                         "regAddr: 0x%x, regData: 0x%x, status: 0x%x\n", row.address, row.value,
                         row.status)});
        EXPECT_EQ(status.bytes(), Bytes{row.status});
    }
}

TEST(BusStatus, IsNotWrittenOnFailure)
{
    Buffer status(1);
    const std::string error = "DbgOut 130 [libi2c_qelifc]";
    for (const int result : {-1, 1})
        EXPECT_RUN(-1, i2c_bus_status_check(3, status.data()),
                   {read_register(0x1E78A208, result, 0x00010000),
                    said(error, "mmap read  error, regAddr: 0x1e78a208\n")});
    for (const uint32_t number : {16U, 0x02000000U, 0xffffffffU})
        EXPECT_RUN(-1, i2c_bus_status_check(number, status.data()),
                   {said(error, "busNo: %u, is invalid value!\n", number)});
    EXPECT_TRUE(status.untouched());
}

} // namespace
