// The simulated board's chips served to this kernel's programs as devices, in place of the
// machine's own: the drivers of chips that the emulator lacks, a statically linked program, and
// programs at once.
#include "cases.h"
#include "command.h"
#include "link.h"

namespace board
{

namespace
{

const struct {
    const char *name;
    const char *line;
    int status;
    bool output_kept; // and compared with what lies on the host
} rows[] = {
    // The first one puts the served devices in the place of the machine's own.
    {"devices",
     "mount -t tmpfs tmp /run; rmmod i2c_dev && qeli2c-sim start >/dev/null && "
     "{ qeli2c-sim serve >/tmp/serve.log 2>&1 & } && "
     "until grep -q serving /tmp/serve.log; do sleep 0.1; done; ls /dev/i2c-*",
     0, true},
    {"tour", "QELPLATFORM_LOG=all=none board_tour | grep -v status", 0, true},
    {"scan", "qeli2c scan 0", 0, true},
    {"i2c-tools",
     "i2cdetect -y 5 0x18 0x27; i2ctransfer -y 0 w3@0x20 0x20 0x12 0x34 w1@0x20 0x20 r2; i2cget -y "
     "0 0x20 "
     "0x20 w",
     0, true},
    {"static-program", "busybox i2cset -y 0 0x20 0x22 0x5a && busybox i2cget -y 0 0x20 0x22", 0,
     true},
    {"refusals",
     "qeli2c get 0/0x2f 0 2>&1; i2cget -y 0 0x2f 0; i2cget -y 0 0x20 0x20 wp; "
     "i2ctransfer -y 0 w1@0x2f 0",
     1, true},
    {"programs-at-once",
     "qeli2c-stress --processes 4 --threads 2 --seconds 3 "
     "--device board-status,fan0,id-registers >/tmp/stress.log 2>&1 || "
     "{ tail -n 5 /tmp/stress.log; false; }",
     0, false},
    {"judge", "qeli2c-sim report >/tmp/report.log || { cat /tmp/report.log; false; }", 0, false},
    {"callers-are-known",
     "grep -o -e qeli2c-stress -e board_tour -e i2ctransfer -e busybox /tmp/report.log | sort -u; "
     "qeli2c-sim trace --json --bus 0 | grep -o '\"process\":\"i2cget\"' | sort -u",
     0, true},
    {"end",
     "killall qeli2c-sim; while pidof qeli2c-sim >/dev/null; do sleep 0.1; done; "
     "ls /dev/i2c-* 2>&1; cat /tmp/serve.log",
     0, true},
};

} // namespace

void add_served_cases(Cases &cases)
{
    for (const auto &row : rows)
        cases.push_back(
            {std::string("served/") + row.name,
             [&row](Check &check) {
                 const Outcome outcome =
                     run_command("export QELI2C_BOARD=/share/qeli2c/boards/reference.json "
                                 "QELI2C_SIM_DIR=/run/boards; " +
                                 std::string(row.line));
                 if (row.output_kept)
                     link::say_output(std::string("served-") + row.name, outcome.output);
                 if (outcome.status != row.status)
                     fail(check,
                          "exit status " + std::to_string(outcome.status) + ": " + outcome.output);
             },
             60});
}

} // namespace board
