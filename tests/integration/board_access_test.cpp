// Locked access on the simulated board: who may use a bus at a time, and what a killed holder
// leaves behind.
#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "qeli2c.h"
#include "simboard/testing.h"

namespace
{

using simboard::testing::Board;

constexpr char kDescription[] = R"({
  "name": "access",
  "buses": [ { "bus": 4, "devices": [
    { "name": "near", "type": "registers", "address": "0x60" },
    { "name": "first", "type": "pca9548", "address": "0x70", "channels": { "5": [
      { "name": "middle", "type": "registers", "address": "0x21" },
      { "name": "second", "type": "pca9548", "address": "0x71", "channels": { "3": [
        { "name": "far", "type": "registers", "address": "0x22" } ] } } ] } } ] } ]
})";

Board &board()
{
    static Board one(kDescription);
    return one;
}

ei2c_client device(uint16_t addr, uint32_t swi_addr, uint32_t swi_chnl)
{
    ei2c_client client = {};
    client.bus = 4;
    client.addr = addr;
    client.swi_addr = swi_addr;
    client.swi_chnl = swi_chnl;
    return client;
}

const ei2c_client near_device = device(0x60, 0, 0);
const ei2c_client middle_device = device(0x21, 0x70, 5);
const ei2c_client far_device = device(0x22, 0x00700071, 0x00050003);

// A child process that does what `work` says and then waits to be killed, or ends with its result.
template <typename Work>
class Child
{
public:
    explicit Child(Work work)
    {
        int ends[2];
        if (pipe(ends) != 0)
            abort();
        pid_ = fork();
        if (pid_ == 0) {
            const int result = work();
            (void)!write(ends[1], "x", 1);
            if (result < 0)
                pause();
            _exit(result);
        }
        close(ends[1]);
        done_ = ends[0];
    }
    ~Child()
    {
        kill(pid_, SIGKILL);
        (void)waitpid(pid_, nullptr, 0);
        close(done_);
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    // Whether the child has done its work within so many milliseconds.
    bool is_done(int milliseconds) const
    {
        pollfd end = {done_, POLLIN, 0};
        return poll(&end, 1, milliseconds) == 1;
    }
    void kill_now() const { kill(pid_, SIGKILL); }

private:
    pid_t pid_ = -1;
    int done_ = -1;
};

constexpr int kStay = -1;

class BoardAccess : public testing::Test
{
protected:
    void SetUp() override { board().reset(); }
    void TearDown() override { EXPECT_EQ(board().wrongs(), ""); }
};

TEST_F(BoardAccess, OwnerTableNamesTheProcessThatTookTheBusLast)
{
    EXPECT_EQ(ei2c_smbus_write_byte_data(&near_device, 0, 1), 0);
    EXPECT_EQ(board().physical(0xB8210000 + 4 * 4), static_cast<uint32_t>(getpid()));
    EXPECT_EQ(board().physical(0xB8210000 + 4 * 5), 0U);
}

TEST_F(BoardAccess, HeldBusKeepsAnotherProcessOutUntilItIsReleased)
{
    int32_t fd = -1;
    int32_t semid = -1;
    ASSERT_GE(ei2c_smbus_select_switch(&far_device, &fd, &semid), 0);
    EXPECT_EQ(board().peek("second"), 0x08);
    {
        const Child other([] { return ei2c_smbus_write_byte_data(&near_device, 1, 2); });
        EXPECT_FALSE(other.is_done(200));
        EXPECT_EQ(ei2c_smbus_deselect_switch(&far_device, fd, semid), 0);
        EXPECT_TRUE(other.is_done(10000));
    }
    EXPECT_EQ(board().peek("near", 1), 2);
    EXPECT_EQ(board().peek("second"), 0);
}

TEST_F(BoardAccess, KilledHolderFreesTheBusAndItsOpenPathDoesNoHarm)
{
    {
        Child holder([] {
            int32_t fd = -1;
            int32_t semid = -1;
            return ei2c_smbus_select_switch(&far_device, &fd, &semid) >= 0 ? kStay : 1;
        });
        ASSERT_TRUE(holder.is_done(10000));
        EXPECT_EQ(board().peek("second"), 0x08);
        holder.kill_now();
        EXPECT_EQ(ei2c_smbus_write_byte_data(&middle_device, 3, 4), 0);
    }
    EXPECT_EQ(board().peek("middle", 3), 4);
    EXPECT_EQ(board().totals(4).orphaned_paths, 2U);
}

TEST_F(BoardAccess, ChildAfterForkUsesTheBusLikeAnyOtherProcess)
{
    EXPECT_EQ(ei2c_smbus_write_byte_data(&near_device, 5, 1), 0);
    const Child child([] {
        for (int i = 0; i < 200; ++i) {
            if (ei2c_smbus_write_byte_data(&far_device, 6, static_cast<uint8_t>(i)) != 0)
                return 1;
        }
        return 0;
    });
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(ei2c_smbus_write_byte_data(&middle_device, 6, static_cast<uint8_t>(i)), 0);
    EXPECT_TRUE(child.is_done(10000));
    EXPECT_EQ(board().peek("far", 6), 199);
}

} // namespace
