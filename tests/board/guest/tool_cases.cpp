// The command-line tool on the board. What it prints goes to the host, which compares it with the
// output kept there.
#include "cases.h"
#include "command.h"
#include "link.h"

namespace board
{

namespace
{

const struct {
    const char *name; // of the kept output
    const char *line;
    int status;
} rows[] = {
    {"scan", "qeli2c scan 3", 0},
    {"scan-grid", "qeli2c scan 15 --grid", 0},
    {"list", "qeli2c list", 0},
    {"registers",
     "qeli2c set pins-far 2 0x5a && qeli2c get pins-far 2 && qeli2c set pins-far 2 0 && "
     "qeli2c set monitor-near 3 0x1234 --word && qeli2c get monitor-near 3 --word && "
     "qeli2c xfer 3/0x48 w 3 0xca 0xfe && qeli2c xfer 3/0x48 w 3 r2",
     0},
    {"memory",
     "qeli2c set eeprom-far 0x6ffe 0x51 0x45 0x4c 0x49 -y && qeli2c get eeprom-far 0x6ffc 8", 0},
    {"eeprom",
     "head -c 200 /bin/busybox >/tmp/image && { "
     "qeli2c eeprom write -y eeprom-near /tmp/image --offset 0x3f0 && "
     "qeli2c eeprom write -y eeprom-near /tmp/image --offset 0x3f0 --update && "
     "qeli2c eeprom verify eeprom-near /tmp/image --offset 0x3f0 && "
     "qeli2c eeprom read eeprom-near --offset 0x3f0 --length 200 | cmp - /tmp/image; } 2>&1 | "
     "sed 's/, in .*//'",
     0},
    {"bus-owners",
     "{ qeli2c get eeprom-near 0 && qeli2c bus owners 3 && "
     "qeli2c bus hold 3 -- qeli2c bus owners 3; } | sed -E 's/: [0-9]+/: N/'",
     0},
    {"absent-device", "qeli2c get 3/0x70.3/0x6e 0", 1},
};

} // namespace

void add_tool_cases(Cases &cases)
{
    for (const auto &row : rows)
        cases.push_back({std::string("tool/") + row.name, [&row](Check &check) {
                             const Outcome outcome = run_command(row.line);
                             link::say_output(row.name, outcome.output);
                             if (outcome.status != row.status)
                                 fail(check, "exit status " + std::to_string(outcome.status) +
                                                 ": " + outcome.output);
                         }});
}

} // namespace board
