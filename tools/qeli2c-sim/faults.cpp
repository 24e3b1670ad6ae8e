// Reading fault plans, and telling what became of them.
#include "faults.h"
#include "command_line.h"
#include "simboard/fault_words.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace runner
{

namespace
{

constexpr size_t kIndent = 24; // of the table's last column

// A board opened for a moment.
struct OpenedBoard {
    simboard::BoardView view;

    explicit OpenedBoard(const std::string &directory) : view(simboard::open_board(directory)) {}
    ~OpenedBoard() { simboard::close_board(view); }
    OpenedBoard(const OpenedBoard &) = delete;
    OpenedBoard &operator=(const OpenedBoard &) = delete;
};

// Breaks lines between words, so that they fit the screen.
std::string wrap(const std::string &text)
{
    std::string wrapped;
    size_t column = kIndent;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find(' ', start), text.size());
        const size_t length = end - start;
        if (column > kIndent && column + 1 + length > kWidth) {
            wrapped += "\n" + std::string(kIndent, ' ');
            column = kIndent;
        } else if (column > kIndent) {
            wrapped += ' ';
            column++;
        }
        wrapped += text.substr(start, length);
        column += length;
        start = end + 1;
    }
    return wrapped;
}

} // namespace

uint32_t parse_seed(const std::optional<uint64_t> &seed)
{
    if (seed && (*seed == 0 || *seed > UINT32_MAX)) {
        throw UsageError("--seed must be a number from 1 to 4294967295");
    }
    return static_cast<uint32_t>(seed.value_or(0));
}

std::vector<simboard::PlannedFault>
read_fault_plan(const std::string &file, const simboard::BoardDescription &board, uint64_t seed)
{
    std::string text;
    if (!simboard::read_text_file(file == "-" ? "/dev/stdin" : file, text)) {
        throw std::runtime_error(file + ": cannot be read: " + std::strerror(errno));
    }
    std::vector<simboard::DescriptionError> errors;
    const auto faults = simboard::parse_fault_plan(text, board, seed, errors);
    for (const simboard::DescriptionError &error : errors) {
        std::fprintf(stderr, "%s\n", simboard::to_string(file, error).c_str());
    }
    if (!errors.empty()) {
        throw std::runtime_error("the fault plan cannot be used; nothing was done");
    }
    return faults;
}

void add_faults_at(const std::string &directory, const std::vector<simboard::PlannedFault> &faults)
{
    if (!faults.empty()) {
        const OpenedBoard board(directory);
        simboard::add_faults(board.view, faults);
    }
}

void print_faults(const std::vector<simboard::FaultRecord> &faults)
{
    if (faults.empty()) {
        return;
    }
    std::printf("%5s %7s %9s\n", "fault", "struck", "matched");
    for (const simboard::FaultRecord &fault : faults) {
        const std::string label = fault.step.label;
        const std::string text =
            (label.empty() ? "" : "\"" + label + "\" ") + fault.target + ": " + fault.text;
        std::printf("%5u %7llu %9llu %s\n", fault.step.number,
                    static_cast<unsigned long long>(fault.step.fired),
                    static_cast<unsigned long long>(fault.step.matched), wrap(text).c_str());
    }
}

Json::Value faults_to_json(const std::vector<simboard::FaultRecord> &faults)
{
    Json::Value list(Json::arrayValue);
    for (const simboard::FaultRecord &fault : faults) {
        Json::Value entry;
        entry["step"] = fault.step.number;
        entry["label"] = fault.step.label;
        entry["bus"] = fault.bus;
        entry["target"] = fault.target;
        entry["fault"] = simboard::name_of(fault.step.kind);
        entry["description"] = fault.text;
        entry["matched"] = Json::UInt64(fault.step.matched);
        entry["fired"] = Json::UInt64(fault.step.fired);
        list.append(entry);
    }
    return list;
}

int judge_faults(const std::string &directory, int status)
{
    const OpenedBoard board(directory);
    const std::string unfired =
        simboard::describe_unfired(simboard::read_faults(board.view), "qeli2c-sim: ");
    std::fputs(unfired.c_str(), stderr);
    return unfired.empty() || status != kDone ? status : kFailed;
}

} // namespace runner
