// How much longer than its mandated pauses and its bits at 400 kHz a whole EEPROM takes to write
// and to read back: 64 KiB are 2048 chunks of 32 bytes, 25 ms after each one written and 5 ms after
// each one read.
//
//     qeli2c-sim run --speed 400k -- eeprom_pauses          (takes a minute)
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
constexpr double kBitS = 1 / 400e3;
// START, nine bits a byte, STOP: two switches opened and closed, the address and the offset, the
// data; a read has a repeated START and the address once more.
constexpr int kSwitchBits = 4 * (1 + 9 * 2 + 1);
constexpr int kWriteBits = kSwitchBits + 1 + 9 * (1 + 2 + kChunk) + 1;
constexpr int kReadBits = kSwitchBits + 1 + 9 * (1 + 2) + 1 + 9 * (1 + kChunk) + 1;
constexpr double kWriteLeastS = kChunks * (0.025 + kWriteBits * kBitS);
constexpr double kReadLeastS = kChunks * (0.005 + kReadBits * kBitS);

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
    (void)printf("write %8.3f s, least %8.3f s, ratio %.4f\n", write_s, kWriteLeastS,
                 write_s / kWriteLeastS);
    (void)printf("read  %8.3f s, least %8.3f s, ratio %.4f\n", read_s, kReadLeastS,
                 read_s / kReadLeastS);
    (void)printf("both  %8.3f s, least %8.3f s, ratio %.4f\n", write_s + read_s,
                 kWriteLeastS + kReadLeastS, (write_s + read_s) / (kWriteLeastS + kReadLeastS));
    return 0;
}
