// What callers compile against on this processor, and what the library costs a process.
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <sys/types.h>

#include "cases.h"
#include "link.h"
#include "wire.h"

namespace board
{

namespace
{

void records(Check &check)
{
    equal(check, "bytes of ei2c_client", sizeof(ei2c_client), 32);
    equal(check, "offset of swi_addr", offsetof(ei2c_client, swi_addr), 8);
    equal(check, "offset of pcie_name", offsetof(ei2c_client, pcie_name), 16);
    equal(check, "bytes of tpa626_info", sizeof(tpa626_info), 60);
    equal(check, "offset of wConfig", offsetof(tpa626_info, wConfig), 32);
    equal(check, "offset of fVoltCoef2", offsetof(tpa626_info, fVoltCoef2), 56);
    equal(check, "bytes of tpidMap", sizeof(tpidMap), 4);
    equal(check, "bytes of mapFlag", sizeof(mapFlag), 4);
    equal(check, "bytes of pid", sizeof(pid), 4);
    equal(check, "bytes of g_dwEi2cLog", sizeof(g_dwEi2cLog), 4);
}

// This program is built with the same options as the library.
void wide_types(Check &check)
{
    equal(check, "bytes of a pointer", sizeof(void *), 4);
    equal(check, "bytes of a file offset", sizeof(off_t), 8);
    equal(check, "bytes of a time", sizeof(time_t), 8);
}

// Sum over the mappings of the file, in KiB (proc(5), smaps).
long kibibytes(const std::string &file, const std::string &field)
{
    std::ifstream smaps("/proc/self/smaps");
    bool inside = false;
    long sum = 0;
    for (std::string line; std::getline(smaps, line);) {
        const bool head = line.find('-') < line.find(' ') && line.find(':') > line.find(' ');
        if (head)
            inside = line.find(file) != std::string::npos;
        else if (inside && line.starts_with(field))
            sum += std::strtol(line.c_str() + field.size(), nullptr, 10);
    }
    return sum;
}

// Every part of the library is used, so that its pages are there.
void use_everything()
{
    const ei2c_client eeprom = device(Chip::eeprom, Level::far);
    const ei2c_client pins = device(Chip::pins, Level::near);
    const ei2c_client monitor = device(Chip::monitor, Level::far);
    uint8_t bytes[64] = {};
    uint32_t word = 0;
    float value = 0;
    (void)eeprom_write(&eeprom, 0, bytes, 64);
    (void)i2cRead(&eeprom, 64, bytes, 2, 0);
    (void)i2c_read_multi_para(&eeprom, 0, 2, 64, bytes);
    (void)Retimer_I2CReadBlockData(&monitor, 0, 2, bytes);
    (void)epld_i2c_read_deviceId(&pins, bytes);
    (void)pca9535_gpio_get_value(&pins, 0, &word);
    (void)pca9554_gpio_byte_get_value(&pins, 1, bytes);
    (void)TPA626_GetPower(&monitor, 1, &value);
    (void)i2c_bus_status_check(3, bytes);
    int32_t fd = -1;
    int32_t semaphore = -1;
    (void)ei2c_smbus_select_switch(&pins, &fd, &semaphore);
    (void)ei2c_smbus_deselect_switch(&pins, fd, semaphore);
    (void)lockAndSelectBridge_Ridgeback(&pins, &semaphore, &fd);
    (void)unlockAndDeselectBridge_Ridgeback(&pins, &semaphore, &fd);
}

void resident_memory(Check &check)
{
    use_everything();
    const long library = kibibytes("/libqeli2c.so", "Rss:");
    const long platform = kibibytes("/libqelplatform.so", "Rss:");
    const long mapped = kibibytes("/libqeli2c.so", "Size:");
    link::say("NOTE resident after using everything: libqeli2c " + std::to_string(library) +
              " KiB of " + std::to_string(mapped) + " KiB mapped, libqelplatform " +
              std::to_string(platform) + " KiB");
    is_true(check, "the library was found in memory", library >= 8 && platform >= 4);
    is_true(check, "at most 64 KiB of the library can be there", mapped <= 64);
}

} // namespace

void add_layout_cases(Cases &cases)
{
    cases.push_back({"layout/records", records});
    cases.push_back({"layout/wide-offsets-and-times", wide_types});
    cases.push_back({"layout/resident-memory", resident_memory});
}

} // namespace board
