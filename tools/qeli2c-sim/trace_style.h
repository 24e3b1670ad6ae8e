// How transfers are told, in any form.
#ifndef QELI2C_SIM_TRACE_STYLE_H
#define QELI2C_SIM_TRACE_STYLE_H

#include "simboard/trace_reader.h"

#include <cstdint>
#include <string>
#include <vector>

namespace runner
{

enum class Times { relative, absolute, none };

struct TraceStyle {
    Times times = Times::relative;
    bool ids = true; // process and thread numbers
    bool color = false;
    uint64_t created_ns = 0;     // of the board, CLOCK_MONOTONIC
    int64_t realtime_offset = 0; // CLOCK_REALTIME less CLOCK_MONOTONIC, nanoseconds
};

TraceStyle trace_style(const simboard::State &state);

// "12:34:56.123456", with the date as "2026-01-31T12:34:56.123456789Z".
std::string clock_time(const TraceStyle &style, uint64_t monotonic_ns, bool with_date);

// Names of what the judge found, as in JSON.
std::vector<const char *> finding_names(uint16_t findings);

// "ok", the error, or "1 of 2" when messages were left out.
std::string result_of(const simboard::TransferRecord &record);

// "ENXIO" for -ENXIO.
std::string error_name(int32_t result);

// Whether the message was preceded by START and address.
bool is_addressed(const simboard::MessageRecord &message);

// A heading, then a transfer with its messages, in lines of at most 80 columns where names are not
// too long.
std::string text_heading(const TraceStyle &style);
std::string text_of(const simboard::TransferRecord &record, const TraceStyle &style);
std::string text_of_loss(uint32_t bus, uint64_t lost);

// One JSON document a line.
std::string json_of(const simboard::TransferRecord &record, const TraceStyle &style);
std::string json_of_loss(uint32_t bus, uint64_t lost);

} // namespace runner

#endif
