// The notation of raw messages: "w 0x10 0x20 r4" writes two bytes, then, after a repeated START,
// reads four.
#ifndef QELI2C_MESSAGES_H
#define QELI2C_MESSAGES_H

#include "transfer.h"

#include <string>
#include <vector>

namespace tool
{

// "w", or "wN" which checks the number of bytes that follow, and then bytes; "rN" reads N bytes. A
// usage error that names the word for anything else, and when the kernel's limits are passed.
std::vector<Message> parse_messages(const std::vector<std::string> &words);

} // namespace tool

#endif
