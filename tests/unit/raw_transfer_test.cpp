// Single requests: what the kernel is asked, what is traced and audited, and what comes back.
#include "tests/unit/transfer_model.h"

#include <gtest/gtest.h>
#include <span>
#include <unistd.h>

using namespace scripted;
using model::Fault;
using model::Story;

namespace
{

constexpr Fault faults[] = {{},
                            {Fault::slave, -3, EBUSY},
                            {Fault::wait, -1, EBADF},
                            {Fault::timeout, -1, ETIMEDOUT},
                            {Fault::request, -5, ENXIO},
                            {Fault::pec, -7, EINVAL}};

struct OpenBus {
    ui2c_adapter *adapter = ui2c_to_adapter(fresh_bus());
    int bus = static_cast<int>(adapter->bus);
    int fd = fd_of(adapter->bus);
    Story story = {adapter->bus};
    OpenBus()
    {
        observe({}, [this] { ui2c_adapter_fd(adapter); });
    }
    int smbus(unsigned direction, unsigned size, const Bytes &area, const Fault &fault = {},
              const Bytes &reply = {}, uint16_t flags = 0)
    {
        const ei2c_client device = {story.bus, 0x50, flags, 0, 0, ""};
        return model::smbus(story, device, direction, 0xfe, size, area, fault, reply);
    }
    int32_t run_smbus(unsigned direction, int size, uint8_t *data, uint16_t flags = 0) const
    {
        return ui2c_smbus_xfer(adapter, 0x50, flags, static_cast<char>(direction), 0xfe, size,
                               data);
    }
};

TEST(CombinedTransfer, FailsAtEachRequest)
{
    for (const Fault &fault : std::span(faults).first(5)) {
        SCOPED_TRACE(fault.at);
        OpenBus on;
        uint8_t offset[2] = {0x12, 0x34};
        Bytes answer(4, 0xee);
        i2c_msg msgs[] = {{0x50, 0, 2, offset}, {0x51, I2C_M_RD, 3, answer.data()}};
        const bool done = fault.at == Fault::nowhere;
        const Bytes reply = done ? Bytes{7, 8, 9} : Bytes{};
        const int expected = model::rdwr(on.story, 0x50, msgs, 2, fault, reply);
        EXPECT_PLAY(expected, ui2c_rdwr_xfer(on.adapter, 0x50, msgs, 2), on.story.script);
        EXPECT_EQ(errno, fault.error);
        EXPECT_EQ(answer, done ? Bytes({7, 8, 9, 0xee}) : Bytes(4, 0xee));
    }
}

TEST(CombinedTransfer, WithoutFirstBufferTracesMinusOne)
{
    OpenBus on;
    i2c_msg msg = {0x50, 0, 0, nullptr};
    model::rdwr(on.story, 0x23, &msg, 1);
    EXPECT_PLAY(1, ui2c_rdwr_xfer(on.adapter, 0x23, &msg, 1), on.story.script);
}

TEST(CombinedTransfer, HandsTheLowEightBitsOfTheCountToTheKernel)
{
    uint8_t value = 1;
    i2c_msg msgs[2] = {{0x50, 0, 1, &value}, {0x51, 0, 1, &value}};
    for (const auto &[num, handed] : {std::pair(258, 2), {256, 0}, {0, 0}, {-254, 2}}) {
        OpenBus on;
        const int32_t count = num;
        EXPECT_PLAY(
            handed, ui2c_rdwr_xfer(on.adapter, 0x50, msgs, count),
            {line135("ui2c_rdwr_xfer() bus=%d, addr=50 num=%d chl/offset=1 start\n", on.bus, num),
             set_slave(on.fd, true, 0x50), wait_ready(on.fd, true),
             transfer(on.fd, msgs, static_cast<uint32_t>(handed), handed),
             line135("ui2c_rdwr_xfer() bus=%d, addr=50 stop\n", on.bus)});
    }
}

TEST(RawByte, FailsAtEachRequest)
{
    for (const Fault &fault : faults) {
        SCOPED_TRACE(fault.at);
        OpenBus on;
        uint8_t zero = 0;
        const i2c_msg msg = {0x70, I2C_M_RD, 1, &zero};
        const int expected = model::rdwr(on.story, 0x70, &msg, 1, fault, {0x21});
        if (expected < 0)
            on.story.script +=
                line132("ui2c_rdwr_xfer = %d, %s\n", expected, with_errno(fault.error).c_str());
        uint8_t value = 0xee;
        EXPECT_PLAY(expected, ui2c_raw_read_byte(on.adapter, 0x70, &value), on.story.script);
        EXPECT_EQ(value, expected < 0 ? 0xee : 0x21);

        on.story.script.clear();
        model::write_byte(on.story, 0x70, 0x9a, fault);
        EXPECT_PLAY(expected, ui2c_raw_write_byte(on.adapter, 0x70, 0x9a), on.story.script);
        EXPECT_EQ(errno, expected < 0 ? fault.error : 0);
    }
}

TEST(SmbusTransfer, FailsAtEachRequestAndLeavesTheDataAlone)
{
    for (const Fault &fault : faults)
        for (const unsigned direction : {0U, 1U}) {
            SCOPED_TRACE(fault.at);
            OpenBus on;
            Bytes data(QELI2C_SMBUS_AREA, 0x11);
            const Bytes reply(QELI2C_SMBUS_AREA, 0x22);
            const int expected = on.smbus(direction, 3, data, fault, reply);
            EXPECT_PLAY(expected, on.run_smbus(direction, 3, data.data()), on.story.script);
            EXPECT_EQ(errno, fault.error);
            EXPECT_EQ(data,
                      expected == 0 && direction == 1 ? reply : Bytes(QELI2C_SMBUS_AREA, 0x11));
        }
}

TEST(SmbusTransfer, CopiesAllBytesTheWayTheTransactionGoes)
{
    const Bytes mine(QELI2C_SMBUS_AREA, 0x33);
    const Bytes reply(QELI2C_SMBUS_AREA, 0x44);
    // Bit 31 of the size never reaches the kernel, but keeps a process call from being taken for
    // one.
    const int marked_call = static_cast<int>(0x80000007U);
    const struct {
        unsigned direction;
        int size;
        bool in, out;
    } rows[] = {{1, 0, false, true},          {1, 2, false, true},
                {1, 5, false, true},          {0, 2, true, false},
                {0, 8, true, false},          {1, 7, true, true},
                {0, 7, true, true},           {2, 2, false, false},
                {2, 7, true, true},           {1, marked_call, false, true},
                {0, marked_call, true, false}};
    for (const auto &row : rows) {
        SCOPED_TRACE(printed("direction %u size %x", row.direction, row.size));
        OpenBus on;
        Bytes data = mine;
        EXPECT_PLAY(0, on.run_smbus(row.direction, row.size, data.data()),
                    {line135("ui2c_smbus_xfer() bus=%d, addr=50, r/w=%u cmd=254 start\n", on.bus,
                             row.direction),
                     set_slave(on.fd, false, 0x50), set_pec(on.fd, 0), wait_ready(on.fd, false),
                     smbus(on.fd, row.direction, 0xfe, static_cast<unsigned>(row.size & 0xff),
                           row.in ? mine : Bytes(), 0, 0, reply),
                     line135("ui2c_smbus_xfer() bus=%d, addr=50 stop\n", on.bus)});
        EXPECT_EQ(data, row.out ? reply : mine);
    }
}

TEST(SmbusTransfer, HandsTheKernelAnAreaWhenTheCallerHasNone)
{
    for (const unsigned direction : {0U, 1U}) {
        OpenBus on;
        on.smbus(direction, 7, {}, {}, {1, 2});
        EXPECT_PLAY(0, on.run_smbus(direction, 7, nullptr), on.story.script);
    }
}

TEST(SmbusTransfer, SetsPacketErrorCheckingEveryTime)
{
    OpenBus on;
    for (const uint16_t flags : std::initializer_list<uint16_t>{0x0004, 0, 0xffff, 0xfffb}) {
        on.story.script.clear();
        on.smbus(0, 1, {}, {}, {}, flags);
        EXPECT_PLAY(0, on.run_smbus(0, 1, nullptr, flags), on.story.script);
    }
}

TEST(Descriptor, AtTheSelectLimitIsRefusedWithoutASet)
{
    for (const int fd : {1023, 1024, 5000}) {
        SCOPED_TRACE(fd);
        ui2c_adapter *adapter = ui2c_to_adapter(fresh_bus());
        const int bus = static_cast<int>(adapter->bus);
        EXPECT_PLAY(fd, ui2c_adapter_fd(adapter), {open_bus(adapter->bus, fd)});
        uint8_t value = 3;
        i2c_msg msg = {0x50, 0, 1, &value};
        Script combined = {
            line135("ui2c_rdwr_xfer() bus=%d, addr=50 num=1 chl/offset=3 start\n", bus),
            set_slave(fd, true, 0x50)};
        Script command = {line135("ui2c_smbus_xfer() bus=%d, addr=50, r/w=0 cmd=3 start\n", bus),
                          set_slave(fd, false, 0x50), set_pec(fd, 0)};
        const bool fits = fd == 1023;
        if (fits) {
            combined += Script{wait_ready(fd, true), transfer(fd, &msg, 1, 1),
                               line135("ui2c_rdwr_xfer() bus=%d, addr=50 stop\n", bus)};
            command += Script{wait_ready(fd, false), smbus(fd, 0, 3, 1, {}),
                              line135("ui2c_smbus_xfer() bus=%d, addr=50 stop\n", bus)};
        } else {
            command += line132("Error waiting for bus to be readable");
        }
        EXPECT_PLAY(fits ? 1 : -1, ui2c_rdwr_xfer(adapter, 0x50, &msg, 1), combined);
        EXPECT_EQ(errno, fits ? 0 : EINVAL);
        EXPECT_PLAY(fits ? 0 : -1, ui2c_smbus_xfer(adapter, 0x50, 0, 0, 3, 1, nullptr), command);
        EXPECT_EQ(errno, fits ? 0 : EINVAL);
    }
}

TEST(Descriptor, ThatCannotBeOpenedGivesItsOwnResult)
{
    ui2c_adapter *adapter = ui2c_to_adapter(fresh_bus());
    const int bus = static_cast<int>(adapter->bus);
    const std::string error = with_errno(EACCES);
    const Script tail = {open_bus(adapter->bus, -2, EACCES),
                         line132("open /dev/i2c-%d failed, fd = -2, %s\n", bus, error.c_str()),
                         line132("fd = -2, %s\n", error.c_str())};
    uint8_t value = 0xff;
    i2c_msg msg = {0x50, 0, 1, &value};
    Script script = {line135("ui2c_rdwr_xfer() bus=%d, addr=50 num=1 chl/offset=255 start\n", bus)};
    EXPECT_PLAY(-12345678, ui2c_rdwr_xfer(adapter, 0x50, &msg, 1), script += tail);
    script = {line135("ui2c_smbus_xfer() bus=%d, addr=50, r/w=1 cmd=0 start\n", bus)};
    EXPECT_PLAY(-12345678, ui2c_smbus_xfer(adapter, 0x50, 0, 1, 0, 2, nullptr), script += tail);
}

TEST(NullAdapter, EndsInOneCheckAndReadsNothing)
{
    uint8_t value = 0;
    i2c_msg msg = {0x50, 0, 1, &value};
    Script check = argument_check("ui2c_ioctls", "ui2c_adapter_fd", "adapter");
    EXPECT_PLAY(-1, ui2c_rdwr_xfer(nullptr, 0x50, &msg, 1), check);
    EXPECT_PLAY(-1, ui2c_smbus_xfer(nullptr, 0x50, 0, 0, 1, 1, nullptr), check);
    check += line135("ui2c_rdwr_xfer = -1, %s\n", with_errno(0).c_str());
    EXPECT_PLAY(-1, ui2c_raw_write_byte(nullptr, 0x70, 1), check);
}

TEST(AuditOfMessages, RecordsExactlyTheWatchedWrite)
{
    const struct {
        const char *what;
        uint32_t bus;
        uint16_t addr, flags;
        Bytes bytes;
        int num;
        bool recorded;
    } rows[] = {
        {"one-byte offset", 4, 0x60, 0, {0x57, 0xb0}, 1, true},
        {"one-byte offset, more data", 4, 0x60, 0, {0x57, 0xb0, 1}, 1, true},
        {"two-byte offset", 4, 0x60, 0, {0x00, 0x57, 0xb0}, 1, true},
        {"two-byte offset without data", 4, 0x60, 0, {0x00, 0x57}, 1, false},
        {"offset alone", 4, 0x60, 0, {0x57}, 1, false},
        {"another value", 4, 0x60, 0, {0x57, 0xb1}, 1, false},
        {"another register", 4, 0x60, 0, {0x56, 0xb0, 0xb0}, 1, false},
        {"another two-byte register", 4, 0x60, 0, {0x01, 0x57, 0xb0}, 1, false},
        {"another register behind a two-byte offset", 4, 0x60, 0, {0x00, 0x56, 0xb0}, 1, false},
        {"another value behind a two-byte offset", 4, 0x60, 0, {0x00, 0x57, 0xb1}, 1, false},
        {"two messages", 4, 0x60, 0, {0x57, 0xb0}, 2, false},
        {"other flags", 4, 0x60, 0x10, {0x57, 0xb0}, 1, false},
        {"a read", 4, 0x60, I2C_M_RD, {0x57, 0xb0}, 1, false},
        {"another address", 4, 0x61, 0, {0x57, 0xb0}, 1, false},
        {"another bus", 5, 0x60, 0, {0x57, 0xb0}, 1, false},
    };
    for (const auto &row : rows)
        for (const Fault &fault : faults) {
            SCOPED_TRACE(row.what);
            warm_up(row.bus);
            Bytes bytes = row.bytes;
            bytes.push_back(0xb0); // no part of the message
            i2c_msg msgs[2] = {
                {row.addr, row.flags, static_cast<uint16_t>(row.bytes.size()), bytes.data()},
                {row.addr, 0, 0, nullptr}};
            Story story = {row.bus};
            const int expected =
                model::rdwr(story, row.addr, msgs, static_cast<uint32_t>(row.num), fault);
            if (row.recorded)
                story.script.insert(story.script.begin() + 1,
                                    {printed("_ssp_info 64 ui2c_ioctls ui2c_rdwr_xfer [%d] bus=4, "
                                             "addr=60 flag=0",
                                             getpid())});
            EXPECT_PLAY(expected, ui2c_rdwr_xfer(ui2c_to_adapter(row.bus), row.addr, msgs, row.num),
                        story.script);
        }
}

TEST(AuditOfSmbus, RecordsExactlyTheWatchedWrite)
{
    const struct {
        const char *what;
        uint32_t bus;
        uint16_t addr;
        unsigned direction, command, size;
        Bytes area; // empty: no data at all
        const char *recorded = nullptr;
    } rows[] = {
        {"byte", 4, 0x60, 0, 0x57, 2, {0xb0}, "data=b0"},
        {"byte, another value", 4, 0x60, 0, 0x57, 2, {0xb1}},
        {"byte, no data", 4, 0x60, 0, 0x57, 2, {}},
        {"word", 4, 0x60, 0, 0x57, 3, {0xb0, 0x12}, "data=12b0"},
        {"word, value in the high byte", 4, 0x60, 0, 0x57, 3, {0x12, 0xb0}},
        {"block", 4, 0x60, 0, 0x57, 5, {0x1f, 0xb0, 9}, "len=1f"},
        {"block, value later", 4, 0x60, 0, 0x57, 5, {2, 9, 0xb0}},
        {"block, value as count", 4, 0x60, 0, 0x57, 5, {0xb0, 9}},
        {"empty block", 4, 0x60, 0, 0x57, 5, {0, 0xb0}},
        {"I2C block", 4, 0x60, 0, 0x57, 8, {1, 0xb0}},
        {"send byte", 4, 0x60, 0, 0x57, 1, {0xb0}},
        {"read", 4, 0x60, 1, 0x57, 2, {0xb0}},
        {"another command", 4, 0x60, 0, 0x58, 2, {0xb0}},
        {"another address", 4, 0x62, 0, 0x57, 2, {0xb0}},
        {"another bus", 5, 0x60, 0, 0x57, 2, {0xb0}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.what);
        warm_up(row.bus);
        Bytes data = row.area;
        data.resize(row.area.empty() ? 0 : QELI2C_SMBUS_AREA);
        const ei2c_client device = {row.bus, row.addr, 0, 0, 0, ""};
        Story story = {row.bus};
        model::smbus(story, device, row.direction, row.command, row.size, data);
        if (row.recorded != nullptr)
            story.script.insert(
                story.script.begin() + 1,
                {printed("_ssp_info 64 ui2c_ioctls ui2c_smbus_xfer [%d] bus=4, addr=60 "
                         "r/w=0 cmd=57 %s",
                         getpid(), row.recorded)});
        EXPECT_PLAY(
            0,
            ui2c_smbus_xfer(ui2c_to_adapter(row.bus), row.addr, 0, static_cast<char>(row.direction),
                            static_cast<uint8_t>(row.command), static_cast<int32_t>(row.size),
                            data.empty() ? nullptr : data.data()),
            story.script);
    }
}

} // namespace
