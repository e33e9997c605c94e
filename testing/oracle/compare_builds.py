#!/usr/bin/env python3
"""Runs the programs of several builds on the same logs: all must do the same.

    compare_builds.py [--seeds A-B] BIN BIN...

Each BIN is the directory of the programs of one build. Compared with those of
the first: the logs that zynloggen makes; the files, both output streams and
the status of exports of the sample log, of logs of every layout, and of random
logs, sound and damaged; and what zynlog-verify reports of them. Exit status 1
if anything differs.
"""

from __future__ import annotations

import argparse
import functools
import os
import shutil
import subprocess
import sys
import tempfile
from collections.abc import Callable, Iterator
from dataclasses import dataclass
from pathlib import Path

import random_logs
import zynlog_decoder
from differential import Difference, compare_bytes, count_failures, parse_seeds, tool_arguments

SAMPLES = Path(__file__).resolve().parent.parent.parent / "samples" / "log"
# No run is slow; this only keeps a hanging program from hanging the check.
TIMEOUT_S = 120

LAYOUTS = {
    "plain": [],
    "window": ["--order", "window", "--files", "3"],
    "shuffled": ["--order", "shuffled", "--records", "5000", "--block-bytes", "200000-600000"],
    "spanning": ["--span", "--files", "4", "--order", "window", "--window", "900"],
    "controls": ["--control-percent", "30", "--multiline-percent", "40", "--seed", "2"],
    "long": ["--message", "1000-9000", "--names", "40-200", "--seed", "3"],
    "seconds": ["--one-per-second", "--start-time", "4102444000", "--records", "2000"],
}

# By name: what follows "export", with the log in ../log.
EXPORTS = {
    "one file": ["-d", "../log", "-f", "all.txt"],
    "standard name": ["-d", "../log", "-f", "-silent"],
    "many files": ["-d", "../log", "-m", ".", "-silent", "-l", "|"],
}


@dataclass(frozen=True)
class Log:
    """What is in the directory, and how it is exported."""

    name: str
    write: Callable[[Path, Path], None]
    exports: dict[str, list[bytes | str]]
    zone: str = "UTC0"
    # Offsets in all.txt of dates that are the time of the run.
    times: tuple[int, ...] = ()


def run(program: Path, arguments: list[bytes | str], where: Path, zone: str) -> dict[str, bytes]:
    environment = {"TZ": zone, "KORVA_VANTOREL_DIR": "/nonexistent"}
    for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"):
        if name in os.environ:
            environment[name] = os.environ[name]
    result = subprocess.run(
        [program, *arguments], cwd=where, env=environment, stdin=subprocess.DEVNULL,
        capture_output=True, timeout=TIMEOUT_S, check=False,
    )
    return {"status": b"%d" % result.returncode, "standard output": result.stdout,
            "standard error": result.stderr}


def contents(directory: Path) -> dict[str, bytes]:
    return {f"file {os.fsencode(path.name)!r}": path.read_bytes()
            for path in sorted(directory.iterdir())}


def without_times(text: bytes, times: tuple[int, ...]) -> bytes:
    masked = bytearray(text)
    # A date, a dot and the milliseconds; a build that wrote more or less shows in what follows.
    width = zynlog_decoder.DATE_WIDTH + 4
    for at in times:
        masked[at:at + width] = b"?" * len(masked[at:at + width])
    return bytes(masked)


def results_of(build: Path, log: Log) -> dict[str, bytes]:
    """Everything that the build makes of the log, by what it is."""
    with tempfile.TemporaryDirectory(prefix="zynbuilds-") as name:
        home = Path(name)
        (home / "log").mkdir()
        log.write(build, home / "log")
        found = contents(home / "log")
        for title, arguments in log.exports.items():
            out = home / "out"
            out.mkdir()
            result = run(build / "zyntool", ["export", *arguments], out, log.zone)
            result |= contents(out)
            shutil.rmtree(out)
            for what in result:
                found[f"{title}: {what}"] = without_times(
                    result[what], log.times if what.startswith("file") else ())
        for option in ("--blocks", "--json"):
            result = run(build / "zynlog-verify", [option, "log"], home, log.zone)
            found |= {f"verify {option}: {what}": text for what, text in result.items()}
    return found


def compare(builds: list[Path], log: Log) -> str | None:
    """None if all builds do the same, else what differs."""
    expected = results_of(builds[0], log)
    for build in builds[1:]:
        actual = results_of(build, log)
        try:
            if expected.keys() != actual.keys():
                raise Difference(f"other results: {sorted(expected.keys() ^ actual.keys())}")
            for what, text in expected.items():
                compare_bytes(what, text, actual[what])
        except Difference as difference:
            return f"{log.name}: {build} is not as {builds[0]}: {difference}"
    return None


def copy_samples(_: Path, directory: Path) -> None:
    shutil.copytree(SAMPLES, directory, dirs_exist_ok=True)


def write_layout(options: list[str], build: Path, directory: Path) -> None:
    subprocess.run([build / "zynloggen", "--out", directory, "--replace", *options],
                   stdout=subprocess.DEVNULL, check=True, timeout=TIMEOUT_S)


def write_random(seed: int, damage: bool, _: Path, directory: Path) -> None:
    for name, content in random_logs.random_log(seed, damage).files:
        (directory / name).write_bytes(content)


def random_log(seed: int, damage: bool) -> Log:
    log = random_logs.random_log(seed, damage)
    files = dict(log.files)
    with zynlog_decoder.zone(log.tz):
        export = zynlog_decoder.export_log(
            [files[name] for name in zynlog_decoder.reading_order([*files])],
            log.separator or b"")
    arguments = tool_arguments(log, seed, "../log", "all.txt")[1:]
    return Log(f"{'damaged' if damage else 'sound'} random log {seed} {list(log.damages)}",
               functools.partial(write_random, seed, damage), {"export": arguments}, log.tz,
               tuple(export.default_times))


def logs(seeds: range) -> Iterator[Log]:
    yield Log("sample log", copy_samples, EXPORTS)
    for name, options in LAYOUTS.items():
        yield Log(f"layout {name}", functools.partial(write_layout, options), EXPORTS)
    for seed in seeds:
        yield random_log(seed, False)
        yield random_log(seed, True)


def main() -> int:
    parser = argparse.ArgumentParser(description="Compares what several builds do.")
    parser.add_argument("--seeds", type=parse_seeds, default="1-40", metavar="A-B")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("builds", nargs="+", type=Path, metavar="BIN")
    arguments = parser.parse_args()
    builds = [build.resolve() for build in arguments.builds]
    if len(builds) < 2:
        parser.error("one build has nothing to be compared with")

    check = functools.partial(compare, builds)
    passed, failed = count_failures(check, logs(arguments.seeds), arguments.jobs)
    print(f"{len(builds)} builds, {passed} logs with the same results, {failed} with others")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
