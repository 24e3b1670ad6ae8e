// Unit tests that user-mode emulation cannot run, because they start programs.
#include "cases.h"
#include "command.h"

namespace board
{

namespace
{

const struct {
    const char *name;
    const char *program;
    const char *filter;
} rows[] = {
    {"first-use", "qeli2c_unit_tests", "FirstUse*"},
    {"file-lock", "qelplatform_tests", "FileLock.*"},
    {"log", "qelplatform_tests", "Log.*"},
};

} // namespace

void add_unit_test_cases(Cases &cases)
{
    for (const auto &row : rows)
        cases.push_back({std::string("unit-tests/") + row.name, [&row](Check &check) {
                             const Outcome outcome =
                                 run_command(std::string("/bin/") + row.program +
                                             " --gtest_filter='" + row.filter + "'");
                             const bool ran =
                                 outcome.output.find("[  PASSED  ] ") != std::string::npos &&
                                 outcome.output.find("[  PASSED  ] 0 ") == std::string::npos;
                             if (outcome.status != 0 || !ran)
                                 fail(check, outcome.output);
                         }});
}

} // namespace board
