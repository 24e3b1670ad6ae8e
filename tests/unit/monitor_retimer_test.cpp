// The power monitor: words on the wire, presets and scaling. Retimers: records, lengths, and the
// lines of a failure.
#include "tests/unit/device_calls.h"

#include <cstring>

using namespace calls;
using scripted::printed;

namespace
{

using Word = std::pair<uint8_t, uint8_t>; // the bytes in the order they travel

Exchange write_word(const ei2c_client &target, unsigned command, Word word, int result = 0)
{
    return smbus(target, I2C_SMBUS_WRITE, command, I2C_SMBUS_WORD_DATA, {word.first, word.second},
                 result);
}
Exchange read_word(const ei2c_client &target, unsigned command, Word word, int result = 0)
{
    return smbus(target, I2C_SMBUS_READ, command, I2C_SMBUS_WORD_DATA, {word.first, word.second},
                 result);
}

float value_of(Buffer &buffer)
{
    float value = 0;
    memcpy(&value, buffer.data(), sizeof(value));
    return value;
}
float *pointer(Buffer &buffer)
{
    return static_cast<float *>(static_cast<void *>(buffer.data()));
}

TEST(Tpa626, PowerPresetsAreWrittenMostSignificantByteFirst)
{
    const ei2c_client monitor = device();
    const struct {
        uint8_t preset;
        Word configuration, calibration;
    } rows[] = {{1, {0x41, 0x27}, {0x14, 0}},    {2, {0x41, 0x27}, {0x0a, 0}},
                {3, {0x45, 0x27}, {0x25, 0x50}}, {0, {0x41, 0x27}, {0x28, 0}},
                {4, {0x41, 0x27}, {0x28, 0}},    {255, {0x41, 0x27}, {0x28, 0}}};
    for (const auto &row : rows)
        for (const int configured : {0, -104})
            for (const int calibrated : {0, -104, 5}) {
                // A failed write changes nothing.
                Buffer value(sizeof(float));
                EXPECT_RUN(0, TPA626_GetPower(&monitor, row.preset, pointer(value)),
                           write_word(monitor, 0, row.configuration, configured) +
                               write_word(monitor, 5, row.calibration, calibrated) +
                               read_word(monitor, 3, {0x01, 0x90}));
                EXPECT_EQ(value_of(value), 10.0F);
            }
}

TEST(Tpa626, PresetsScaleInDoublePrecisionAndWriteNothingBeforeAVoltage)
{
    const ei2c_client monitor = device();
    const Script writes = write_word(monitor, 0, {0x41, 0x27}) + write_word(monitor, 5, {0x14, 0});
    const struct {
        Word word;
        float power, voltage;
    } rows[] = {{{0x01, 0x90}, 10.0F, 0.5F},
                {{0x25, 0x80}, 240.0F, 12.0F},
                {{0xff, 0xff}, 0x1.9998p+10F, 0x1.47acccp+6F},
                {{0, 0}, 0.0F, 0.0F},
                {{0, 0x43}, 0x1.acccccp+0F, 0x1.570a3ep-4F}};
    for (const auto &row : rows)
        for (const int result : {0, -104, 5}) { // only 0 is good here
            Buffer power(sizeof(float)), voltage(sizeof(float));
            EXPECT_RUN(result == 0 ? 0 : -1, TPA626_GetPower(&monitor, 1, pointer(power)),
                       writes + read_word(monitor, 3, row.word, result));
            EXPECT_RUN(result == 0 ? 0 : -1, TPA626_GetVolt(&monitor, pointer(voltage)),
                       read_word(monitor, 2, row.word, result));
            EXPECT_TRUE(result == 0 ? value_of(power) == row.power : power.untouched());
            EXPECT_TRUE(result == 0 ? value_of(voltage) == row.voltage : voltage.untouched());
        }
}

TEST(Tpa626, DescriptionsAreWrittenBeforeEachReadAndScaleInSinglePrecision)
{
    tpa626_info info = {};
    info.client = device();
    info.wConfig = 0x2741;
    info.wCalibration = 0x1234;
    const struct {
        unsigned command;
        int32_t (*call)(const tpa626_info *, float *);
        float *first, *second;
    } calls[] = {{3, TPA626_GetPowerByInfo, &info.fPowerCoef1, &info.fPowerCoef2},
                 {2, TPA626_GetVoltByInfo, &info.fVoltCoef1, &info.fVoltCoef2}};
    const struct {
        Word raw;
        float first, second, value;
    } rows[] = {{{0x01, 0x90}, 25.0F, 1.0F, 10.0F},
                // rounded differently in any other order, and in double precision
                {{0xc3, 0xe7}, 0x1.dbb35p+4F, 0x1.5f4b7cp+1F, 0x1.ff85d4p+11F}};
    for (const auto &one : calls)
        for (const auto &row : rows) {
            *one.first = row.first;
            *one.second = row.second;
            const auto steps = [&](int configured, int calibrated, int read) {
                Script script = write_word(info.client, 0, {0x41, 0x27}, configured);
                if (configured >= 0)
                    script += write_word(info.client, 5, {0x34, 0x12}, calibrated).script;
                if (configured >= 0 && calibrated >= 0)
                    script += read_word(info.client, one.command, row.raw, read).script;
                return script;
            };
            Buffer value(sizeof(float)), untouched(sizeof(float));
            for (const int result : {0, 5}) { // what is not negative is good here
                EXPECT_RUN(0, one.call(&info, pointer(value)), steps(result, result, result));
                EXPECT_EQ(value_of(value), row.value);
            }
            EXPECT_RUN(-1, one.call(&info, pointer(untouched)), steps(-104, 0, 0));
            EXPECT_RUN(-1, one.call(&info, pointer(untouched)), steps(0, -104, 0));
            EXPECT_RUN(-1, one.call(&info, pointer(untouched)), steps(0, 0, -104));
            EXPECT_TRUE(untouched.untouched());
        }
}

// Retimers.

const std::string block_write = "Retimer_I2CWriteBlockData";
const std::string block_read = "Retimer_I2CReadBlockData";

Event write_error(const ei2c_client &retimer)
{
    return said(err(block_write),
                "i2c I/O error at bus(%u), slave(0x%x): Retimer_I2CWriteBlockData() failed !\n",
                retimer.bus, retimer.addr);
}
Event read_error(const ei2c_client &retimer, unsigned reg)
{
    return io_error(block_read, retimer, reg, "DC_I2CReadBlockData()");
}
Script front_lines(const char *function, const ei2c_client &retimer, int length, unsigned reg)
{
    return {
        said(err(function), "I2C write failed\n"),
        said(err(function),
             "tclient.bus 0x%x; tclient.addr 0x%x; tclient.swi_addr 0x%x; tclient.swi_chnl 0x%x;\n",
             retimer.bus, retimer.addr, retimer.swi_addr, retimer.swi_chnl),
        said(err(function), "datalen %d; ucOffsetLen 0; offsetAddr 0x%x;", length, reg)};
}

TEST(RetimerBlock, IsWrittenAsItIs)
{
    const ei2c_client retimer = device();
    for (const size_t length : {1U, 3U, 255U, 256U, 65535U}) {
        const Bytes data = pattern(length);
        const auto call = [&] {
            return Retimer_I2CWriteBlockData(&retimer, static_cast<uint32_t>(length), data.data());
        };
        EXPECT_RUN(0, call(), transferred(retimer, {sends(data)}));
        EXPECT_RUN(-1, call(), refused(retimer, {sends(data)}) + write_error(retimer));
        EXPECT_RUN_WITHOUT_MEMORY(1, -1, call(), {write_error(retimer)});
    }
    const Bytes byte(1);
    for (const uint32_t length : {65536U, 65537U, 0x10000000U, 0xffffffffU})
        EXPECT_RUN(-1, Retimer_I2CWriteBlockData(&retimer, length, byte.data()),
                   {write_error(retimer)});
}

// The first byte sent is part of a trace line.
TEST(RetimerBlock, OfNoBytesHasNoFirstByte)
{
    const ei2c_client retimer = device();
    const Bytes byte(1);
    EXPECT_RUN(0, Retimer_I2CWriteBlockData(&retimer, 0, byte.data()),
               transferred(retimer, {sends({})}));
}

TEST(RetimerBlock, IsReadWholeAndHandedOutUpTo255Bytes)
{
    const ei2c_client retimer = device();
    const struct {
        uint32_t length;
        uint16_t on_the_wire;
        size_t handed_out;
    } rows[] = {{0, 0, 0},       {1, 1, 1},       {254, 254, 254},     {255, 255, 255},
                {256, 256, 255}, {300, 300, 255}, {65535, 65535, 255}, {65536 + 300, 300, 255}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.length);
        Buffer good(row.handed_out), bad(row.handed_out);
        const Messages messages = {sends({0x40}), reads(row.on_the_wire)};
        const Bytes answer = pattern(row.on_the_wire);
        const auto call = [&](Buffer &buffer) {
            return Retimer_I2CReadBlockData(&retimer, 0x40, row.length, buffer.data());
        };
        EXPECT_RUN(0, call(good), transferred(retimer, messages, answer));
        EXPECT_EQ(good.bytes(), pattern(row.handed_out));
        EXPECT_RUN(-1, call(bad),
                   refused(retimer, messages, answer) +
                       said(err(block_read), "Read data failed!\n") + read_error(retimer, 0x40));
        EXPECT_TRUE(bad.untouched());
    }
}

