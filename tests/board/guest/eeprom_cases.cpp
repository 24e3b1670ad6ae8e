// EEPROM calls: any length at any offset, in transfers that stay within 32-byte pages. How it was
// cut shows in the kernel's trace, what arrived in the memory.
#include <algorithm>

#include "cases.h"
#include "trace.h"
#include "wire.h"

namespace board
{

namespace
{

Bytes counted(size_t count, uint8_t first)
{
    Bytes bytes(count);
    for (size_t i = 0; i < count; i++)
        bytes[i] = static_cast<uint8_t>(first + i);
    return bytes;
}

// "50 w" and the offset with which each write to the chip began.
std::vector<std::string> page_writes(uint16_t address)
{
    char start[8];
    (void)std::snprintf(start, sizeof start, "%02x w", address);
    std::vector<std::string> writes;
    for (const std::string &message : trace::messages(bench_bus))
        if (message.starts_with(start))
            writes.push_back(message.substr(5, 5) + " +" +
                             std::to_string((message.size() - 4) / 3 - 2));
    return writes;
}

std::string joined(const std::vector<std::string> &texts)
{
    std::string all;
    for (const std::string &text : texts)
        all += (all.empty() ? "" : ", ") + text;
    return all;
}

constexpr struct {
    const char *name;
    int32_t offset;
    int32_t length;
    const char *pages; // offset bytes and data bytes of each transfer
} writes[] = {
    {"within-a-page", 0x2004, 20, "20 04 +20"},
    {"up-to-a-border", 0x2036, 10, "20 36 +10"},
    {"across-a-border", 30, 10, "00 1e +2, 00 20 +8"},
    {"three-pages", 0x20F0, 70, "20 f0 +16, 21 00 +32, 21 20 +22"},
    {"from-the-last-page-to-the-first", 65530, 12, "ff fa +6, 00 00 +6"},
};

void paged_write(Check &check, int32_t offset, int32_t length, const std::string &pages,
                 Level level)
{
    const ei2c_client eeprom = device(Chip::eeprom, level);
    const auto start = static_cast<uint16_t>(offset);
    const auto count = static_cast<size_t>(length);
    const Bytes bytes = counted(count, static_cast<uint8_t>(0x40 + offset));
    wire::set_memory(eeprom, static_cast<uint16_t>(start - 1), Bytes(count + 2, 0xEE));
    trace::start();
    equal(check, "result", eeprom_write(&eeprom, offset, bytes.data(), length), length);
    equal(check, "transfers", joined(page_writes(eeprom.addr)), pages);
    Bytes wanted = {0xEE};
    wanted.insert(wanted.end(), bytes.begin(), bytes.end());
    wanted.push_back(0xEE);
    equal(check, "memory", wire::memory(eeprom, static_cast<uint16_t>(start - 1), count + 2),
          wanted);
}

void paged_read(Check &check, Level level)
{
    const ei2c_client eeprom = device(Chip::eeprom, level);
    const Bytes bytes = counted(100, 0x11);
    wire::set_memory(eeprom, 0x2205, bytes);
    Bytes received(100);
    trace::start();
    equal(check, "result", eeprom_read(&eeprom, 0x2205, received.data(), 100), 100);
    // Each read begins with a write of the offset alone.
    equal(check, "transfers", joined(page_writes(eeprom.addr)),
          "22 05 +0, 22 20 +0, 22 40 +0, 22 60 +0");
    equal(check, "bytes", received, bytes);
}

void whole_kilobyte(Check &check)
{
    const ei2c_client eeprom = device(Chip::eeprom, Level::far);
    const Bytes bytes = counted(1024, 0x77);
    Bytes received(1024);
    equal(check, "result of the write",
          ei2c_eeprom_write_retry(&eeprom, 0x3011, bytes.data(), 1024), 1024);
    equal(check, "result of the read",
          ei2c_eeprom_read_retry(&eeprom, 0x3011, received.data(), 1024), 1024);
    is_true(check, "the bytes came back", received == bytes);
    is_true(check, "the witness finds them", wire::memory(eeprom, 0x3011, 1024) == bytes);
}

void page_calls(Check &check)
{
    const ei2c_client eeprom = device(Chip::eeprom, Level::root);
    const Bytes bytes = counted(100, 0x21);
    Bytes received(100);
    equal(check, "write of 40 bytes at a page's start",
          ee_eeprom_page_write(&eeprom, 0x2400, bytes.data(), 40), 32);
    equal(check, "write of 100 bytes into a page",
          ee_eeprom_page_write(&eeprom, 0x2405, bytes.data(), 100), 27);
    equal(check, "read of 100 bytes out of a page",
          ee_eeprom_page_read(&eeprom, 0x2405, received.data(), 100), 27);
    is_true(check, "the page holds what was written",
            std::equal(received.begin(), received.begin() + 27, bytes.begin()));
    equal(check, "an offset too high", ee_eeprom_page_write(&eeprom, 0x7FFFFFE0, bytes.data(), 1),
          -1);
}

void twin_untouched(Check &check)
{
    ei2c_client twin = device(Chip::eeprom, Level::near);
    twin.swi_chnl = 0;
    ei2c_client far_twin = device(Chip::eeprom, Level::far);
    far_twin.swi_chnl = 5U << 16 | 7;
    for (const auto &[other, level] :
         {std::pair{twin, Level::near}, std::pair{far_twin, Level::far}}) {
        const ei2c_client eeprom = device(Chip::eeprom, level);
        const Bytes mark = counted(16, 0xD0);
        const Bytes bytes = counted(16, 0x10);
        wire::set_memory(other, 0x2500, mark);
        equal(check, "result", eeprom_write(&eeprom, 0x2500, bytes.data(), 16), 16);
        equal(check, "memory", wire::memory(eeprom, 0x2500, 16), bytes);
        equal(check, "memory of the twin on another channel", wire::memory(other, 0x2500, 16),
              mark);
        Bytes received(16);
        equal(check, "result for the twin", eeprom_read(&other, 0x2500, received.data(), 16), 16);
        equal(check, "bytes of the twin", received, mark);
    }
}

} // namespace

void add_eeprom_cases(Cases &cases)
{
    for (const auto &row : writes)
        cases.push_back({std::string("eeprom/write-") + row.name, [&row](Check &check) {
                             paged_write(check, row.offset, row.length, row.pages, Level::root);
                         }});
    cases.push_back({"eeprom/write-across-a-border/two-switches", [](Check &check) {
                         paged_write(check, 0x25FE, 4, "25 fe +2, 26 00 +2", Level::far);
                     }});
    for (const Level level : all_levels)
        cases.push_back({"eeprom/read-four-pages/" + name_of(level),
                         [level](Check &check) { paged_read(check, level); }});
    cases.push_back({"eeprom/whole-kilobyte", whole_kilobyte});
    cases.push_back({"eeprom/page-calls", page_calls});
    cases.push_back({"eeprom/twin-on-another-channel", twin_untouched});
}

} // namespace board
