// How far long work has got: a bar with the rate and the time left, on a terminal only.
#ifndef QELI2C_PROGRESS_H
#define QELI2C_PROGRESS_H

#include "tool.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace tool
{

class Progress
{
public:
    Progress(const Options &options, std::string doing, uint64_t total);
    ~Progress(); // removes the bar
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void at(uint64_t done); // bytes; shown at most ten times a second

private:
    using Clock = std::chrono::steady_clock;
    const Options &options_;
    std::string doing_;
    uint64_t total_;
    bool utf8_, colour_;
    Clock::time_point start_, shown_;
};

// "512 B", "1.5 KiB".
std::string amount(double bytes);

} // namespace tool

#endif
