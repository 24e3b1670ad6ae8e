#!/usr/bin/env python3
"""Starts the emulated board and plays its cases:

    board.py run IMAGE CASES [PREFIX]  boots, plays the cases of that directory whose names begin with PREFIX, prints a
                                       verdict for each; files whose cases went another way come out as they went
    board.py shell IMAGE               boots with the console on the terminal

Runs in the current directory, which receives logs, the EEPROMs' files and the outputs. Exit status: 0 when the board
came to its end, whatever the cases said; 1 otherwise.

A case is a transcript of commands and of what they printed:

    == transfer/byte/one-switch 30    a case, and its time limit in seconds unless that is 60
    # why it is here
    $ qeli2c get pins-near 2          a command of the board's shell; "> " continues it
      0xff                            standard output and standard error
    ? 1                               exit status, when it is not 0
    $ :i2cRead 3/50 4 >4 2 0x10       what the board's program does itself: see guest/main.cpp and guest/calls.h
    $ :pins pins-near a5              done from outside: levels at the pins of an expander
    $ :property monitor-near temperature 25500
    $ :machine readl 0xb8210000       a command of QEMU's qtest protocol
    $ :mark-owners                    fills the owner table with words of no process
    $ :owners                         the buses whose owner has changed since, each with "me" or the number of
                                      another process

Lines before a file's first case are played before each of its cases.
"""

import itertools
import pathlib
import sys
import time

from machine import Machine, Silence, become_machine

TIME_LIMIT = 900
TIME_WITHOUT_A_WORD = 150
# Now and then the machine falls silent until its serial line gets a byte, as if an interrupt of that line had been
# lost. An empty line does no harm.
NUDGE_EVERY = 0.5
OWNER_TABLE = 0xB8210000  # sixteen process ids
BUSES = 16
MARK = 0xF00D0000


class Case:
    def __init__(self, before, title):
        name, *seconds = title.removeprefix("== ").split()
        self.name, self.before, self.lines = name, before, [title]
        self.seconds = int(seconds[0]) if seconds else 60


class CaseFile:
    def __init__(self, path):
        self.name, self.before, self.cases = path.stem, [], []
        for line in path.read_text().splitlines():
            if line.startswith("== "):
                self.cases.append(Case(self.before, line))
            else:
                (self.cases[-1].lines if self.cases else self.before).append(line)

    def write(self):
        lines = self.before + [line for case in self.cases for line in case.lines]
        pathlib.Path(f"{self.name}.out").write_text("\n".join(lines) + "\n")


class CaseOver(Exception):
    """The board's process for it has ended."""


class Player:
    def __init__(self, machine):
        self.machine = machine
        self.until = time.monotonic() + TIME_LIMIT
        self.processes = {}

    def hear(self):
        until = min(self.until, time.monotonic() + TIME_WITHOUT_A_WORD)
        while time.monotonic() < until:
            line = self.machine.guest.receive(NUDGE_EVERY)
            if line is None:
                self.machine.guest.send("")
            elif line == "":  # one of those, before the board's program took the line
                continue
            elif line.startswith("pid "):
                number = len(self.processes)
                self.processes[int(line[4:])] = f"process {number}" if number else "me"
            elif line.startswith("over"):
                raise CaseOver(line[5:])
            elif line.startswith("NOTE "):
                print(line)
            else:
                return line
        raise Silence("nothing was heard of it for too long")

    def owners(self):
        for bus in range(BUSES):
            owner = int(self.machine.ask_qtest(f"readl {OWNER_TABLE + 4 * bus:#x}"), 0)
            if owner != MARK + bus:
                yield f"bus {bus}: {self.processes.get(owner, 'unknown')}"

    def done_outside(self, verb, *words):
        """What such a line gives; none for other lines."""
        if verb == ":machine":
            return self.machine.ask_qtest(" ".join(words)).splitlines()
        if verb == ":pins":
            for pin in range(8):
                self.machine.ask_qtest(f"set_irq_in /machine/peripheral/{words[0]} unnamed-gpio-in {pin} "
                                       f"{int(words[1], 16) >> pin & 1}")
        elif verb == ":property":
            self.machine.set_property(words[0], words[1], int(words[2]))
        elif verb == ":mark-owners":
            for bus in range(BUSES):
                self.machine.ask_qtest(f"writel {OWNER_TABLE + 4 * bus:#x} {MARK + bus:#x}")
        elif verb == ":owners":
            return list(self.owners()) or ["as marked"]
        else:
            return None
        return []

    def play_line(self, line):
        try:
            outside = self.done_outside(*line.split()) if line.startswith(":") else None
        except RuntimeError as error:
            return [f"! {error}"]
        if outside is not None:
            return ["  " + text for text in outside]
        self.machine.guest.send(line.replace("\n", "\v"))
        return list(iter(self.hear, "."))

    def play_lines(self, lines, played):
        given = [line for line in lines if not line.startswith(("  ", "? ", "! "))]
        command = []
        for line, following in zip(given, [*given[1:], ""]):
            played.append(line)
            if line.startswith(("$ ", "> ")):
                command.append(line[2:])
                if not following.startswith("> "):
                    played += self.play_line("\n".join(command))
                    command = []

    def play(self, case):
        """The case as it went, and the signal that ended its process, if one did."""
        self.processes = {}
        self.machine.guest.send(f"case {case.seconds}")
        played = []
        try:
            self.play_lines(case.before, [])
            self.play_lines(case.lines, played)
            self.machine.guest.send("end")
            self.hear()
        except CaseOver as over:
            return played, str(over)
        raise Silence("a case does not end")


def difference(played, wanted):
    """The first line that differs."""
    for number, (got, want) in enumerate(itertools.zip_longest(played, wanted, fillvalue="nothing")):
        if got != want:
            return f"line {number}: '{got}' instead of '{want}'"
    return ""


def run_cases(player, files, prefix):
    player.hear()  # that the board is ready
    for file in files:
        changed = False
        for case in file.cases:
            if not case.name.startswith(prefix):
                continue
            played, signal = player.play(case)
            why = signal or difference(played, case.lines)
            print(f"FAIL {case.name}: {why}" if why else f"PASS {case.name}")
            if why and not signal:
                case.lines, changed = played, True
        if changed:
            file.write()


def run(image, cases, prefix=""):
    machine = Machine(image)
    try:
        run_cases(Player(machine), [CaseFile(path) for path in sorted(pathlib.Path(cases).iterdir())], prefix)
        machine.guest.send("done")
        ended = machine.end(15)
    except Silence as silence:
        print(f"FAIL board/came-to-its-end: {silence}, see console.log")
        return 1
    finally:
        machine.end(0)
    print("PASS board/came-to-its-end" if ended else "FAIL board/came-to-its-end: it had to be stopped")
    return 0


if __name__ == "__main__":
    sys.stdout.reconfigure(line_buffering=True)
    match sys.argv[1:]:
        case ["run", image, cases, *prefix] if len(prefix) < 2:
            sys.exit(run(image, cases, *prefix))
        case ["shell", image]:
            become_machine(image)
        case _:
            sys.exit(__doc__)
