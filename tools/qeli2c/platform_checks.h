// What the library counts on of the platform services, one check for each promise.
#ifndef QELI2C_PLATFORM_CHECKS_H
#define QELI2C_PLATFORM_CHECKS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tool
{

enum class Verdict : char { ok = 'o', failed = 'F', skipped = 's' };

struct Finding {
    Verdict verdict;
    std::string reason; // empty when it is kept
};

struct CheckSettings {
    uint32_t key;                    // of a semaphore that nobody uses
    std::optional<uint32_t> address; // a register that may be read
};

struct PlatformCheck {
    const char *service;
    const char *promise;
    // Run in a process of its own, which it may hold, change and leave behind as it likes.
    Finding (*run)(const CheckSettings &settings);
};

const std::vector<PlatformCheck> &lock_checks(); // semaphores and file locks
const std::vector<PlatformCheck> &call_checks(); // everything else

} // namespace tool

#endif
