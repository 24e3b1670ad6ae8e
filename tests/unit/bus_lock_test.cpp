// The descriptor and semaphore of a bus, the file lock, and the access-owner table.
#include "tests/unit/scripted_kernel.h"

#include "include/qeli2c.h"

#include <gtest/gtest.h>
#include <sys/mman.h>

using namespace scripted;

namespace
{

TEST(DeviceFile, IsOpenedOnceAndAgainAfterAFailure)
{
    ui2c_adapter *adapter = ui2c_to_adapter(fresh_bus());
    const auto call = [&] { return ui2c_adapter_fd(adapter); };
    for (const auto &[result, error] : {std::pair(-1, ENOENT), {-7, EMFILE}}) {
        const Script script = {open_bus(adapter->bus, result, error),
                               line132("open /dev/i2c-%u failed, fd = %d, errno = %d, %s\n",
                                       adapter->bus, result, error, error_text(error).c_str())};
        EXPECT_PLAY(result, call(), script);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(adapter->data->fd, result);
    }
    EXPECT_PLAY(0, call(), {open_bus(adapter->bus, 0)}); // 0 is a descriptor
    EXPECT_PLAY(0, call(), Script{});
}

TEST(DeviceFile, IsNamedByTheBusAsASignedNumber)
{
    ui2c_adapter *adapter = ui2c_to_adapter(0xfffffffb);
    EXPECT_PLAY(77, ui2c_adapter_fd(adapter), {open_bus(adapter->bus, 77)});
}

TEST(Semaphore, HasTheKeyOfItsBusAndIsCreatedOnce)
{
    for (const auto &[bus, key] : {std::pair(0U, 12384U), {15U, 12399U}}) {
        ui2c_adapter *adapter = ui2c_to_adapter(bus);
        const auto call = [&] { return ipc_lock_adapter(adapter); };
        const Script first = {create_semaphore(key, semaphore_of(bus)), lock_semaphore(bus)};
        EXPECT_PLAY(semaphore_of(bus), call(), first);
        EXPECT_PLAY(semaphore_of(bus), call(), {lock_semaphore(bus)});
    }
}

TEST(Semaphore, IsCreatedAgainAfterAFailure)
{
    ui2c_adapter *adapter = ui2c_to_adapter(14);
    const auto call = [&] { return ipc_lock_adapter(adapter); };
    EXPECT_PLAY(-6, call(), {create_semaphore(12398, -6, ENOSPC), no_semaphore(14)});
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_PLAY(
        -1, call(),
        {create_semaphore(12398, semaphore_of(14)), lock_semaphore(14, 3, EIDRM),
         line132("bus:14 OAL_SemLockBySemId failed: %d, %s\n", EIDRM, error_text(EIDRM).c_str())});
    EXPECT_PLAY(semaphore_of(14), call(), {lock_semaphore(14)}); // the id stayed
}

TEST(Semaphore, ExistsOnlyForBusesUpToFifteen)
{
    for (const uint32_t bus : {16U, 0xffffffffU}) {
        ui2c_adapter *adapter = ui2c_to_adapter(bus);
        EXPECT_PLAY(-1, ipc_lock_adapter(adapter), {no_semaphore(bus)});
    }
    EXPECT_PLAY(61, ui2c_adapter_fd(ui2c_to_adapter(16)), {open_bus(16, 61)});
}

TEST(Release, PassesTheServicesResultOn)
{
    EXPECT_PLAY(5, ipc_unlock_adapter(semaphore_of(9)), {unlock_semaphore(9, 5)});
    EXPECT_PLAY(-3, ipc_unlock_adapter(semaphore_of(9)), {unlock_semaphore(9, -3, EPERM)});
    Event refused = unlock_file(33);
    refused.result = -2;
    EXPECT_PLAY(-2, surrender_i2c_access(33), {refused});
}

TEST(FileLock, CutsTheErrorTextToNineteenCharacters)
{
    EXPECT_PLAY(0, exclusive_file_lock(33), {lock_file(33, 4)});
    EXPECT_PLAY(-1, exclusive_file_lock(33),
                {lock_file(33, -2, ENOLCK),
                 line132("fd:33 Error getting exclusive lock: No locks available")});
    EXPECT_PLAY(-1, exclusive_file_lock(33),
                {lock_file(33, -1, EAGAIN),
                 line132("fd:33 Error getting exclusive lock: Resource temporaril")});
}

// Runs a body in a process of its own, where the owner table is not mapped yet.
template <class Body>
void in_new_process(Body body)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [&] {
        body();
        exit(testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(0), "");
}

int32_t record_owner(uint32_t bus)
{
    return getPidOfI2CAccess(ui2c_to_adapter(bus));
}

TEST(OwnerTable, IsMappedOnceAndKeepsTheProcessIdOfThatMoment)
{
    in_new_process([] {
        std::fill_n(owner_table(), 32, 0xcafeU);
        pretend_process_id(4711);
        play({open_memory(), map_memory(), close_memory()}, [] { return record_owner(3); });
        EXPECT_EQ(mapFlag, 1U);
        EXPECT_EQ(tpidMap, reinterpret_cast<uintptr_t>(owner_table()));
        EXPECT_EQ(pid, 4711U);
        pretend_process_id(4712);
        for (const uint32_t bus : {0U, 15U, 16U, 20U, 0xffffffffU})
            play({}, [&] { return record_owner(bus); });
        for (uint32_t slot = 0; slot < 32; ++slot)
            EXPECT_EQ(owner_table()[slot], slot == 0 || slot == 3 || slot == 15 ? 4711U : 0xcafeU);
    });
}

TEST(DeviceFile, OfABusWhoseNumberDoesNotFitItsPathIsNotOpened)
{
    ui2c_adapter *adapter = ui2c_to_adapter(12345678);
    EXPECT_PLAY(
        -1, ui2c_adapter_fd(adapter),
        {line132("open /dev/i2c-123456 failed, fd = -1, %s\n", with_errno(ENODEV).c_str())});
}

} // namespace
