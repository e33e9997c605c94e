#!/usr/bin/env python3
"""Runs the commands that a document shows and compares what they print with what it shows.

Markdown: every fenced block of the kind "console". Manual pages: the literal displays of the
section EXAMPLES. Lines that begin with "$ " are commands, "> " continues one, and what follows is
its output. All commands of a document run in one shell, in a scratch directory that looks like the
root of a checkout: build/release/bin is the build under test, samples/ is a copy. In the output it
goes by the name /home/op/zyntool.

    ...             on a line of its own in the output stands for any lines, also none
    console times   times of day, process ids, temporary names and the room on disks are compared by
                    kind only
    console one     the first line is the one command; further "$ " belong to its output

A block after the line "<!-- needs: PROGRAM... -->" is left out where a program is missing, and the
test then says so. Every command must end with status 0.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

SKIPPED = 77
COPIED = ["samples"]
LINKED = ["CMakeLists.txt", "README.md", "completions", "doc", "integrations", "man", "packaging",
          "scripts", "src", "tests"]
DEADLINE_SECONDS = 300


class Command:
    def __init__(self, line, text, times):
        self.line = line
        self.text = text
        self.times = times
        self.expected = []


def markdown_blocks(lines):
    """Yields (first line number, options, lines, needed programs) of each console block."""
    block = None
    needed = []
    for number, line in enumerate(lines, 1):
        if block is None:
            if line.startswith("```console"):
                block = (number + 1, line[len("```console"):].split(), [], needed)
            elif line.startswith("```"):
                block = (number + 1, None, [], needed)
            match = re.fullmatch(r"<!-- needs: (.*) -->", line)
            needed = match.group(1).split() if match else []
        elif line == "```":
            if block[1] is not None:
                yield block
            block = None
        else:
            block[2].append(line)
    if block is not None:
        raise ValueError(f"line {block[0]}: block without an end")


def manual_blocks(lines):
    """Yields the literal displays of the section EXAMPLES, roff escapes undone."""
    inside = False
    block = None
    for number, line in enumerate(lines, 1):
        if line.startswith(".Sh "):
            inside = line == ".Sh EXAMPLES"
        elif inside and line.startswith(".Bd -literal"):
            block = (number + 1, [], [], [])
        elif line == ".Ed" and block is not None:
            yield block
            block = None
        elif block is not None:
            block[2].append(line.replace("\\&", "").replace("\\-", "-").replace("\\(aq", "'")
                            .replace("\\e", "\\"))


def commands_of(path, missing):
    lines = path.read_text().splitlines()
    blocks = markdown_blocks(lines) if path.suffix == ".md" else manual_blocks(lines)
    commands = []
    for first, options, block, needed in blocks:
        current = None
        absent = [program for program in needed if shutil.which(program) is None]
        missing.extend(absent)
        if absent:
            continue
        for number, line in enumerate(block, first):
            if line.startswith("$ ") and not ("one" in options and current is not None):
                current = Command(number, line[2:], "times" in options)
                commands.append(current)
            elif current is not None and not current.expected and re.match(r"> |>$", line):
                current.text += "\n" + line[2:]
            elif current is not None:
                current.expected.append(line)
            elif line:
                raise ValueError(f"{path}:{number}: output before any command")
    return commands


def as_on_a_terminal(text):
    """What remains visible when backspaces move the cursor."""
    lines = []
    for line in text.split("\n"):
        cells = []
        at = 0
        for character in line:
            if character == "\b":
                at = max(0, at - 1)
            elif at < len(cells):
                cells[at] = character
                at += 1
            else:
                cells.append(character)
                at += 1
        lines.append("".join(cells).rstrip())
    return lines


def by_kind(line):
    line = re.sub(r"\d\d:\d\d:\d\d(\.\d+)?", "<time>", line)
    line = re.sub(r"\d\d/\d\d/\d\d\d\d|\d\d\d\d-\d\d-\d\d", "<date>", line)
    line = re.sub(r"/tmp/\S+", "<scratch>", line)
    line = re.sub(r"\b(pid|process|client|number)( |:)\d+", r"\1\2<pid>", line)
    line = re.sub(r"(Buffer)\d+", r"\1<pid>", line)
    line = re.sub(r"-> pid \d+", "-> pid <pid>", line)
    line = re.sub(r"room left: \d+ of \d+ MiB", "room left: <room>", line)
    return re.sub(r"mode \d+, owner \S+, group \S+", "mode <mode>, owner <owner>", line)


def matches(expected, actual):
    """Line by line; "..." stands for any number of lines."""
    if not expected:
        return not actual
    if expected[0].strip() == "...":
        return any(matches(expected[1:], actual[i:]) for i in range(len(actual) + 1))
    return bool(actual) and expected[0] == actual[0] and matches(expected[1:], actual[1:])


def prepare(scratch, source, binaries):
    for name in COPIED:
        if (source / name).exists():
            shutil.copytree(source / name, scratch / name)
    for name in LINKED:
        if (source / name).exists():
            (scratch / name).symlink_to(source / name)
    (scratch / "build" / "release").mkdir(parents=True)
    (scratch / "build" / "release" / "bin").symlink_to(binaries)


def run(commands, scratch, results, binaries):
    script = ["set +m"]
    for index, command in enumerate(commands):
        (results / f"{index}.in").write_text(command.text)
        script.append(f'{{ eval "$(cat "$EXAMPLES"/{index}.in)"; }} '
                      f'>"$EXAMPLES"/{index}.out 2>&1 </dev/null; '
                      f'echo $? >"$EXAMPLES"/{index}.status')
    temporary = results / "tmp"
    temporary.mkdir()
    home = results / "home"
    home.mkdir()
    environment = {name: value for name, value in os.environ.items()
                   if name in ("LD_LIBRARY_PATH", "TERM", "USER") or name.endswith("SAN_OPTIONS")}
    environment.update(EXAMPLES=str(results), PATH=os.environ["PATH"], LC_ALL="C.UTF-8",
                       ZYN_BIN=str(binaries), TMPDIR=str(temporary), HOME=str(home))
    subprocess.run(["bash", "-c", "\n".join(script)], cwd=scratch, env=environment, check=False,
                   stdin=subprocess.DEVNULL, timeout=DEADLINE_SECONDS)


def as_documented(text, scratch, results):
    """Directory names as the documents give them."""
    return text.replace(str(scratch), "/home/op/zyntool").replace(str(results / "tmp"), "/tmp")


def check(path, commands, scratch, results):
    failures = 0
    for index, command in enumerate(commands):
        where = f"{path}:{command.line}"
        status = results / f"{index}.status"
        if not status.exists():
            print(f"{where}: not run: {command.text}")
            failures += 1
            continue
        code = status.read_text().strip()
        output = (results / f"{index}.out").read_bytes().decode("utf-8", "replace")
        actual = as_on_a_terminal(as_documented(output, scratch, results))
        while actual and not actual[-1]:
            actual.pop()
        expected = [line.rstrip() for line in command.expected]
        while expected and not expected[-1]:
            expected.pop()
        if command.times:
            actual = [by_kind(line) for line in actual]
            expected = [by_kind(line) for line in expected]
        if code == "0" and matches(expected, actual):
            continue
        failures += 1
        print(f"{where}: $ {command.text}\nstatus {code}\n--- the document shows")
        print("\n".join(expected))
        print("--- the command printed")
        print("\n".join(actual))
        print("---")
    return failures


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--source", type=Path, required=True, help="root of the checkout")
    parser.add_argument("--bin", type=Path, required=True, help="directory of the programs")
    parser.add_argument("document", type=Path)
    arguments = parser.parse_args()
    missing = []
    commands = commands_of(arguments.document, missing)
    if not commands and not missing:
        print(f"{arguments.document}: shows no command")
        return 1
    with tempfile.TemporaryDirectory(prefix="zyn-docs.") as directory:
        scratch = Path(directory) / "checkout"
        results = Path(directory) / "results"
        scratch.mkdir()
        results.mkdir()
        prepare(scratch, arguments.source.resolve(), arguments.bin.resolve())
        run(commands, scratch, results, arguments.bin.resolve())
        failures = check(arguments.document, commands, scratch, results)
    print(f"{arguments.document}: {len(commands)} commands, {failures} differ")
    if failures:
        return 1
    if missing:
        print(f"not all were run: {' '.join(sorted(set(missing)))} not installed")
        return SKIPPED
    return 0


if __name__ == "__main__":
    sys.exit(main())
