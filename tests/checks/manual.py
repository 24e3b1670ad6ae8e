#!/usr/bin/python3
"""Types the commands of a document into a shell, and compares what comes with what is shown there.

usage: manual.py PROGRAMS SOURCES DOCUMENT

"$ " starts a command in a block; the lines up to the next are its output, which must come in that
order, with other lines between them at most. Numbers that differ each time are told by their form.
A command without output must succeed. In `sh` blocks every line is a command. What a `json` block
shows is there as plan.json for those after it, what a `c` block shows as program.c. `console`
blocks are for a machine, root or much time: named.py looks at those.
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile

END = "\x01"
SHOWN_FILES = {"json": "plan.json", "c": "program.c"}
VARYING = [(r"\d+\.\d{6}", "TIME"), (r"\b\d+ (s|min)\b", "AGE"), (r"/\S*/qeli2c-sim-\d+", "DIRECTORY"),
           (r"\b[\d.]+ [mun]s\b", "TIME"), (r"(\w:|i2ctransfer )\d{2,}", r"\1PID"),
           (r"^\d{2,} (qeli2c|i2ctransfer)\b", r"PID \1"), (r"\s+", " ")]


def blocks(text):
    return re.findall(r"^```(\w*)\n(.*?)^```$", text, re.S | re.M)


def goes_on(lines):
    """Whether a command needs another line."""
    text = "\n".join(re.sub(r"(^|\s)#\s.*", "", line) for line in lines)
    return text.endswith("\\") or text.count("'") % 2 or text.count('"') % 2


def commands(kind, block):
    """Pairs of a command and the lines shown for it; None when it shows none."""
    found = []
    if kind == "sh":
        lines = block.splitlines()
        while lines:
            end = 1
            while end < len(lines) and goes_on(lines[:end]):
                end += 1
            if lines[0].strip():
                found.append(("\n".join(lines[:end]), None))
            del lines[:end]
        return found
    for part in re.split(r"^\$ ", block, flags=re.M)[1:]:
        lines = part.splitlines()
        end = 1
        while end < len(lines) and goes_on(lines[:end]):
            end += 1
        found.append(("\n".join(lines[:end]), lines[end:] or None))
    return found


def plain(line):
    for pattern, name in VARYING:
        line = re.sub(pattern, name, line)
    return line.strip()


def comes(shown, lines):
    """Lines may be broken elsewhere, where numbers have other lengths."""
    rest = " " + " ".join(plain(line) for line in lines) + " "
    for wanted in shown:
        before, found, after = rest.partition(" " + plain(wanted) + " ")
        if wanted and not found:
            return False
        rest = " " + after if wanted else rest
    return True


def type_all(document, programs, directory):
    script, rows = [], []
    for kind, block in blocks(open(document).read()):
        if kind in SHOWN_FILES:
            script.append(f"cat > {SHOWN_FILES[kind]} <<'END_OF_FILE'\n{block}END_OF_FILE")
        for command, shown in commands(kind, block) if kind in ("", "sh") else []:
            rows.append((command, shown))
            script.append("{ " + command.rstrip() + "\n} 2>&1\nprintf '" + r"\1%d\1" + "' $?")
    environment = {name: value for name, value in os.environ.items()
                   if not name.startswith("QELI2C_") and name != "LD_PRELOAD"}
    environment["PATH"] = programs + ":" + environment["PATH"] + ":/usr/sbin:/sbin"
    environment["HOME"] = directory
    environment["QELI2C_SIM_DIR"] = os.path.join(directory, "qeli2c-sim-1")
    os.mkdir(environment["QELI2C_SIM_DIR"], 0o700)
    done = subprocess.run(["bash", "-c", "\n".join(script)], text=True, cwd=directory,
                          env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, timeout=120)
    parts = done.stdout.split(END)
    failed = 0
    for i, (command, shown) in enumerate(rows):
        out, status = parts[2 * i:2 * i + 2] if len(parts) > 2 * i + 1 else ("never run", "1")
        if comes(shown, out.splitlines()) if shown else status == "0":
            continue
        failed += 1
        print(f"{document}: $ {command}\n--- shown\n" + "\n".join(shown or ["(success)"]) +
              f"\n--- came, with status {status}\n{out}\n")
    print(f"{document}: {len(rows)} commands")
    return failed == 0


def main():
    programs, sources, document = sys.argv[1:]
    with tempfile.TemporaryDirectory() as directory:
        os.symlink(os.path.join(sources, "examples"), os.path.join(directory, "examples"))
        os.mkdir(os.path.join(directory, "build"))
        os.symlink(os.path.dirname(programs), os.path.join(directory, "build", "release"))
        shutil.copytree(os.path.join(sources, "boards"), os.path.join(directory, "boards"))
        for copy in ["boards/my-board.json", "my-board.json"]:
            shutil.copy(os.path.join(sources, "boards", "reference.json"), os.path.join(directory, copy))
        tests = os.path.join(directory, "my-tests")
        with open(tests, "w") as file:
            file.write("#!/bin/sh\ni2cget -y 1 0x40 2 w\n")
        os.chmod(tests, 0o755)
        return 0 if type_all(document, programs, directory) else 1


if __name__ == "__main__":
    sys.exit(main())
