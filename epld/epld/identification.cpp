// Which vendor's EPLD answers at an address: Anlogic (EF2, EF3), Lattice, Pango, asked in this
// order.
#include <utility>

#include "bus/report.h"
#include "qeli2c.h"

namespace
{

constexpr char kLogTag[] = "epld";

constexpr uint32_t GD25VQ40C_ANLOGIC_ID =
    0xC84213; // JEDEC identification of the SPI flash behind an EF2
constexpr uint32_t ANLOGIC_EF3 = 0xCC3F;

constexpr int32_t kAnlogic = 3;
constexpr int32_t kLattice = 2;
constexpr int32_t kPango = 1;

constexpr uint32_t kIdLength = 4;
constexpr uint32_t kLatticeIdOffset = 0xE0000000;
constexpr uint8_t kLatticeOffsetLength = 4;
constexpr uint8_t kPangoIdCommand = 0xA1;
constexpr uint8_t kEf2ModeCommand = 0x01;
constexpr uint8_t kEf2SpiMode = 0xF0;
constexpr uint8_t kEf2SpiWriteCommand = 0x02;
constexpr uint8_t kEf2SpiResultCommand = 0x00;
constexpr uint32_t kJedecReadId = 0x9F000000;
constexpr uint8_t kEf3IdCommand = 0x51;

void report_place(const char *step, const ei2c_client &client, uint32_t offset,
                  uint32_t offset_length, uint32_t data_length)
{
    QEL_AUDIT(step,
              "bus %d,addr 0x%x,swi_chnl %d,swi_addr 0x%x,OffsetAddr 0x%x,OffsetLen 0x%x,"
              "DataLen 0x%x\n ",
              static_cast<int>(client.bus), client.addr, static_cast<int>(client.swi_chnl),
              client.swi_addr, offset, offset_length, data_length);
}

void reverseBits(uint8_t *pucData)
{
    for (uint32_t i = 0; i < kIdLength; ++i) {
        unsigned byte = pucData[i];
        byte = (byte & 0xF0) >> 4 | (byte & 0x0F) << 4;
        byte = (byte & 0xCC) >> 2 | (byte & 0x33) << 2;
        byte = (byte & 0xAA) >> 1 | (byte & 0x55) << 1;
        pucData[i] = static_cast<uint8_t>(byte);
    }
}

int32_t Anlogic_ReadEpldCfg(const ei2c_client *ptEpldI2cClient, uint8_t ucReg, uint32_t dwOffsetLen,
                            uint8_t *pucData)
{
    if (ptEpldI2cClient == nullptr) {
        QEL_AUDIT_TEXT("Anlogic_ReadEpldCfg", "ptEpldI2cClient pointer is null \n");
        return -1;
    }
    const int32_t ret =
        pango_i2c_read_multi_para(ptEpldI2cClient, ucReg, 0, dwOffsetLen, kIdLength, pucData);
    if (ret != 0) {
        QEL_AUDIT("Anlogic_ReadEpldCfg", "pango_i2c_read_multi_para Function failed, return %d\n",
                  ret);
        report_place("Anlogic_ReadEpldCfg", *ptEpldI2cClient, ucReg, 1, kIdLength);
    }
    return ret;
}

int32_t Anlogic_WriteEpldCfgData(const ei2c_client *ptEpldI2cClient, uint8_t ucReg,
                                 uint32_t dwOffsetAddr, uint32_t dwOffsetLen, uint32_t dwDataLen,
                                 const uint8_t *pucData)
{
    if (ptEpldI2cClient == nullptr) {
        QEL_AUDIT_TEXT("Anlogic_WriteEpldCfgData", "ptEpldI2cClient pointer is null \n");
        return -1;
    }
    const int32_t ret = pango_i2c_write_multi_para(ptEpldI2cClient, ucReg, dwOffsetAddr,
                                                   dwOffsetLen, dwDataLen, pucData);
    if (ret != 0) {
        QEL_AUDIT("Anlogic_WriteEpldCfgData",
                  "pango_i2c_write_multi_para Function failed, return %d\n", ret);
        report_place("Anlogic_WriteEpldCfgData", *ptEpldI2cClient, ucReg, 1, dwDataLen);
    }
    return ret;
}

int32_t Anlogic_WriteSpiMode(const ei2c_client *ptEpldI2cClient)
{
    const int32_t ret =
        Anlogic_WriteEpldCfgData(ptEpldI2cClient, kEf2ModeCommand, kEf2SpiMode, 1, 0, nullptr);
    if (ret != 0)
        QEL_AUDIT_TEXT("Anlogic_WriteSpiMode", "Anlogic_WriteEpldCfgData failed \n");
    return ret;
}

int32_t lattice_read_epld_cfg(const ei2c_client *ptEpldI2cClient, uint8_t *pucData)
{
    const int32_t ret = i2c_read_multi_para(ptEpldI2cClient, kLatticeIdOffset, kLatticeOffsetLength,
                                            kIdLength, pucData);
    if (ret != 0) {
        report_place("lattice_read_epld_cfg", *ptEpldI2cClient, kLatticeIdOffset,
                     kLatticeOffsetLength, kIdLength);
        QEL_AUDIT("lattice_read_epld_cfg", "i2cRead failed, return 0x%x\n",
                  static_cast<unsigned>(ret));
    }
    return ret;
}

int32_t pango_read_epld_cfg(const ei2c_client *ptEpldI2cClient, uint8_t *pucData)
{
    QEL_REQUIRE(ptEpldI2cClient, -1);
    QEL_REQUIRE(pucData, -1);
    const int32_t ret =
        pango_i2c_read_multi_para(ptEpldI2cClient, kPangoIdCommand, 0, 3, kIdLength, pucData);
    if (ret != 0) {
        report_place("pango_read_epld_cfg", *ptEpldI2cClient, kPangoIdCommand, 1, kIdLength);
        QEL_AUDIT("pango_read_epld_cfg", "I2C Read Multi Para fail, return 0x%x\n",
                  static_cast<unsigned>(ret));
    }
    return ret;
}

void report_pango_bytes(const uint8_t *pucData)
{
    QEL_AUDIT_PLAIN("epld_pango_read_deviceId", "pucData[0-3] %x %x %x %x", pucData[0], pucData[1],
                    pucData[2], pucData[3]);
}

} // namespace

