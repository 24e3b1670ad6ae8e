// Block access to retimers: raw bytes out, or a register byte and a block back.
#include <algorithm>
#include <cstdlib>

#include "bus/cancellation.h"
#include "bus/message_bytes.h"
#include "bus/report.h"

#include "qeli2c.h"

namespace
{

constexpr char kLogTag[] = "retimer";
constexpr uint32_t kLongestCopy = 255;
constexpr uint8_t kSwitchesValid = 1;

ei2c_client client_of(const retimer_i2c_dev &device)
{
    ei2c_client client = {};
    client.bus = device.ucBus;
    client.addr = device.ucAddr;
    if (device.ucSwiValid == kSwitchesValid) {
        client.swi_addr = device.ucSwiAddr | static_cast<uint32_t>(device.ucUpSwiAddr) << 16;
        client.swi_chnl = device.ucSwiChnl | static_cast<uint32_t>(device.ucUpSwiChnl) << 16;
    }
    return client;
}

int32_t read_failed(const ei2c_client &client, uint8_t reg)
{
    QEL_AUDIT("Retimer_I2CReadBlockData",
              "i2c I/O error at bus(%d), slave(0x%x), reg(0x%x): DC_I2CReadBlockData() failed !\n",
              static_cast<int>(client.bus), client.addr, reg);
    return -1;
}

int32_t front_call_failed(const char *function, const ei2c_client &client, uint32_t datalen,
                          uint8_t reg)
{
    QEL_AUDIT_TEXT(function, "I2C write failed\n");
    QEL_AUDIT(
        function,
        "tclient.bus 0x%x; tclient.addr 0x%x; tclient.swi_addr 0x%x; tclient.swi_chnl 0x%x;\n",
        client.bus, client.addr, client.swi_addr, client.swi_chnl);
    QEL_AUDIT(function, "datalen %d; ucOffsetLen %d; offsetAddr 0x%x;", static_cast<int>(datalen),
              0, reg);
    return -1;
}

} // namespace

int32_t Retimer_I2CWriteBlockData(const ei2c_client *client, uint32_t dwDataLen,
                                  const uint8_t *pucData)
{
    QEL_REQUIRE(client, -1);
    QEL_REQUIRE(pucData, -1);
    int32_t ret = -1;
    MessageBytes sent;
    if (dwDataLen <= kLongestMessage && lay_out(sent, nullptr, 0, 0, pucData, dwDataLen)) {
        i2c_msg message = {client->addr, 0, sent.length, sent.bytes};
        ret = ei2c_rdwr_xfer(client, &message, 1);
        free_keeping_errno(sent.bytes);
    }
    if (ret >= 0)
        return 0;
    QEL_AUDIT("Retimer_I2CWriteBlockData",
              "i2c I/O error at bus(%d), slave(0x%x): Retimer_I2CWriteBlockData() failed !\n",
              static_cast<int>(client->bus), client->addr);
    return -1;
}

int32_t Retimer_I2CReadBlockData(const ei2c_client *client, uint8_t ucOffsetAddr,
                                 uint32_t dwDataLen, uint8_t *pucReaddata)
{
    QEL_REQUIRE(client, -1);
    QEL_REQUIRE(pucReaddata, -1);
    const CancellationPutOff put_off;
    auto *reg = static_cast<uint8_t *>(malloc(1));
    if (reg == nullptr) {
        QEL_AUDIT("Retimer_I2CReadBlockData", "malloc failed buflen %x\n", 1U);
        return read_failed(*client, ucOffsetAddr);
    }
    *reg = ucOffsetAddr;
    if (dwDataLen == 0xFFFFFFFF) {
        free(reg);
        return read_failed(*client, ucOffsetAddr);
    }
    auto *scratch = static_cast<uint8_t *>(malloc(size_t{dwDataLen} + 1));
    if (scratch == nullptr) {
        QEL_AUDIT("Retimer_I2CReadBlockData", "malloc failed dwDataLen %x\n", dwDataLen);
        free(reg);
        return read_failed(*client, ucOffsetAddr);
    }
    // The message length is taken modulo 65536, so fewer bytes may arrive than are handed out.
    const uint32_t handed_out = std::min(dwDataLen, kLongestCopy);
    (void)qel_memset_s(scratch, size_t{dwDataLen} + 1, 0, handed_out);
    i2c_msg messages[2] = {
        {client->addr, 0, 1, reg},
        {client->addr, I2C_M_RD, static_cast<uint16_t>(dwDataLen & 0xFFFF), scratch}};
    const int32_t ret = ei2c_rdwr_xfer(client, messages, 2);
    if (ret < 0)
        QEL_AUDIT_TEXT("Retimer_I2CReadBlockData", "Read data failed!\n");
    else if (handed_out != 0)
        (void)qel_memcpy_s(pucReaddata, handed_out, scratch, handed_out);
    free_keeping_errno(scratch);
    free_keeping_errno(reg);
    return ret < 0 ? read_failed(*client, ucOffsetAddr) : 0;
}

int32_t Retimer_I2CWrite(const retimer_i2c_dev *device, uint32_t datalen, const uint8_t *pucData)
{
    if (pucData == nullptr || device == nullptr)
        return -1;
    const ei2c_client client = client_of(*device);
    if (Retimer_I2CWriteBlockData(&client, datalen, pucData) >= 0)
        return 0;
    return front_call_failed("Retimer_I2CWrite", client, datalen, 0);
}

int32_t Retimer_I2CRead(const retimer_i2c_dev *device, uint32_t datalen, uint8_t *pucBuf)
{
    if (pucBuf == nullptr || device == nullptr)
        return -1;
    const uint8_t reg = pucBuf[0];
    const ei2c_client client = client_of(*device);
    if (Retimer_I2CReadBlockData(&client, reg, datalen, pucBuf) >= 0)
        return 0;
    return front_call_failed("Retimer_I2CRead", client, datalen, reg);
}
