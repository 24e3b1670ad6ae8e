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

#include <string>

// What came back: bytes in hexadecimal, "ok" when there are none, or the name of the error.
std::string transfer_line(const std::string &line);
std::string taken_line(const std::string &line);
std::string smbus_line(const std::string &line);
std::string ioctl_line(const std::string &line);

#endif
