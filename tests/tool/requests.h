// Requests to device files as lines of a transcript, made by this process itself:
//
//     :4/0x50 12 34 r2             one transfer: writes 12 34, reads two bytes
//     :7/0x30 00 + 0x31 07*3 /stop its next message goes to 0x31, with three bytes and a flag
//     :7/0x30 00 r34 /len2         the device says how many come, after two bytes
//     :7/0x30 11*8 x42             42 such messages; "nowhere": a buffer that is not there
//     :taken 0/0x41                which of all bytes it acknowledges, each written alone
//     :smbus 7/0x30 r word 10 pec  one SMBus request; data follow the command
//     :ioctl 7 slave 0x7f pec 1    requests with one number, one descriptor for the line
#ifndef TESTS_TOOL_REQUESTS_H
#define TESTS_TOOL_REQUESTS_H

#include <cstdint>
#include <deque>
#include <linux/i2c.h>
#include <sstream>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

// Bytes in hexadecimal; from eight on "00*16" stands for equal ones, "40+16" for ones that count
// up.
void add_bytes(Bytes &bytes, const std::string &word);
std::string shown(const Bytes &bytes);

// The messages of one transfer.
struct Message {
    uint16_t address = 0;
    int flags = 0;
    size_t length = 0;   // of a read
    uint8_t counted = 0; // bytes to come besides those that the device counts
    bool nowhere = false;
    Bytes bytes;
};
std::deque<Message> parse_messages(std::istringstream &words, uint16_t address);
std::vector<i2c_msg> as_list(std::deque<Message> &messages);
bool same_bytes(const std::deque<Message> &before, const std::deque<Message> &after);
Bytes what_was_read(const std::deque<Message> &messages);

// What came back: bytes in hexadecimal, "ok" when there are none, or the name of the error.
std::string transfer_line(const std::string &line);
std::string taken_line(const std::string &line);
std::string smbus_line(const std::string &line);
std::string ioctl_line(const std::string &line);

#endif
