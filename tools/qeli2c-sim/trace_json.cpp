// The trace as JSON, one document a line. Written by hand, since a board makes transfers faster
// than trees of values are built.
#include "trace_style.h"

#include <cstdio>
#include <iterator>

namespace runner
{

namespace
{

using simboard::MessageRecord;
using simboard::Outcome;
using simboard::TransferRecord;

std::string quoted(const std::string &text)
{
    std::string result = "\"";
    for (const char c : text) {
        const unsigned char code = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (code < 0x20 || code > 0x7e) { // a program's name may be any bytes
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\u%04x", code);
            result += escaped;
        } else {
            result += c;
        }
    }
    return result + "\"";
}

template <typename Values, typename Print>
std::string list_of(const Values &values, Print print)
{
    std::string text = "[";
    for (const auto &value : values) {
        text += (text.size() > 1 ? "," : "") + print(value);
    }
    return text + "]";
}

std::string channels_of(const simboard::OpenSwitch &open)
{
    std::string text = "{\"address\":" + std::to_string(open.address) + ",\"channels\":[";
    const char *separator = "";
    for (unsigned channel = 0; channel < 8; channel++) {
        if ((open.channels >> channel & 1) != 0) {
            text += separator + std::to_string(channel);
            separator = ",";
        }
    }
    return text + "]}";
}

const char *name_of(Outcome outcome)
{
    switch (outcome) {
    case Outcome::complete:
        return "complete";
    case Outcome::address_nack:
        return "address-nack";
    case Outcome::data_nack:
        return "data-nack";
    case Outcome::bad_count:
        return "bad-count";
    case Outcome::not_reached:
        break;
    }
    return "not-reached";
}

// Of the transaction sizes in linux/i2c.h.
std::string smbus_name(int32_t size)
{
    constexpr const char *kNames[] = {
        "quick",         "byte",       "byte-data",        "word-data",
        "proc-call",     "block-data", "i2c-block-broken", "block-proc-call",
        "i2c-block-data"};
    const size_t index = static_cast<size_t>(size);
    return size < 0 || index >= std::size(kNames) ? "null" : quoted(kNames[index]);
}

std::string message_of(const MessageRecord &message)
{
    const bool reached = message.outcome != Outcome::not_reached;
    const bool nacked = message.first_nack < message.bytes.size();
    return std::string("{\"address\":") + std::to_string(message.address) +
           ",\"direction\":" + ((message.flags & I2C_M_RD) != 0 ? "\"read\"" : "\"write\"") +
           ",\"flags\":" + std::to_string(message.flags) +
           ",\"length\":" + std::to_string(message.length) + ",\"outcome\":\"" +
           name_of(message.outcome) + "\",\"acknowledged\":" +
           (!reached               ? "null"
            : message.address_nack ? "false"
                                   : "true") +
           ",\"nack_at\":" + (nacked ? std::to_string(message.first_nack) : "null") +
           ",\"bytes\":" +
           list_of(message.bytes, [](uint8_t byte) { return std::to_string(byte); }) + "}";
}

} // namespace

std::string json_of(const TransferRecord &record, const TraceStyle &style)
{
    std::string text = "{\"type\":\"transfer\"";
    if (style.times == Times::absolute) {
        text += ",\"start\":\"" + clock_time(style, record.start_ns, true) + "\",\"end\":\"" +
                clock_time(style, record.end_ns, true) + "\"";
    } else if (style.times == Times::relative) {
        text += ",\"start_ns\":" + std::to_string(record.start_ns - style.created_ns) +
                ",\"end_ns\":" + std::to_string(record.end_ns - style.created_ns);
    }
    text += ",\"bus\":" + std::to_string(record.bus) +
            ",\"number\":" + std::to_string(record.number) +
            ",\"process\":" + quoted(record.process);
    if (style.ids) {
        text += ",\"pid\":" + std::to_string(record.task.pid) +
                ",\"tid\":" + std::to_string(record.task.tid);
    }
    text += ",\"path\":" + list_of(record.path, channels_of) +
            ",\"smbus\":" + smbus_name(record.smbus_size) +
            ",\"messages\":" + list_of(record.messages, message_of) +
            ",\"result\":" + std::to_string(record.result) +
            ",\"error\":" + (record.result < 0 ? quoted(error_name(record.result)) : "null") +
            ",\"fault\":" + (record.fault != 0 ? std::to_string(record.fault) : "null") +
            ",\"findings\":" +
            list_of(finding_names(record.findings), [](const char *name) { return quoted(name); });
    return text + "}\n";
}

std::string json_of_loss(uint32_t bus, uint64_t lost)
{
    return "{\"type\":\"lost\",\"bus\":" + std::to_string(bus) +
           ",\"count\":" + std::to_string(lost) + "}\n";
}

} // namespace runner