TEST(RetimerBlock, ReadsOfMoreThanAMessageHandOutNoBytesThatDidNotArrive)
{
    const ei2c_client retimer = device(0);
    Buffer buffer(255);
    Bytes expected(255);
    expected[0] = 1;
    expected[1] = 2;
    EXPECT_RUN(0, Retimer_I2CReadBlockData(&retimer, 0, 65538, buffer.data()),
               transferred(retimer, {sends({0}), reads(2)}, {1, 2}));
    EXPECT_EQ(buffer.bytes(), expected);
}

TEST(RetimerBlock, ReadWithoutMemorySendsNothing)
{
    const ei2c_client retimer = device();
    Buffer buffer(1);
    const auto read = [&](uint32_t length) {
        return Retimer_I2CReadBlockData(&retimer, 0x7f, length, buffer.data());
    };
    const Event error = read_error(retimer, 0x7f);
    EXPECT_RUN_WITHOUT_MEMORY(1, -1, read(1),
                              {said(err(block_read), "malloc failed buflen 1\n"), error});
    for (const uint32_t length : {0U, 300U, 0xfffffffeU}) {
        EXPECT_RUN_WITHOUT_MEMORY(
            2, -1, read(length),
            {said(err(block_read), "malloc failed dwDataLen %x\n", length), error});
    }
    EXPECT_RUN(-1, read(0xffffffff), {error});
    EXPECT_TRUE(buffer.untouched());
}

