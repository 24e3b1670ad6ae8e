#!/usr/bin/python3
"""Every message that the sources can print has its entry in docs/troubleshooting.md.

usage: messages.py SOURCES

A log line's format must be met by a whole `code span` there, with values or their names in the
place of conversions. A tool's message is made of parts: each that is a phrase must stand within
one. What a program says of wrong usage, or of a mistake in a board file, explains itself.
"""
import pathlib
import re
import sys

LITERAL = r'"((?:[^"\\]|\\.)*)"'
# Calls whose format is a whole line; folders they stand in.
LINES = [("bus api drivers epld platform", r"(?:QEL_ERROR|QEL_RUNTIME|QEL_AUDIT|QEL_PRINT|IDBG_LINUXAPP)\w*"),
         ("bus", r"(?:_ssp_info|fail)"), ("platform", r"snprintf"), ("simboard/attach.cpp", r"dprintf")]
# Calls whose phrases are looked for.
PHRASES = [("tools bench", r"(?:operation_failed|runtime_error|system_error|fail_transfer|tell|tell_reason|fail)"),
           ("simboard/board.cpp simboard/view.cpp", r"runtime_error")]
RETURNED = ["tools/qeli2c/transfer.cpp"]
ASSIGNED = ["simboard/attach.cpp"]
STREAMS = ["tools", "bench/qeli2c-stress.cpp", "bench/stress_report.cpp"]


def files(root, names):
    for name in names:
        path = root / name
        yield from sorted(path.rglob("*.cpp")) if path.is_dir() else [path]


def arguments(text, start):
    """What stands between the parenthesis at `start` and its partner, strings untouched."""
    depth, at = 0, start
    while at < len(text):
        string = re.compile(LITERAL).match(text, at)
        if string:
            at = string.end()
            continue
        depth += {"(": 1, ")": -1}.get(text[at], 0)
        at += 1
        if depth == 0:
            return text[start:at]
    return ""


def literals(code):
    """Strings of an expression; neighbours are one."""
    texts, end = [], None
    for found in re.finditer(LITERAL, code):
        text = re.sub(r"\\(.)", lambda m: {"n": "\n", "r": "", "0": ""}.get(m[1], m[1]), found[1])
        if end is not None and not code[end:found.start()].strip():
            text = texts.pop() + text
        texts.append(text)
        end = found.end()
    return texts


def calls(root, names, opener):
    for path in files(root, names):
        text = re.sub(r"^\s*//.*$|^#.*(?:\\\n.*)*$", "", path.read_text(), flags=re.M)
        for call in re.finditer(r"\b" + opener + r"\(", text):
            code = arguments(text, call.end() - 1)
            named = call[0].startswith("QEL_AUDIT") and code.startswith('("')  # the function first
            yield path.relative_to(root), literals(code)[named:]


def line_rule(form):
    form = re.sub(r"^\[qelplatform:%d\]", "", form)
    parts = re.split(r"%[-#.*\d]*[lh]*[a-zA-Z]", re.sub(r"\s+", " ", form).strip())
    return ".+".join(map(re.escape, parts)), sum(c.isalpha() for part in parts for c in part)


def main(root):
    guide = re.sub(r"^```.*?^```$", "", (root / "docs" / "troubleshooting.md").read_text(), flags=re.S | re.M)
    spans = [re.sub(r"\s+", " ", span).strip() for span in re.findall(r"`([^`]+)`", guide)]
    missing, seen = [], 0
    for names, opener in LINES:
        for path, strings in calls(root, names.split(), opener):
            for form in [max(strings, key=len, default="")]:
                rule, letters = line_rule(form)
                if letters < 3 or form.startswith("/"):
                    continue
                seen += 1
                if not any(re.fullmatch(rule, span) for span in spans):
                    missing.append((path, form.strip()))
    phrases = [found for names, opener in PHRASES for found in calls(root, names.split(), opener)]
    for path in files(root, RETURNED + ASSIGNED):
        for code in re.findall(r"(?:return|reason =|text =) ([^;]*);", path.read_text()):
            phrases.append((path.relative_to(root), literals(code)))
    for path in files(root, STREAMS):
        for code in re.findall(r"(?:std::cerr <<|fprintf\(stderr,)((?:" + LITERAL.replace("(", "(?:", 1) +
                               r"|[^;])*);", path.read_text()):
            phrases.append((path.relative_to(root), literals(code)))
    for path, strings in phrases:
        for text in strings:
            for part in re.split(r"%[-#.*\d]*[lh]*[a-zA-Z]|\n", text):
                part = re.sub(r"^qeli2c(-\w+)?: ", "", re.sub(r"\s+", " ", part)).strip(" ;:,()'\"")
                if len(part) < 10 or " " not in part or part.startswith("see"):
                    continue
                seen += 1
                if not any(part in span for span in spans):
                    missing.append((path, part))
    for path, text in sorted(set(missing), key=str):
        print(f"{path}: not in docs/troubleshooting.md: {text}")
    print(f"{seen} messages looked for")
    return 1 if missing or seen < 150 else 0


sys.exit(main(pathlib.Path(sys.argv[1])))
