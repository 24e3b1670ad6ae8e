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

constexpr int32_t size = 65536;
constexpr int32_t chunk = 32;
constexpr double write_pauses_s = size / chunk * 0.025;
constexpr double read_pauses_s = size / chunk * 0.005;

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
    std::vector<uint8_t> data(size);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<uint8_t>(i * 7 + i / 251);
    std::vector<uint8_t> read(size);
    int32_t written = 0;
    int32_t got = 0;
    const double write_s = seconds([&] { written = eeprom_write(&eeprom, 0, data.data(), size); });
    const double read_s = seconds([&] { got = eeprom_read(&eeprom, 0, read.data(), size); });
    if (written != size || got != size || read != data) {
        (void)fprintf(stderr, "eeprom_pauses: wrote %d, read %d, data %s\n", written, got,
                      read == data ? "equal" : "different");
        return 1;
    }
    (void)printf("write %8.3f s, pauses %8.3f s, ratio %.4f\n", write_s, write_pauses_s,
                 write_s / write_pauses_s);
    (void)printf("read  %8.3f s, pauses %8.3f s, ratio %.4f\n", read_s, read_pauses_s,
                 read_s / read_pauses_s);
    (void)printf("both  %8.3f s, pauses %8.3f s, ratio %.4f\n", write_s + read_s,
                 write_pauses_s + read_pauses_s,
                 (write_s + read_s) / (write_pauses_s + read_pauses_s));
    return 0;
}
