#!/usr/bin/python3
"""What the documents name is there: commands with their options, files, and the targets of links.

usage: named.py PROGRAMS SOURCES

Looks at commands of `console` blocks, which no test can type, and at `code` in running text.
"""
import functools
import pathlib
import re
import shlex
import subprocess
import sys

from manual import blocks

TREES = "abi|api|bench|boards|bus|cmake|docs|drivers|epld|examples|include|packaging|platform|scripts|simboard|tests|tools"
OURS = {"qeli2c", "qeli2c-sim", "qeli2c-stress"}


@functools.lru_cache(maxsize=None)
def help_of(program, *words):
    done = subprocess.run([program, *words, "--help"], capture_output=True, text=True, timeout=60)
    return done.stdout if done.returncode == 0 else None


class Names:
    def __init__(self, programs, sources):
        self.programs, self.sources, self.wrong, self.looked_at = programs, sources, [], 0

    def check_words(self, where, words):
        """A command's own words, without those of a command that it runs."""
        while words and (re.match(r"\w+=", words[0]) or words[0] in ("sudo", "env", "$", "#")):
            words = words[1:]
        if not words:
            return
        name, rest = words[0], words[1:]
        if name in ("./run", "scripts/board"):
            usage = (help_of(str(self.sources / name)) or "") + "\n  help\n"
            if rest and rest[0] == "board" and len(rest) > 1:
                usage, rest = help_of(str(self.sources / "scripts/board")) or "", rest[1:]
            self.looked_at += 1
            if rest and not rest[0].isupper() and not re.search(rf"(?m)^ +(?:.*[ |])?{re.escape(rest[0])}\b", usage):
                self.wrong.append(f"{where}: {name} has no {rest[0]}")
        elif name in OURS:
            self.check_ours(where, str(self.programs / name), rest)

    def check_ours(self, where, program, rest):
        self.looked_at += 1
        chosen, common = [], help_of(program) or ""
        listed = common
        for word in rest:
            if not re.search(rf"(?m)^  {re.escape(word)} ", re.split(r"(?:Sub)?[Cc]ommands:", listed + ":")[-1] if "ommands:" in listed else ""):
                break
            chosen.append(word)
            listed = help_of(program, *chosen) or ""
        if "ommands:" in common and not chosen and rest and re.match(r"[a-z]", rest[0]):
            self.wrong.append(f"{where}: {pathlib.Path(program).name} has no command {rest[0]}")
        for option in rest:
            option = option.partition("=")[0]
            if option == "--":
                break
            if re.match(r"--\w", option) and not re.search(re.escape(option) + r"\b", listed + common):
                self.wrong.append(f"{where}: no option {option} in {' '.join(chosen) or program}")

    def check_command(self, where, text):
        for part in re.split(r"&&|\|\||[;|]| -- ", re.sub(r"\s#\s.*", "", text)):
            try:
                self.check_words(where, shlex.split(part, comments=False))
            except ValueError:
                pass  # half of a quotation
        for path in re.findall(rf"(?<![\w./-])((?:{TREES})/[\w./-]+)", text):
            self.looked_at += 1
            if not (self.sources / path.rstrip("./")).exists() and not re.search(r"[A-Z]{3}|my-", path):
                self.wrong.append(f"{where}: there is no {path}")

    def check_links(self, document, text):
        for target in re.findall(r"\]\(([^)\s]+)\)", text):
            if "://" in target:
                continue
            self.looked_at += 1
            name, _, anchor = target.partition("#")
            file = document.parent / name if name else document
            if not file.exists():
                self.wrong.append(f"{document.name}: link to {target}, which is not there")
            elif anchor and anchor not in anchors(file.read_text()):
                self.wrong.append(f"{document.name}: no heading for {target}")


def anchors(text):
    text = re.sub(r"(?ms)^```.*?^```$", "", text)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).strip().replace(" ", "-")
            for heading in re.findall(r"(?m)^#+ +(.*)$", text)}


def main(programs, sources):
    names = Names(programs, sources)
    documents = [sources / "README.md", sources / "CONTRIBUTING.md", *sorted((sources / "docs").glob("*.md"))]
    for document in documents:
        text = document.read_text()
        for kind, block in blocks(text):
            for line in block.splitlines():
                if kind == "console" and re.match(r"[$#] ", line):
                    names.check_command(document.name, line[2:])
        running = re.sub(r"(?ms)^```.*?^```$", "", text)
        for code in re.findall(r"`([^`\n]+)`", running):
            names.check_command(document.name, code)
        names.check_links(document, running)
    print("\n".join(names.wrong + [f"{names.looked_at} names looked for in {len(documents)} documents"]))
    return 1 if names.wrong or names.looked_at < 150 else 0


if __name__ == "__main__":
    sys.exit(main(*map(pathlib.Path, sys.argv[1:])))
