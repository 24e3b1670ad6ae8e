// The progress bar.
#include "progress.h"

#include "output.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>
#include <utility>

namespace tool
{

namespace
{

constexpr size_t kTextColumns = 53; // all but the bar
constexpr std::chrono::milliseconds kBetween(100);

std::string clock_text(double seconds)
{
    char text[32];
    const auto whole = static_cast<unsigned>(std::min(seconds, 359999.0) + 0.5);
    std::snprintf(text, sizeof text, "%u:%02u", whole / 60, whole % 60);
    return text;
}

// Eighths of a column where the terminal can show them.
std::string bar(double part, size_t columns, bool utf8)
{
    static constexpr const char *kEighths[] = {"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const auto eighths = static_cast<size_t>(part * static_cast<double>(columns) * 8);
    std::string text;
    size_t used = eighths / 8;
    for (size_t i = 0; i < used; i++)
        text += utf8 ? "█" : "#";
    if (utf8 && eighths % 8 && used < columns) {
        text += kEighths[eighths % 8];
        used++;
    }
    for (; used < columns; used++)
        text += utf8 ? "·" : "-";
    return text;
}

} // namespace

std::string amount(double bytes)
{
    char text[32];
    if (bytes < 1024)
        std::snprintf(text, sizeof text, "%.0f B", bytes);
    else
        std::snprintf(text, sizeof text, "%.1f KiB", bytes / 1024);
    return text;
}

Progress::Progress(const Options &options, std::string doing, uint64_t total)
    : options_(options), doing_(std::move(doing)), total_(std::max<uint64_t>(total, 1)),
      utf8_(writes_utf8()), colour_(wants_colour()), start_(Clock::now())
{
}

Progress::~Progress()
{
    show_progress(options_, "");
}

void Progress::at(uint64_t done)
{
    const Clock::time_point now = Clock::now();
    if (now - shown_ < kBetween)
        return;
    shown_ = now;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    const double part = static_cast<double>(done) / static_cast<double>(total_);
    const double rate = static_cast<double>(done) / std::max(seconds, 1e-3);
    const size_t columns = std::min<size_t>(terminal_columns(STDERR_FILENO), 80) - 2; // "^C"
    char text[128];
    std::snprintf(text, sizeof text, " %3.0f %%  %8s of %-8s  %8s/s  %5s left", part * 100,
                  amount(static_cast<double>(done)).c_str(),
                  amount(static_cast<double>(total_)).c_str(), amount(rate).c_str(),
                  done ? clock_text(seconds / part - seconds).c_str() : "-:--");
    std::string line = doing_ + " ";
    if (columns > kTextColumns + line.size()) {
        line += colour_ ? "\033[36m" : "";
        line += bar(part, columns - kTextColumns - doing_.size(), utf8_);
        line += colour_ ? "\033[0m" : "";
    }
    show_progress(options_, line + text);
}

} // namespace tool
