#!/usr/bin/env python3
"""Exports random logs with the program and with the independent decoder.

    differential.py --tool PATH --seeds A-B [--damage] [--jobs 2]

For each seed from A to B the file written, both output streams and the exit
status must be what the decoder says. Every seventh seed has records without
a time packet; the dates they show must lie within the run. Prints the first
difference of each seed that fails and a line of totals; exit status 1 if
anything differs. --keep DIR leaves the logs of failing seeds in DIR.
"""

from __future__ import annotations

import argparse
import functools
import os
import shutil
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ProcessPoolExecutor
from dataclasses import dataclass

import random_logs
import zynlog_decoder

BANNER = b"Runtime Tracing Command Line Utility 3.0\n" + b"-" * 54 + b"\n"
FAILURE = b"Operation failed.\nError description:"
# No run is slow; this only keeps a hanging program from hanging the test.
TOOL_TIMEOUT_S = 120


@dataclass(frozen=True)
class Options:
    tool: str
    damage: bool
    keep: str | None


class Difference(Exception):
    """What differs, in words."""


def hex_context(data: bytes, at: int) -> str:
    """The bytes around an offset as hexadecimal numbers and as text."""
    start = max(at - 16, 0)
    part = data[start:at + 32]
    shown = "".join(chr(b) if 32 <= b < 127 else "." for b in part)
    return f"{data[start:at].hex(' ')} >{data[at:at + 32].hex(' ')} |{shown}|"


def compare_bytes(what: str, expected: bytes, actual: bytes) -> None:
    if expected == actual:
        return
    at = len(os.path.commonprefix([expected, actual]))
    line = expected.count(b"\n", 0, at) + 1
    raise Difference(
        f"{what} differs at offset {at} (line {line}); "
        f"sizes: expected {len(expected)}, actual {len(actual)}\n"
        f"    expected {hex_context(expected, at)}\n"
        f"    actual   {hex_context(actual, at)}"
    )


def adopt_default_times(
    export: zynlog_decoder.Export, actual: bytes, start: int, end: int
) -> bytes:
    """The expected text with the dates that only the program can know.

    A date is adopted if it lies between the two times; others stay, and so
    show up as a difference. The zone of the process must be the program's.
    """
    dates = {zynlog_decoder.format_date(s) for s in range(start, end + 1)}
    text = bytearray(export.text)
    width = zynlog_decoder.DATE_WIDTH
    for at in export.default_times:
        date, dot, millis = actual[at:at + width].partition(b".")
        if date in dates and dot and len(millis) == 3 and millis.isdigit():
            text[at:at + width] = actual[at:at + width]
    return bytes(text)


def tool_arguments(
    log: random_logs.RandomLog, seed: int, directory: str, out: str
) -> list[bytes | str]:
    arguments: list[bytes | str] = ["export", "-d", directory, "-f", out]
    arguments.append("-silent")
    if log.separator is None:
        return arguments
    arguments.append("-l")
    # An empty value, or none at all, also means one blank.
    if log.separator != b" " or seed % 3 == 0:
        arguments.append(log.separator)
    elif seed % 3 == 1:
        arguments.append(b"")
    return arguments


def check_log(
    log: random_logs.RandomLog, seed: int, tool: str, home: str
) -> None:
    """Runs the program in a private directory; Difference if it is wrong."""
    directory = os.path.join(home, "logs")
    os.mkdir(directory)
    contents = dict(log.files)
    for name, content in contents.items():
        with open(os.path.join(directory, name), "wb") as file:
            file.write(content)
    out = os.path.join(home, "out.txt")

    with zynlog_decoder.zone(log.tz):
        start = int(time.time())
        run = subprocess.run(
            [tool, *tool_arguments(log, seed, directory, out)],
            cwd=home,
            env={"TZ": log.tz, "PATH": os.environ.get("PATH", "")},
            stdin=subprocess.DEVNULL,
            capture_output=True,
            timeout=TOOL_TIMEOUT_S,
            check=False,
        )
        end = int(time.time())
        export = zynlog_decoder.export_log(
            [contents[n] for n in zynlog_decoder.reading_order([*contents])],
            log.separator or b"",
        )
        if not export.listed:
            if os.path.exists(out):
                raise Difference("a failed listing left a file")
        elif not os.path.exists(out):
            raise Difference(f"no file was written; stderr: {run.stderr!r}")
        else:
            with open(out, "rb") as file:
                actual = file.read()
            expected = adopt_default_times(export, actual, start, end)
            compare_bytes("the text", expected, actual)

    report = b""
    if export.error is not None:
        report = FAILURE + export.error.encode() + b"\n"
    compare_bytes("standard error", BANNER + report, run.stderr)
    compare_bytes("standard output", b"", run.stdout)
    status = 255 if report else 0
    if run.returncode != status:
        raise Difference(f"status {run.returncode}, expected {status}")


def check_seed(options: Options, seed: int) -> str | None:
    """None if the program is right, else what is wrong."""
    log = random_logs.random_log(
        seed, options.damage, time_packets=seed % 7 != 0
    )
    with tempfile.TemporaryDirectory(prefix="zyndiff-") as home:
        try:
            check_log(log, seed, options.tool, home)
            return None
        except (Difference, subprocess.TimeoutExpired) as failure:
            if options.keep is not None:
                kept = os.path.join(options.keep, f"seed-{seed}")
                shutil.copytree(home, kept, dirs_exist_ok=True)
            return (
                f"seed {seed} (separator {log.separator!r}, TZ={log.tz}, "
                f"damages {list(log.damages)}): {failure}"
            )


def parse_seeds(text: str) -> range:
    first, _, last = text.partition("-")
    seeds = range(int(first), int(last or first) + 1)
    if not seeds:
        raise ValueError("no seeds")
    return seeds


def count_failures(check, cases, jobs: int) -> tuple[int, int]:
    """Checks all cases in several processes, prints what each failure tells and counts."""
    passed = failed = 0
    with ProcessPoolExecutor(jobs) as pool:
        for failure in pool.map(check, cases, chunksize=4):
            if failure is None:
                passed += 1
            else:
                failed += 1
                print(failure, flush=True)
    return passed, failed


def main() -> int:
    parser = argparse.ArgumentParser(
        description="Compares exports of random logs with the decoder's."
    )
    parser.add_argument("--tool", required=True, metavar="PATH")
    parser.add_argument(
        "--seeds", required=True, type=parse_seeds, metavar="A-B"
    )
    parser.add_argument("--damage", action="store_true")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--keep", metavar="DIR")
    arguments = parser.parse_args()

    options = Options(
        os.path.abspath(arguments.tool), arguments.damage, arguments.keep
    )
    check = functools.partial(check_seed, options)
    passed, failed = count_failures(check, arguments.seeds, arguments.jobs)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
