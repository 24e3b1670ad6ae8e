// What a case says about what it saw. The first thing that is wrong is its verdict.
#ifndef QELI2C_BOARD_CHECK_H
#define QELI2C_BOARD_CHECK_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace board
{

using Bytes = std::vector<uint8_t>;

struct Check {
    std::string failure; // empty while nothing is wrong
    bool failed() const { return !failure.empty(); }
};

struct Case {
    std::string name;
    std::function<void(Check &)> run; // in a process of its own, which has not used the library yet
    unsigned seconds = 60;            // many times what it takes, for a busy machine
};

std::string in_hex(const Bytes &bytes);

void fail(Check &check, const std::string &why);

// Each gives whether it was so.
bool is_true(Check &check, const std::string &what, bool value);
bool equal(Check &check, const std::string &what, int64_t got, int64_t wanted);
bool equal(Check &check, const std::string &what, const Bytes &got, const Bytes &wanted);
bool equal(Check &check, const std::string &what, const std::string &got,
           const std::string &wanted);
// A call that failed: its result and the errno it left.
bool refused(Check &check, const std::string &what, int64_t result, int64_t wanted_result,
             int wanted_errno);

} // namespace board

#endif
