#!/usr/bin/env python3
"""Shows random logs with zynlog-cat and with the independent reading of them.

    cat_differential.py --cat PATH --seeds A-B [--damage] [--jobs 2]

For each seed a random log, its records in any packet order, is shown in every
output form under conditions drawn at random: what is written, the damage that
is told and the exit status must be what cat_oracle says. Prints the first
difference of each seed that fails and a line of totals; exit status 1 if
anything differs. --keep DIR leaves the logs of failing seeds in DIR.
"""

from __future__ import annotations

import argparse
import functools
import json
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile

import cat_oracle as oracle
import differential
import random_logs
import zynlog_decoder

FORMS = ("columns", "short", "json", "csv", "count", "count-json", "timeline")
TIMEOUT_S = 120
_DAMAGE = re.compile(rb"zynlog-cat: (.*), offset (\d+): ([a-z-]+): .*")

Difference = differential.Difference


def masked(path: bytes) -> bytes:
    return oracle.printable(path)


class Case:
    """A log in a directory, and what the oracle reads of it."""

    def __init__(self, rng: random.Random, files, directory: bytes):
        self.rng = rng
        contents = {os.fsencode(name): content for name, content in files}
        for name, content in contents.items():
            path = os.path.join(directory, name)
            with open(path, "wb") as file:
                file.write(content)
            # So late that no file is left out for --since.
            os.utime(path, (2**33, 2**33))
        self.directory = directory
        names = [os.fsencode(n) for n in zynlog_decoder.reading_order(
            [os.fsdecode(n) for n in contents])]
        good = [n for n in names
                if contents[n].startswith(zynlog_decoder.FILE_HEADER)]
        self.left_out = len(good) < len(names)
        self.empty = not good
        self.live = rng.random() < 0.2
        self.log = oracle.read_log(
            [(directory + b"/" + n, contents[n]) for n in good], self.live)

    def conditions(self) -> tuple[oracle.Conditions, list[bytes]]:
        """Some, and the options that ask for them."""
        rng = self.rng
        records = self.log.records
        wanted = oracle.Conditions()
        options: list[bytes] = []

        def some(values: list, chance: float) -> list:
            values = [v for v in values if v is not None]
            if not values or rng.random() > chance:
                return []
            return rng.choices(values, k=rng.choice((1, 1, 2)))

        times = [r.counted for r in records]
        for name, letter in (("since", b"-S"), ("until", b"-U")):
            for value in some(times, 0.25)[:1]:
                setattr(wanted, name, value)
                options += [letter, self.time_text(value)]
        for name, option in (("module", b"--module"), ("client", b"-c"),
                             ("label", b"-l"), ("host", b"--host")):
            for value in some([getattr(r, name) for r in records], 0.2):
                # What an argument can hold.
                if b"\0" in value or b"\x02" in value or len(value) > 1000:
                    continue
                pattern = self.pattern(value)
                getattr(wanted, name + "s").append(pattern)
                options += [option, pattern]
        for name, letter in (("pid", b"-p"), ("tid", b"-t")):
            for value in some([getattr(r, name) for r in records], 0.15):
                getattr(wanted, name + "s").append(value)
                options += [letter, b"%d" % value]
        for value in some([r.message for r in records], 0.25):
            words = re.findall(rb"[A-Za-z0-9 ]{1,12}", value)
            if words:
                text = rng.choice(words)
                if rng.random() < 0.3:
                    text = b"^" + text
                elif rng.random() < 0.3:
                    text += b"$"
                wanted.greps.append(text)
                options += [b"-g", text]
        if rng.random() < 0.3:
            wanted.ignore_case = True
            options.append(b"--ignore-case")
        return wanted, options

    def time_text(self, value: int) -> bytes:
        """A moment in one of the ways of writing it, 32 bits at most."""
        seconds, milliseconds = divmod(value, 1000)
        if seconds <= 0xFFFFFFFF and self.rng.random() < 0.5:
            return b"@%d.%03d" % (seconds, milliseconds)
        text = oracle.utc(value)
        if self.rng.random() < 0.5:
            text = text.replace("T", " ")
        return text.encode()

    def pattern(self, name: bytes) -> bytes:
        """One that matches the name, and maybe others."""
        escaped = re.sub(rb"([*?\[\]\\])", rb"\\\1", name)
        draw = self.rng.random()
        if draw < 0.5 or not name:
            return escaped
        if draw < 0.7:
            return b"*"
        cut = self.rng.randrange(len(name))
        start = re.sub(rb"([*?\[\]\\])", rb"\\\1", name[:cut])
        return start + self.rng.choice((b"*", b"?" * (len(name) - cut)))


def check_json(text: bytes, records: list[oracle.Shown]) -> None:
    lines = text.split(b"\n")
    if lines.pop() != b"" or len(lines) != len(records):
        raise Difference(f"{len(lines)} lines, expected {len(records)}")
    for number, (line, record) in enumerate(zip(lines, records)):
        actual = json.loads(line.decode("utf-8"), object_pairs_hook=list)
        expected = oracle.json_items(record)
        if actual != expected:
            raise Difference(
                f"line {number + 1}\n  expected {expected}\n  actual {actual}")