uint32_t BytesToDword(const uint8_t *pucData)
{
    QEL_REQUIRE(pucData, 0);
    return static_cast<uint32_t>(pucData[0]) << 24 | static_cast<uint32_t>(pucData[1]) << 16 |
           static_cast<uint32_t>(pucData[2]) << 8 | pucData[3];
}

void reverseArray(uint8_t *pucData, int32_t n)
{
    if (n > 1)
        QEL_REQUIRE(pucData, );
    for (int32_t i = 0; i < n / 2; ++i)
        std::swap(pucData[i], pucData[n - 1 - i]);
}

int32_t epld_anlogic_ef2_read_deviceId(const ei2c_client *ptEpldI2cClient, uint8_t *pucData)
{
    const char *const self = "epld_anlogic_ef2_read_deviceId";
    if (Anlogic_WriteSpiMode(ptEpldI2cClient) != 0) {
        QEL_AUDIT_TEXT(self, "Anlogic_WriteSpiMode failed \n");
        return -1;
    }
    const uint8_t zero = 0;
    if (Anlogic_WriteEpldCfgData(ptEpldI2cClient, kEf2SpiWriteCommand, kJedecReadId, 4, 1, &zero) !=
        0) {
        QEL_AUDIT_TEXT(self, "Anlogic_WriteEpldCfgData failed \n");
        return -1;
    }
    if (Anlogic_ReadEpldCfg(ptEpldI2cClient, kEf2SpiResultCommand, 3, pucData) != 0) {
        QEL_AUDIT_TEXT(self, "Anlogic_ReadEpldCfg failed \n");
        return -1;
    }
    QEL_REQUIRE(pucData, -1);
    const uint32_t id = BytesToDword(pucData);
    if ((id & 0xFFFFFF) != GD25VQ40C_ANLOGIC_ID) {
        QEL_AUDIT(self, "id(%#X) & 0xffffff is not GD25VQ40C_ANLOGIC_ID (%#X)\n", id,
                  GD25VQ40C_ANLOGIC_ID);
        return -1;
    }
    return 0;
}

