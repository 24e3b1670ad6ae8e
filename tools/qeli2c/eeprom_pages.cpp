// Page transfers of EEPROMs.
#include "eeprom_pages.h"

#include "failure.h"
#include "transfer.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace tool
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr uint32_t kLibraryPage = 32;

// The AT24C512C's write cycle takes 5 ms at most, older parts' 10 ms (datasheets, tWR).
constexpr std::chrono::milliseconds kLongestWriteCycle(100);
constexpr std::chrono::microseconds kPollPause(500);

// Acknowledge polling: a busy EEPROM does not answer to its address.
void wait_until_ready(const Target &target)
{
    const Clock::time_point deadline = Clock::now() + kLongestWriteCycle;
    errno = 0;
    while (!acknowledges(target.path)) {
        if (Clock::now() > deadline)
            fail_transfer(target, "cannot write", -1, errno);
        std::this_thread::sleep_for(kPollPause);
    }
}

std::vector<uint8_t> word_address(uint32_t offset)
{
    return {static_cast<uint8_t>(offset >> 8), static_cast<uint8_t>(offset)};
}

void check(const Eeprom &eeprom, const char *doing, int32_t done, uint32_t count)
{
    if (done < 0)
        fail_transfer(eeprom.target, doing, done, errno);
    if (static_cast<uint32_t>(done) != count)
        throw operation_failed(std::string(doing) + " " + to_string(eeprom.target) + ": only " +
                               std::to_string(done) + " of " + std::to_string(count) + " bytes");
}

} // namespace

EepromLock::EepromLock()
{
    errno = 0;
    if (ee_lock_eeprom() < 0)
        throw operation_failed(std::string("the EEPROM semaphore cannot be had: ") +
                               std::strerror(errno));
}

EepromLock::~EepromLock()
{
    ee_unlock_eeprom();
}

uint32_t page_part(const Eeprom &eeprom, uint32_t offset, size_t count)
{
    const uint32_t page = eeprom.pace == Pace::fast ? eeprom.memory.page : kLibraryPage;
    return static_cast<uint32_t>(std::min<size_t>(count, page - offset % page));
}

void read_page(const Eeprom &eeprom, uint32_t offset, uint8_t *bytes, uint32_t count)
{
    if (eeprom.pace == Pace::fast) {
        std::vector<Message> messages = {{false, word_address(offset)},
                                         {true, std::vector<uint8_t>(count)}};
        transfer(eeprom.target, messages, "cannot read");
        std::copy(messages[1].bytes.begin(), messages[1].bytes.end(), bytes);
        return;
    }
    const ei2c_client client = to_client(eeprom.target.path);
    errno = 0;
    check(eeprom, "cannot read",
          ee_eeprom_page_read(&client, static_cast<int32_t>(offset), bytes,
                              static_cast<int32_t>(count)),
          count);
}

void write_page(const Eeprom &eeprom, uint32_t offset, const uint8_t *bytes, uint32_t count)
{
    if (eeprom.pace == Pace::fast) {
        std::vector<Message> messages(1);
        messages[0].bytes = word_address(offset);
        messages[0].bytes.insert(messages[0].bytes.end(), bytes, bytes + count);
        wait_until_ready(eeprom.target);
        transfer(eeprom.target, messages, "cannot write");
        wait_until_ready(eeprom.target);
        return;
    }
    const ei2c_client client = to_client(eeprom.target.path);
    errno = 0;
    check(eeprom, "cannot write",
          ee_eeprom_page_write(&client, static_cast<int32_t>(offset), bytes,
                               static_cast<int32_t>(count)),
          count);
}

} // namespace tool
