// How much longer than its mandated pauses a whole EEPROM takes to write and to read back: 64 KiB
// are 2048 chunks of 32 bytes, 25 ms after each one written and 5 ms after each one read.
//
//     qeli2c-sim run -- eeprom_pauses          (takes a minute)
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "qeli2c.h"

namespace
{

constexpr int32_t kSize = 65536;
constexpr int32_t kChunk = 32;
constexpr int32_t kChunks = kSize / kChunk;
constexpr double kWritePausesS = kChunks * 0.025;
constexpr double kReadPausesS = kChunks * 0.005;

template <typename Call>
double seconds(Call call)
{
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

int main()
{
    ei2c_client eeprom = {};
    eeprom.bus = 4; // id-eeprom of the reference board, behind two switches
    eeprom.addr = 0x50;
    eeprom.swi_addr = 0x00700071;
    eeprom.swi_chnl = 0x00050003;
    std::vector<uint8_t> data(kSize);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<uint8_t>(i * 7 + i / 251);
    std::vector<uint8_t> read(kSize);
    int32_t written = 0;
    int32_t got = 0;
    const double write_s = seconds([&] { written = eeprom_write(&eeprom, 0, data.data(), kSize); });
    const double read_s = seconds([&] { got = eeprom_read(&eeprom, 0, read.data(), kSize); });
    if (written != kSize || got != kSize || read != data) {
        (void)fprintf(stderr, "eeprom_pauses: wrote %d, read %d, data %s\n", written, got,
                      read == data ? "equal" : "different");
        return 1;
    }
    (void)printf("write %8.3f s, pauses %8.3f s, ratio %.4f\n", write_s, kWritePausesS,
                 write_s / kWritePausesS);
    (void)printf("read  %8.3f s, pauses %8.3f s, ratio %.4f\n", read_s, kReadPausesS,
                 read_s / kReadPausesS);
    (void)printf("both  %8.3f s, pauses %8.3f s, ratio %.4f\n", write_s + read_s,
                 kWritePausesS + kReadPausesS, (write_s + read_s) / (kWritePausesS + kReadPausesS));
    return 0;
}