def check_timeline(text: bytes, records: list[oracle.Shown]) -> None:
    expected, _ = oracle.timeline_events(records)
    names: dict[int, tuple] = {}
    events = []
    for event in json.loads(text.decode("utf-8"))["traceEvents"]:
        if event["ph"] != "M":
            events.append(event)
        elif event["name"] == "process_name":
            host, _, process = event["args"]["name"].rpartition("/")
            names[event["pid"]] = (host, int(process))
    if len(set(names.values())) > len(names):
        raise Difference("two processes of one name")
    for event in events:
        event["pid"] = list(names[event["pid"]])
    for event in expected:
        host, process = event["pid"]
        host = host.encode("latin-1").decode("utf-8", "replace")
        event["pid"] = [host, process]

    def key(event: dict) -> str:
        return json.dumps(event, sort_keys=True)

    if sorted(map(key, events)) != sorted(map(key, expected)):
        missing = set(map(key, expected)) - set(map(key, events))
        extra = set(map(key, events)) - set(map(key, expected))
        raise Difference(
            f"events: missing {sorted(missing)[:2]}, extra {sorted(extra)[:2]}")


def check_count(text: bytes, records: list[oracle.Shown]) -> None:
    """The sums; the names of count-json are compared exactly."""
    first, _, rest = text.partition(b"\n")
    if first.split(b" ")[0] != b"%d" % len(records):
        raise Difference(f"count begins {first!r}")
    tables = rest.split(b"\n\n")
    for table in tables:
        sums = [int(line.split()[0]) for line in table.strip(b"\n").split(
            b"\n")[1:]]
        if sum(sums) != len(records) or sums != sorted(sums, reverse=True):
            raise Difference(f"table {table!r}")
    if len(tables) != len(oracle.KINDS):
        raise Difference(f"{len(tables)} tables")


def check_output(
    form: str, text: bytes, records: list[oracle.Shown], header: bool
) -> None:
    if form == "columns":
        differential.compare_bytes(
            "columns", oracle.columns(records, header), text)
    elif form == "short":
        differential.compare_bytes("short", oracle.short(records), text)
    elif form == "csv":
        differential.compare_bytes(
            "csv", oracle.csv_text(records, header), text)
    elif form == "json":
        check_json(text, records)
    elif form == "count":
        check_count(text, records)
    elif form == "count-json":
        actual = json.loads(text.decode("utf-8"), object_pairs_hook=list)
        expected = oracle.count_items(records)
        if actual != expected:
            raise Difference(f"expected {expected}\n  actual {actual}")
    else:
        check_timeline(text, records)


def check_damage(case: Case, error: bytes, status: int) -> None:
    told = sorted(
        (m[1], int(m[2]), m[3].decode())
        for m in map(_DAMAGE.fullmatch, error.split(b"\n")) if m)
    expected = sorted(
        (masked(path), offset, kind) for path, offset, kind in case.log.damage)
    if told != expected:
        raise Difference(f"damage\n  expected {expected}\n  actual {told}")
    wanted = 2 if case.empty else int(
        bool(case.log.damage) or case.left_out)
    if status != wanted:
        raise Difference(f"status {status}, expected {wanted}: {error!r}")


def check_case(case: Case, program: str, tz: str) -> None:
    wanted, options = case.conditions()
    if case.live:
        options.append(b"--live")
    taken = [r for r in case.log.records if wanted.take(r)]
    for form in FORMS:
        more: list[bytes] = []
        records = taken
        if case.rng.random() < 0.3:
            count = case.rng.choice((0, 1, 2, 7, len(taken), len(taken) + 1))
            records = taken[len(taken) - min(count, len(taken)):]
            more += [b"-n", b"%d" % count]
        header = case.rng.random() < 0.7
        if not header:
            more.append(b"--no-header")
        arguments = [b"-o", form.encode(), *options, *more, case.directory]
        run = subprocess.run(
            [program, *arguments], env={"TZ": tz}, capture_output=True,
            stdin=subprocess.DEVNULL, timeout=TIMEOUT_S, check=False)
        try:
            check_output(form, run.stdout, records, header)
            check_damage(case, run.stderr, run.returncode)
        except (Difference, ValueError, KeyError) as difference:
            raise Difference(
                f"{arguments}: {difference!r}"[:3000]) from difference


def check_seed(program: str, damage: bool, keep: str | None,
               seed: int) -> str | None:
    """None if the program is right, else what is wrong."""
    log = random_logs.random_log(seed, damage, time_packets=False)
    with tempfile.TemporaryDirectory(prefix="zyncat-") as home:
        directory = os.path.join(home, "log")
        os.mkdir(directory)
        try:
            with zynlog_decoder.zone(log.tz):
                case = Case(random.Random(seed), log.files,
                            os.fsencode(directory))
                check_case(case, program, log.tz)
            return None
        except (Difference, subprocess.TimeoutExpired) as failure:
            if keep is not None:
                shutil.copytree(home, os.path.join(keep, f"seed-{seed}"),
                                dirs_exist_ok=True)
            return (f"seed {seed} (TZ={log.tz}, damages "
                    f"{list(log.damages)}): {failure}")


def main() -> int:
    parser = argparse.ArgumentParser(
        description="Compares what zynlog-cat shows with the decoder's.")
    parser.add_argument("--cat", required=True, metavar="PATH")
    parser.add_argument(
        "--seeds", required=True, type=differential.parse_seeds, metavar="A-B")
    parser.add_argument("--damage", action="store_true")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--keep", metavar="DIR")
    arguments = parser.parse_args()
    check = functools.partial(
        check_seed, os.path.abspath(arguments.cat), arguments.damage,
        arguments.keep)
    passed, failed = differential.count_failures(
        check, arguments.seeds, arguments.jobs)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
