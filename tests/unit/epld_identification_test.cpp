// Which EPLD answers: the probe in every situation, with each transfer and each line, and the byte
// helpers.
#include "tests/unit/device_calls.h"

#include <climits>

using namespace calls;

namespace
{

const std::string ef2 = "epld_anlogic_ef2_read_deviceId";
const std::string ef3 = "epld_anlogic_ef3_read_deviceId";
const Event no_spi_mode = said(err("Anlogic_WriteSpiMode"), "Anlogic_WriteEpldCfgData failed \n");
const Event no_ef2 = said(err(ef2), "Anlogic_WriteSpiMode failed \n");
const Event no_ef3 = said(err(ef3), "Anlogic_ReadEpldCfg failed ");
const Event no_pango = said(err("epld_pango_read_deviceId"), "read pango device id failed\n");

Event pango_bytes(const Bytes &bytes)
{
    return said(success("epld_pango_read_deviceId"), "pucData[0-3] %x %x %x %x", bytes[0], bytes[1],
                bytes[2], bytes[3]);
}
Event found(const char *vendor)
{
    return said(success("epld_i2c_read_deviceId"), "%s read device id sucess\n", vendor);
}

// What the reads of one device send, and everything they say when that is refused.
struct Epld {
    const ei2c_client target;

    Script wrote(const Bytes &sent) const { return transferred(target, {sends(sent)}); }
    Script read(const Bytes &sent, const Bytes &answer) const
    {
        return transferred(target, {sends(sent), reads(4)}, answer);
    }
    Event place(const char *step, unsigned offset, unsigned offset_length, unsigned length) const
    {
        return said(err(step),
                    "bus %u,addr 0x%x,swi_chnl %u,swi_addr 0x%x,OffsetAddr 0x%x,OffsetLen 0x%x,"
                    "DataLen 0x%x\n ",
                    target.bus, target.addr, target.swi_chnl, target.swi_addr, offset,
                    offset_length, length);
    }
    Script command_read_refused(const Bytes &sent) const
    {
        return refused(target, {sends(sent), reads(4)}) + on_stdout("Read data failed!") +
               io_error("pango_i2c_read_multi_para", target, sent[0], "i2c read");
    }
    Script configuration_write_refused(const Bytes &sent, unsigned data_length) const
    {
        return refused(target, {sends(sent)}) + on_stdout("ei2c_rdwr_xfer failed") +
               io_error("pango_i2c_write_multi_para", target, sent[0], "I2C Write") +
               said(err("Anlogic_WriteEpldCfgData"),
                    "pango_i2c_write_multi_para Function failed, return -1\n") +
               place("Anlogic_WriteEpldCfgData", sent[0], 1, data_length);
    }
    Script configuration_read_refused(const Bytes &sent) const
    {
        return command_read_refused(sent) +
               said(err("Anlogic_ReadEpldCfg"),
                    "pango_i2c_read_multi_para Function failed, return -1\n") +
               place("Anlogic_ReadEpldCfg", sent[0], 1, 4);
    }

