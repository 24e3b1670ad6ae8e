// Transfers on a target through the library, with failures told in words.
#ifndef QELI2C_TRANSFER_H
#define QELI2C_TRANSFER_H

#include "board_file.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tool
{

inline constexpr size_t kMostMessages = 42; // of one combined transfer, the kernel's limit
inline constexpr size_t kMostBytes = 8192;  // of one message, likewise

// One message; a write of `bytes`, or a read that fills them.
struct Message {
    bool read = false;
    std::vector<uint8_t> bytes;
};

// The same for the library; they point into `messages`.
std::vector<i2c_msg> raw_messages(uint16_t address, std::vector<Message> &messages);

enum class Tries { several, one };

// One combined transfer under one hold of the bus. On failure a Failure that begins with `doing`,
// as in "cannot read", and names the device, its path, the cause in words and what to try.
void transfer(const Target &target, std::vector<Message> &messages, const std::string &doing,
              Tries tries = Tries::several);

// The failure of a library call on `target` that returned `result` and left `error` in errno.
[[noreturn]] void fail_transfer(const Target &target, const std::string &doing, int32_t result,
                                int error);

// The cause in words with the errno's name: "the transfer timed out (ETIMEDOUT); ...". For calls on
// a whole bus.
std::string cause_in_words(uint32_t bus, int32_t result, int error);

// Whether the device acknowledges its address: one read of one byte, tried once.
bool acknowledges(const DevicePath &path);

} // namespace tool

#endif
