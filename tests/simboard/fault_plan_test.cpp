// Fault plans as people write them, and what the commands say of them.
#include <algorithm>
#include <gtest/gtest.h>

#include "shell.h"
#include "simboard/description.h"

namespace
{

// The JSON texts of the manual.
std::vector<std::string> examples()
{
    std::string text;
    EXPECT_TRUE(simboard::read_text_file(FAULT_PLAN_MANUAL, text));
    std::vector<std::string> found;
    for (size_t at = 0; (at = text.find("```json\n", at)) != std::string::npos;) {
        const size_t start = at + 8;
        at = text.find("```", start);
        found.push_back(text.substr(start, at - start));
    }
    return found;
}

TEST(FaultPlan, TellsEveryMistakeWithLineAndKey)
{
    const Shell shell;
    const std::string plan = shell.write_file("plan.json", R"({ "seeds": 1, "steps": [
{ "fault": "address-nack", "device": "nobody", "times": 0, "after": -1 },
{ "fault": "stuck-switch", "device": "board-io", "color": "red", "byte": 1 },
{ "fault": "call-fails", "device": "board-io", "call": "open", "errno": "EWHAT" },
{ "fault": "data-nack", "bus": 16, "byte": 2, "byte": 3, "probability": 1.5 },
{ "fault": "bus-stuck", "address": "0x80", "direction": "up", "label": "" },
{ "device": "board-io" }, 7, { "fault": "eio" } ] })");
    const Finished finished = shell.run("qeli2c-sim run --plan " + plan + " -- echo ran");
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.out, "");
    std::string err = finished.err;
    for (size_t at = 0; (at = err.find(plan)) != std::string::npos;)
        err.erase(at, plan.size() + 1);
    EXPECT_EQ(err, "1: seeds: unknown key\n"
                   "2: steps[0].device: the board has no device \"nobody\"\n"
                   "2: steps[0].after: must be a number from 0 to 4294967295\n"
                   "2: steps[0].times: must be a number from 1 to 4294967295, or \"forever\"\n"
                   "3: steps[1].byte: does not go with stuck-switch\n"
                   "3: steps[1].color: unknown key\n"
                   "3: steps[1].device: must be a switch, and board-io is a pca9535\n"
                   "4: steps[2].errno: must be the name of an error, for example \"EOPNOTSUPP\"\n"
                   "4: steps[2].device: an open is of a bus, and no device is meant by it yet\n"
                   "5: steps[3].byte: is there twice\n"
                   "5: steps[3].bus: must be a number from 0 to 15\n"
                   "5: steps[3].probability: must be a number above 0, at most 1\n"
                   "6: steps[4].device: is missing; a bus will do as well\n"
                   "6: steps[4].address: goes with a bus\n"
                   "6: steps[4].direction: must be \"read\" or \"write\"\n"
                   "6: steps[4].label: must be a text that is not empty\n"
                   "7: steps[5].fault: is missing\n"
                   "7: steps[6]: must be an object\n"
                   "7: steps[7].fault: is no fault; qeli2c-sim inject --help lists them\n"
                   "qeli2c-sim: the fault plan cannot be used; nothing was done\n");
}

TEST(FaultPlan, ExamplesOfTheManualDoWhatItSays)
{
    const Shell shell;
    const auto plans = examples();
    ASSERT_EQ(plans.size(), 2U);
    const std::string first = shell.write_file("first.json", plans[0]);
    const std::string each = shell.write_file("each.json", plans[1]);
    const std::string read = " -- sh -c 'i2cget -f -y 0 0x21 0 || i2cget -f -y 0 0x21 0 || "
                             "i2cget -f -y 0 0x21 0 || i2cget -f -y 0 0x21 0'";
    Finished finished = shell.run("qeli2c-sim run --plan " + first + read + " 2>/dev/null");
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.out.substr(0, 2), "0x");
    finished = shell.run("qeli2c-sim run --plan " + each + " -- true");
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(std::count(finished.err.begin(), finished.err.end(), '\n'), 12);
    finished = shell.run("qeli2c-sim run --plan " + each + " -- sh -c 'exit 7'");
    EXPECT_EQ(finished.status, 7) << "the command's own failure comes first";
}

TEST(FaultPlan, StepsAreInjectedListedReportedAndCleared)
{
    const Shell shell;
    ASSERT_EQ(shell.run("qeli2c-sim start --seed 5 one").status, 0);
    const struct {
        const char *arguments;
        int status;
        const char *out;
        const char *err;
    } rows[] = {
        {"inject -n one", 2, "",
         "qeli2c-sim: what to inject? A FAULT, --plan, --list or --clear (see 'qeli2c-sim "
         "inject --help')\n"},
        {"inject -n one data-nack --bus 0 --byte 0 --count 3", 2, "",
         "qeli2c-sim: --count: does not go with data-nack (see 'qeli2c-sim inject --help')\n"
         "qeli2c-sim: --byte: must be a number from 1, the first one, to 8192 (see 'qeli2c-sim "
         "inject --help')\n"},
        {"inject -n one --after 3", 2, "",
         "qeli2c-sim: --after needs a FAULT to go with (see 'qeli2c-sim inject --help')\n"},
        {"inject -n one data-nack --device board-io --byte 2 --times 2 --label odd", 0, "", ""},
        {"inject -n one --list bus-error --bus 1 --address 0x40 --register 0x0102", 0,
         "fault  struck   matched\n"
         "    1       0         0 \"odd\" board-io: data-nack, byte 2, 2 times\n"
         "    2       0         0 bus 1 at 0x40: bus-error, EIO, register 0x0102\n",
         ""},
        {"report one | grep fault.step", 0,
         "WRONG: fault step 1 \"odd\" (data-nack, board-io) never struck and matched nothing\n"
         "WRONG: fault step 2 (bus-error, bus 1 at 0x40) never struck and matched nothing\n",
         ""},
        {"report one >/dev/null", 1, "", ""},
        {"inject -n one --clear", 0, "", ""},
        {"inject -n one --list --json", 0, "[]\n", ""},
        {"report one >/dev/null", 0, "", ""},
        {"stop one", 0, "", ""},
    };
    for (const auto &row : rows) {
        const Finished finished = shell.run(std::string("qeli2c-sim ") + row.arguments);
        EXPECT_EQ(finished.status, row.status) << row.arguments;
        EXPECT_EQ(finished.out, row.out) << row.arguments;
        EXPECT_EQ(finished.err, row.err) << row.arguments;
    }
}

} // namespace