int32_t epld_anlogic_ef3_read_deviceId(const ei2c_client *ptEpldI2cClient, uint8_t *pucData)
{
    const char *const self = "epld_anlogic_ef3_read_deviceId";
    if (Anlogic_ReadEpldCfg(ptEpldI2cClient, kEf3IdCommand, 0, pucData) != 0) {
        QEL_AUDIT_TEXT(self, "Anlogic_ReadEpldCfg failed ");
        return -1;
    }
    QEL_REQUIRE(pucData, -1);
    reverseBits(pucData);
    reverseArray(pucData, kIdLength);
    const uint32_t id = BytesToDword(pucData);
    if (id != ANLOGIC_EF3) {
        QEL_AUDIT(self, "id(%#X) is not ANLOGIC_EF3 (%#X)\n", id, ANLOGIC_EF3);
        return -1;
    }
    return 0;
}

int32_t epld_anlogic_read_deviceId(const ei2c_client *ptEpldI2cClient, uint8_t *pucData)
{
    if (epld_anlogic_ef2_read_deviceId(ptEpldI2cClient, pucData) == 0)
        return 0;
    return epld_anlogic_ef3_read_deviceId(ptEpldI2cClient, pucData);
}

int32_t epld_lattice_read_deviceId(const ei2c_client *ptEpldI2cClient, uint8_t *pucData)
{
    if (ptEpldI2cClient == nullptr || pucData == nullptr) {
        QEL_AUDIT_TEXT("epld_lattice_read_deviceId", "pointer is null\n");
        return -1;
    }
    return lattice_read_epld_cfg(ptEpldI2cClient, pucData);
}

int32_t epld_pango_read_deviceId(const ei2c_client *ptEpldI2cClient, uint8_t *pucData)
{
    if (pango_read_epld_cfg(ptEpldI2cClient, pucData) != 0) {
        if (pucData != nullptr)
            report_pango_bytes(pucData);
        QEL_AUDIT_TEXT("epld_pango_read_deviceId", "read pango device id failed\n");
        return -1;
    }
    report_pango_bytes(pucData);
    reverseBits(pucData);
    pucData[3] = 0;
    report_pango_bytes(pucData);
    return 0;
}

int32_t epld_i2c_read_deviceId(const ei2c_client *ptEpldI2cClient, uint8_t *pucData)
{
    const char *const self = "epld_i2c_read_deviceId";
    if (ptEpldI2cClient == nullptr || pucData == nullptr) {
        QEL_AUDIT_TEXT(self, "pointer is null\n");
        return -1;
    }
    if (epld_anlogic_read_deviceId(ptEpldI2cClient, pucData) == 0) {
        QEL_AUDIT_PLAIN_TEXT(self, "anlogic read device id sucess\n");
        return kAnlogic;
    }
    if (epld_lattice_read_deviceId(ptEpldI2cClient, pucData) == 0) {
        QEL_AUDIT_PLAIN_TEXT(self, "lattice read device id sucess\n");
        return kLattice;
    }
    if (epld_pango_read_deviceId(ptEpldI2cClient, pucData) == 0) {
        QEL_AUDIT_PLAIN_TEXT(self, "pango read device id sucess\n");
        return kPango;
    }
    return -1;
}
