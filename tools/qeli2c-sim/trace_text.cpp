// The trace as text.
#include "trace_style.h"

#include <algorithm>
#include <cstdio>

namespace runner
{

namespace
{

using simboard::MessageRecord;
using simboard::Outcome;
using simboard::TransferRecord;

constexpr size_t kColumns = 80;
constexpr char kRed[] = "\033[31m";
constexpr char kYellow[] = "\033[33m";
constexpr char kPlain[] = "\033[0m";

// Words laid into lines: those that do not fit go on below the first, from the margin on.
struct Lines {
    std::string text;
    size_t column = 0;
    size_t margin = 0;
};

void break_line(Lines &lines)
{
    lines.text += "\n" + std::string(lines.margin, ' ');
    lines.column = lines.margin;
}

void put(Lines &lines, const std::string &words, size_t wanted_column, const char *color = nullptr)
{
    if (lines.column < wanted_column) {
        lines.text.append(wanted_column - lines.column, ' ');
        lines.column = wanted_column;
    }
    lines.text += color != nullptr ? color + words + kPlain : words;
    lines.column += words.size();
}

void put_word(Lines &lines, const std::string &word, size_t margin, const char *color = nullptr)
{
    if (lines.column + 1 + word.size() > kColumns) {
        lines.margin = margin;
        break_line(lines);
    } else {
        put(lines, " ", 0);
    }
    put(lines, word, 0, color);
}

size_t time_width(const TraceStyle &style)
{
    return style.times == Times::none ? 0 : style.times == Times::absolute ? 16 : 12;
}

std::string time_of(const TransferRecord &record, const TraceStyle &style)
{
    if (style.times == Times::absolute) {
        return clock_time(style, record.start_ns, false);
    }
    char text[32];
    const uint64_t microseconds = (record.start_ns - style.created_ns) / 1000;
    std::snprintf(text, sizeof(text), "%4llu.%06llu",
                  static_cast<unsigned long long>(microseconds / 1000000),
                  static_cast<unsigned long long>(microseconds % 1000000));
    return text;
}

std::string process_of(const TransferRecord &record, const TraceStyle &style)
{
    std::string text = record.process;
    if (style.ids) {
        text += ":" + std::to_string(record.task.pid);
        if (record.task.tid != record.task.pid) {
            text += "/" + std::to_string(record.task.tid);
        }
    }
    return text;
}

std::string hex(unsigned value)
{
    char text[16];
    std::snprintf(text, sizeof(text), "%02x", value);
    return text;
}

// "70.5 71.3"; every open channel where there are several, "70.0+5".
std::string path_of(const TransferRecord &record)
{
    std::string text;
    for (const simboard::OpenSwitch &open : record.path) {
        std::string channels;
        for (unsigned channel = 0; channel < 8; channel++) {
            if ((open.channels >> channel & 1) != 0) {
                channels += (channels.empty() ? "" : "+") + std::to_string(channel);
            }
        }
        text += (text.empty() ? "" : " ") + hex(open.address) + "." + channels;
    }
    return text.empty() ? "-" : text;
}

void put_message(Lines &lines, const MessageRecord &message, const TraceStyle &style)
{
    const char *const red = style.color ? kRed : nullptr;
    const bool read = (message.flags & I2C_M_RD) != 0;
    put(lines, read ? "R " : "W ", 0);
    put(lines, is_addressed(message) ? hex(message.address) : "--", 0);
    const size_t margin = lines.column + 1;
    if (message.outcome == Outcome::not_reached) {
        put_word(lines, "not reached", margin);
    }
    if (message.address_nack) {
        put_word(lines, "NACK", margin, red);
    }
    for (size_t i = 0; i < message.bytes.size(); i++) {
        put_word(lines, hex(message.bytes[i]), margin);
        if (i == message.first_nack) {
            put_word(lines, "NACK", margin, red);
        }
    }
    if (message.outcome == Outcome::bad_count) {
        put_word(lines, "bad count", margin, red);
    }
}

} // namespace

std::string text_heading(const TraceStyle &style)
{
    const char *const names = "bus process           path      result messages\n";
    const std::string time = style.times == Times::none ? "" : "time";
    return time + std::string(time_width(style) - time.size(), ' ') + names;
}

std::string text_of(const TransferRecord &record, const TraceStyle &style)
{
    Lines lines;
    const size_t start = time_width(style);
    if (style.times != Times::none) {
        put(lines, time_of(record, style) + " ", 0);
    }
    char bus[16];
    std::snprintf(bus, sizeof(bus), "%3u ", record.bus);
    put(lines, bus, start);
    put(lines, process_of(record, style) + " ", start + 4);
    put(lines, path_of(record) + " ", start + 22);
    const bool failed = record.result < 0;
    put(lines, result_of(record), start + 32, failed && style.color ? kRed : nullptr);
    const size_t margin = start + 39;
    put(lines, " ", 0);
    bool first = true;
    for (const MessageRecord &message : record.messages) {
        lines.margin = margin;
        if (!first || lines.column > margin + 12) {
            break_line(lines);
        }
        put(lines, "", margin);
        put_message(lines, message, style);
        first = false;
    }
    lines.margin = margin;
    for (const char *const name : finding_names(record.findings)) {
        break_line(lines);
        put(lines, std::string("! ") + name, 0, style.color ? kYellow : nullptr);
    }
    if (record.fault != 0) {
        put(lines, " " + std::to_string(record.fault), 0, style.color ? kYellow : nullptr);
    }
    return lines.text + "\n";
}

std::string text_of_loss(uint32_t bus, uint64_t lost)
{
    return "# bus " + std::to_string(bus) + ": " + std::to_string(lost) +
           (lost == 1 ? " transfer is" : " transfers are") + " no longer in the trace\n";
}

} // namespace runner
