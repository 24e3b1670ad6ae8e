// qeli2c-sim from outside: what it runs, what it returns, and that nothing of it stays.
#include <gtest/gtest.h>
#include <sys/sem.h>

#include <cstdlib>

#include "shell.h"

namespace
{

TEST(Run, ExitStatusIsTheCommands)
{
    const Shell shell;
    const struct {
        const char *command;
        int status;
        const char *err;
    } rows[] = {
        {"qeli2c-sim run -- true", 0, ""},
        {"qeli2c-sim run -- sh -c 'exit 7'", 7, ""},
        {"qeli2c-sim run sh -c 'exit 7'", 7, ""},
        {"qeli2c-sim run -- sh -c 'kill -9 $$'", 137, ""},
        {"qeli2c-sim run -- sh -c 'test \"$1\" = --json' x --json", 0, ""},
        {"qeli2c-sim run -- no-such-program", 127,
         "qeli2c-sim: no-such-program: No such file or directory\n"},
        {"qeli2c-sim run -- /etc/passwd", 126, "qeli2c-sim: /etc/passwd: Permission denied\n"},
        {"qeli2c-sim run --", 2, "qeli2c-sim: no command to run (see 'qeli2c-sim run --help')\n"},
        {"qeli2c-sim run --speed 9k -- true", 2,
         "qeli2c-sim: --speed: 9k not in {instant,100k,400k} (see 'qeli2c-sim run --help')\n"},
        {"qeli2c-sim run --frob -- true", 2,
         "qeli2c-sim: run has no option --frob (see 'qeli2c-sim run --help')\n"},
        {"qeli2c-sim run --seed -1 -- true", 2, nullptr},
        {"qeli2c-sim frobnicate", 2,
         "qeli2c-sim: The following argument was not expected: frobnicate (see 'qeli2c-sim "
         "--help')\n"},
        {"qeli2c-sim", 2, nullptr},
        {"qeli2c-sim start ''", 2, nullptr},
        {"for c in '' $(qeli2c-sim --help | awk '/^  [a-z]/ { print $1 }'); do "
         "qeli2c-sim $c --help | grep '.\\{81\\}'; done",
         1, ""},
        {"qeli2c-sim stop nothing", 1, "qeli2c-sim: there is no board \"nothing\"\n"},
        {"qeli2c-sim report nothing", 1, "qeli2c-sim: there is no board \"nothing\"\n"},
        {"qeli2c-sim start a/b", 2,
         "qeli2c-sim: \"a/b\" is no name for a board (see 'qeli2c-sim start --help')\n"},
        {"eval \"$(qeli2c-sim start -n a)\"; qeli2c-sim stop; qeli2c-sim stop a; qeli2c-sim run "
         "true",
         0, "qeli2c-sim: there is no board \"default\"\n"},
        {"qeli2c-sim run --board /nonexistent -- true", 1,
         "qeli2c-sim: /nonexistent: cannot be read: No such file or directory\n"},
    };
    for (const auto &row : rows) {
        const Finished finished = shell.run(row.command);
        EXPECT_EQ(finished.status, row.status) << row.command;
        EXPECT_EQ(finished.out, "") << row.command;
        if (row.err != nullptr) {
            EXPECT_EQ(finished.err, row.err) << row.command;
        } else {
            EXPECT_NE(finished.err, "") << row.command;
        }
    }
}

TEST(Run, TellsEveryMistakeOfABoardFile)
{
    const Shell shell;
    const std::string file = shell.write_file("bad.json", "{\n\"name\": 5,\n\"busses\": []\n}\n");
    const Finished finished = shell.run("qeli2c-sim run --board " + file + " -- echo ran");
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.err, file + ":1: buses: is missing\n" + file +
                                ":2: name: must be a text that is not empty\n" + file +
                                ":3: busses: unknown key\n"
                                "qeli2c-sim: the board file cannot be used; nothing was started\n");
}

// The id of the semaphore that the command printed first; it must be gone.
void expect_semaphore_gone(const std::string &out)
{
    const int id = std::atoi(out.c_str());
    ASSERT_NE(out, "");
    ASSERT_GE(id, 0);
    EXPECT_EQ(semctl(id, 0, GETVAL), -1);
}