    // The EF2 read up to the step that fails; step 4 is an answer of another chip.
    Script no_ef2_at(int step) const
    {
        const Bytes spi_mode = {0x01, 0xf0}, jedec = {0x02, 0x9f, 0, 0, 0, 0};
        if (step == 1)
            return configuration_write_refused(spi_mode, 0) + no_spi_mode + no_ef2;
        if (step == 2)
            return wrote(spi_mode) + configuration_write_refused(jedec, 1) +
                   said(err(ef2), "Anlogic_WriteEpldCfgData failed \n");
        if (step == 3)
            return wrote(spi_mode) + wrote(jedec) + configuration_read_refused({0, 0, 0, 0}) +
                   said(err(ef2), "Anlogic_ReadEpldCfg failed \n");
        return is_ef2({0xff, 0xc8, 0x42, 0x14}) +
               said(err(ef2), "id(0XFFC84214) & 0xffffff is not GD25VQ40C_ANLOGIC_ID (0XC84213)\n");
    }
    Script is_ef2(const Bytes &answer) const
    {
        return wrote({0x01, 0xf0}) + wrote({0x02, 0x9f, 0, 0, 0, 0}) + read({0, 0, 0, 0}, answer);
    }
    Script no_ef3_there() const { return configuration_read_refused({0x51}) + no_ef3; }
    Script no_lattice_there(const Bytes &buffer) const
    {
        return refused(target, {sends({0xe0, 0, 0, 0}), reads(4)}) + read_trace(buffer) +
               said(err("i2c_read_multi_para"), "Read data failed!\n") +
               io_error("i2c_read_multi_para", target, 0xe0000000, "I2ReaMultPara") +
               place("lattice_read_epld_cfg", 0xe0000000, 4, 4) +
               said(err("lattice_read_epld_cfg"), "i2cRead failed, return 0xffffffff\n");
    }
    Script no_pango_there(const Bytes &buffer) const
    {
        return command_read_refused({0xa1, 0, 0, 0}) + place("pango_read_epld_cfg", 0xa1, 1, 4) +
               said(err("pango_read_epld_cfg"), "I2C Read Multi Para fail, return 0xffffffff\n") +
               pango_bytes(buffer) + no_pango;
    }
};

// The probe's result, and the identification it must leave.
void expect_probe(int32_t code, const Epld &epld, const Script &script, const Bytes &id,
                  const std::source_location &where = std::source_location::current())
{
    const testing::ScopedTrace trace(where.file_name(), static_cast<int>(where.line()), "probe");
    Buffer buffer(4);
    EXPECT_RUN(code, epld_i2c_read_deviceId(&epld.target, buffer.data()), script);
    EXPECT_EQ(buffer.bytes(), id);
}

TEST(EpldProbe, FindsAnEf2ByTheFlashBehindIt)
{
    const Epld epld = {device()};
    for (const uint8_t first : {uint8_t{0}, uint8_t{0xff}}) {
        const Bytes id = {first, 0xc8, 0x42, 0x13};
        expect_probe(3, epld, epld.is_ef2(id) + found("anlogic"), id);
    }
}

TEST(EpldProbe, FindsAnEf3WhicheverStepOfTheEf2ReadFailed)
{
    const Epld epld = {device()};
    for (const int step : {1, 2, 3, 4})
        expect_probe(3, epld,
                     epld.no_ef2_at(step) + epld.read({0x51}, {0xfc, 0x33, 0, 0}) +
                         found("anlogic"),
                     {0, 0, 0xcc, 0x3f});
}

TEST(EpldProbe, TakesAnyAnswerToTheLatticeCommand)
{
    const Epld epld = {device()};
    for (const Bytes &id : {Bytes{0x01, 0x2b, 0xa0, 0x43}, Bytes{0xff, 0xff, 0xff, 0xff}})
        expect_probe(2, epld,
                     epld.no_ef2_at(1) + epld.no_ef3_there() + epld.read({0xe0, 0, 0, 0}, id) +
                         read_trace(id) + found("lattice"),
                     id);
}

TEST(EpldProbe, FindsAPangoWhenNothingElseAnswers)
{
    const Epld epld = {device()};
    const Bytes answer = {0x80, 0x40, 0xc0, 0x12};
    // Another chip's answer to the EF3 command stays in the buffer, reversed, for the next tries.
    expect_probe(1, epld,
                 epld.no_ef2_at(4) + epld.read({0x51}, {0xff, 0x80, 0x03, 0x12}) +
                     said(err(ef3), "id(0X48C001FF) is not ANLOGIC_EF3 (0XCC3F)\n") +
                     epld.no_lattice_there({0x48, 0xc0, 0x01, 0xff}) +
                     epld.read({0xa1, 0, 0, 0}, answer) + pango_bytes(answer) +
                     pango_bytes({1, 2, 3, 0}) + found("pango"),
                 {1, 2, 3, 0});
}

TEST(EpldProbe, OfAnEmptyAddressTellsEveryFailure)
{
    const Bytes untouched = Buffer(4).bytes();
    for (const int switches : {0, 1, 2}) {
        const Epld epld = {device(switches)};
        expect_probe(-1, epld,
                     epld.no_ef2_at(1) + epld.no_ef3_there() + epld.no_lattice_there(untouched) +
                         epld.no_pango_there(untouched),
                     untouched);
    }
}

TEST(EpldIdentification, OfOneVendorGivesItsOwnResult)
{
    const Epld epld = {device()};
    const ei2c_client *target = &epld.target;
    Buffer buffer(4);
    uint8_t *id = buffer.data();
    EXPECT_RUN(-1, epld_lattice_read_deviceId(target, id), epld.no_lattice_there(buffer.bytes()));
    EXPECT_RUN(-1, epld_pango_read_deviceId(target, id), epld.no_pango_there(buffer.bytes()));
    for (const int step : {1, 2, 3, 4})
        EXPECT_RUN(-1, epld_anlogic_ef2_read_deviceId(target, id), epld.no_ef2_at(step));
    EXPECT_RUN(-1, epld_anlogic_read_deviceId(target, id), epld.no_ef2_at(2) + epld.no_ef3_there());
    EXPECT_RUN(-1, epld_anlogic_ef3_read_deviceId(target, id),
               epld.read({0x51}, {0xfc, 0x33, 0, 0x01}) +
                   said(err(ef3), "id(0X8000CC3F) is not ANLOGIC_EF3 (0XCC3F)\n"));
    const Script good = epld.is_ef2({0x55, 0xc8, 0x42, 0x13});
    EXPECT_RUN(0, epld_anlogic_ef2_read_deviceId(target, id), good);
    EXPECT_RUN(0, epld_anlogic_read_deviceId(target, id), good);
}

TEST(EpldIdentification, RefusesNullPointersInItsOwnWays)
{
    const ei2c_client target = device();
    Buffer buffer(4);
    const Event probe = said(err("epld_i2c_read_deviceId"), "pointer is null\n");
    EXPECT_RUN(-1, epld_i2c_read_deviceId(nullptr, buffer.data()), {probe});
    EXPECT_RUN(-1, epld_i2c_read_deviceId(&target, nullptr), {probe});
    const Event lattice = said(err("epld_lattice_read_deviceId"), "pointer is null\n");
    EXPECT_RUN(-1, epld_lattice_read_deviceId(nullptr, buffer.data()), {lattice});
    EXPECT_RUN(-1, epld_lattice_read_deviceId(&target, nullptr), {lattice});

    const auto check = [](const char *argument) {
        return scripted::argument_check("epld", "pango_read_epld_cfg", argument);
    };
    EXPECT_RUN(-1, epld_pango_read_deviceId(nullptr, buffer.data()),
               check("ptEpldI2cClient") + pango_bytes(buffer.bytes()) + no_pango);
    EXPECT_RUN(-1, epld_pango_read_deviceId(&target, nullptr), check("pucData") + no_pango);
    EXPECT_RUN(-1, epld_pango_read_deviceId(nullptr, nullptr), check("ptEpldI2cClient") + no_pango);

    // The Anlogic reads leave it to their first step.
    const char *const null = "ptEpldI2cClient pointer is null \n";
    const Script neither = {said(err("Anlogic_WriteEpldCfgData"), "%s", null), no_spi_mode, no_ef2,
                            said(err("Anlogic_ReadEpldCfg"), "%s", null), no_ef3};
    EXPECT_RUN(-1, epld_anlogic_read_deviceId(nullptr, buffer.data()), neither);
    EXPECT_TRUE(buffer.untouched());
    const Epld epld = {target};
    EXPECT_RUN(-1, epld_anlogic_ef2_read_deviceId(&target, nullptr),
               epld.is_ef2({}) + scripted::argument_check("epld", ef2.c_str(), "pucData"));
    EXPECT_RUN(-1, epld_anlogic_ef3_read_deviceId(&target, nullptr),
               epld.read({0x51}, {}) + scripted::argument_check("epld", ef3.c_str(), "pucData"));
}

TEST(ByteHelpers, TakeTheFirstByteAsTheMostSignificantAndReverse)
{
    EXPECT_RUN(0U, BytesToDword(nullptr),
               scripted::argument_check("epld", "BytesToDword", "pucData"));
    EXPECT_RUN(0, (reverseArray(nullptr, 2), 0),
               scripted::argument_check("epld", "reverseArray", "pucData"));
    const Bytes bytes = {0x92, 0x34, 0x56, 0x78};
    EXPECT_EQ(BytesToDword(bytes.data()), 0x92345678U);
    const std::pair<int32_t, Bytes> rows[] = {
        {4, {4, 3, 2, 1}}, {3, {3, 2, 1, 4}},  {2, {2, 1, 3, 4}},      {1, {1, 2, 3, 4}},
        {0, {1, 2, 3, 4}}, {-1, {1, 2, 3, 4}}, {INT_MIN, {1, 2, 3, 4}}};
    for (const auto &[count, reversed] : rows) {
        Bytes exact = {1, 2, 3, 4};
        reverseArray(exact.data(), count);
        EXPECT_EQ(exact, reversed) << count;
    }
}

} // namespace