TEST(RetimerRecord, AndBufferAreNeededInSilence)
{
    const retimer_i2c_dev record = {};
    uint8_t byte = 0;
    EXPECT_RUN(-1, Retimer_I2CWrite(nullptr, 1, &byte));
    EXPECT_RUN(-1, Retimer_I2CWrite(&record, 1, nullptr));
    EXPECT_RUN(-1, Retimer_I2CRead(nullptr, 1, &byte));
    EXPECT_RUN(-1, Retimer_I2CRead(&record, 1, nullptr));
}

TEST(RetimerRecord, NamesTheDeviceAndItsSwitches)
{
    const struct {
        uint8_t record[11];
        uint32_t swi_addr, swi_chnl;
    } rows[] = {{{bus, 0x50, 9, 9, 9, 9, 1, 0x71, 3, 0x70, 5}, 0x00700071, 0x00050003},
                {{bus, 0x50, 9, 9, 9, 9, 1, 0x71, 3, 0, 0}, 0x71, 3},
                {{bus, 0x50, 9, 9, 9, 9, 1, 0, 0, 0, 0}, 0, 0},
                {{bus, 0x50, 9, 9, 9, 9, 0, 0x71, 3, 0x70, 5}, 0, 0},
                {{bus, 0x50, 9, 9, 9, 9, 2, 0x71, 3, 0x70, 5}, 0, 0},
                {{bus, 0x50, 0, 0, 0, 0, 255, 0x71, 3, 0x70, 5}, 0, 0}};
    for (int switches = 0; switches <= 2; ++switches)
        device(switches);
    for (const auto &row : rows) {
        SCOPED_TRACE(printed("valid %u, upstream %x", row.record[6], row.record[9]));
        retimer_i2c_dev record = {};
        memcpy(&record, row.record, sizeof(row.record));
        const ei2c_client retimer = {bus, 0x50, 0, row.swi_addr, row.swi_chnl, ""};

        const Bytes data = {0x10, 0x20, 0x30};
        const auto write = [&] { return Retimer_I2CWrite(&record, 3, data.data()); };
        EXPECT_RUN(0, write(), transferred(retimer, {sends(data)}));
        EXPECT_RUN(-1, write(),
                   refused(retimer, {sends(data)}) + write_error(retimer) +
                       front_lines("Retimer_I2CWrite", retimer, 3, 0));

        // The register byte is replaced by the data, and kept when there are none.
        Buffer good(4), bad(4);
        good.data()[0] = bad.data()[0] = 0x44;
        const Bytes before = bad.bytes();
        const Messages messages = {sends({0x44}), reads(4)};
        EXPECT_RUN(0, Retimer_I2CRead(&record, 4, good.data()),
                   transferred(retimer, messages, {4, 3, 2, 1}));
        EXPECT_EQ(good.bytes(), (Bytes{4, 3, 2, 1}));
        EXPECT_RUN(-1, Retimer_I2CRead(&record, 4, bad.data()),
                   refused(retimer, messages, {4, 3, 2, 1}) +
                       said(err(block_read), "Read data failed!\n") + read_error(retimer, 0x44) +
                       front_lines("Retimer_I2CRead", retimer, 4, 0x44));
        EXPECT_EQ(bad.bytes(), before);
    }
}

} // namespace