TEST(Run, LeavesNothingHoweverItEnds)
{
    const Shell shell;
    const struct {
        const char *command;
        int status;
    } rows[] = {
        {"qeli2c-sim run -- probe semaphore", 0},
        {"qeli2c-sim run -- sh -c 'probe semaphore; exit 3'", 3},
        {"qeli2c-sim run -- sh -c 'probe semaphore; kill -KILL $$'", 137},
        {"qeli2c-sim run -- sh -c 'probe semaphore; kill -INT $PPID; exec sleep 60'", 130},
        {"qeli2c-sim run -- sh -c 'probe semaphore; kill -TERM $PPID; exec sleep 60'", 143},
        {"qeli2c-sim run -- sh -c 'probe semaphore; kill -HUP $PPID; exec sleep 60'", 129},
        {"qeli2c-sim run -- sh -c 'trap \"exit 5\" TERM; probe semaphore; kill -TERM $PPID;"
         " while :; do sleep 0.01; done'",
         5},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.command);
        const Finished finished = shell.run(row.command);
        EXPECT_EQ(finished.status, row.status);
        EXPECT_FALSE(shell.has_boards());
        expect_semaphore_gone(finished.out);
    }
}

TEST(Run, WhatAKilledRunnerLeavesTheNextOneClears)
{
    const Shell shell;
    const Finished killed =
        shell.run("qeli2c-sim run -- sh -c 'probe semaphore; kill -KILL $PPID'");
    EXPECT_EQ(killed.status, 137);
    EXPECT_TRUE(shell.has_boards());
    EXPECT_EQ(shell.run("qeli2c-sim run -- true").status, 0);
    EXPECT_FALSE(shell.has_boards());
    expect_semaphore_gone(killed.out);
}

TEST(Run, KeepsAPreloadThatWasThere)
{
    const Shell shell;
    const Finished finished =
        shell.run("LD_PRELOAD=libc.so.6 qeli2c-sim run -- sh -c 'echo $LD_PRELOAD'");
    EXPECT_NE(finished.out.find("/libqelsim.so:libc.so.6\n"), std::string::npos) << finished.out;
}

TEST(StandingBoard, IsSharedByProgramsUntilItIsStopped)
{
    const Shell shell;
    const Finished finished = shell.run(R"(
        set -e
        qeli2c-sim start bench >env
        qeli2c-sim start other >/dev/null
        . ./env
        rm env
        i2cset -y 7 0x30 0x10 0xa5
        i2cget -y 7 0x30 0x10
        qeli2c-sim status | awk 'NR > 1 {print $1, $2}'
        qeli2c-sim report --json | grep '"transfers": 2' | wc -l
        qeli2c-sim report other | tail -1
        qeli2c-sim start bench 2>&1 || true
        qeli2c-sim stop bench
        qeli2c-sim stop other
        i2cget -y 7 0x30 0x10 2>/dev/null || echo gone
        qeli2c-sim status
    )");
    EXPECT_EQ(finished.out, "0xa5\nbench reference\nother reference\n2\nnothing wrong was seen\n"
                            "qeli2c-sim: board \"bench\" already exists\ngone\n");
    EXPECT_EQ(finished.err, "");
    EXPECT_EQ(finished.status, 0);
}

TEST(Report, FailsWhenSomethingWentWrong)
{
    const Shell shell;
    const Finished good = shell.run("qeli2c-sim run -- sh -c 'i2cset -y 2 0x70 0x01; i2cset -y 2 "
                                    "0x70 0; qeli2c-sim report | tail -1; qeli2c-sim report "
                                    ">/dev/null'");
    EXPECT_EQ(good.out, "nothing wrong was seen\n");
    EXPECT_EQ(good.status, 0);
    const Finished bad = shell.run("qeli2c-sim run -- sh -c 'i2cset -y 2 0x70 0x03; qeli2c-sim "
                                   "report | tail -1; qeli2c-sim report --json >/dev/null'");
    EXPECT_EQ(bad.out, "WRONG: 1 transfers that left two channels open on one segment\n");
    EXPECT_EQ(bad.status, 1);
}

} // namespace
