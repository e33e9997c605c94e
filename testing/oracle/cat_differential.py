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


class Log:
    """A log in a directory, and what the oracle reads of it."""

    def __init__(self, rng: random.Random, files, directory: bytes):
        self.directory = directory
        os.mkdir(directory)
        contents = {os.fsencode(name): content for name, content in files}
        self.names = [os.fsencode(n) for n in zynlog_decoder.reading_order(
            [os.fsdecode(n) for n in contents])]
        self.files = [(directory + b"/" + n, contents[n]) for n in self.names]
        # Mostly so late that no file is left out for --since.
        self.changed = [2.0**33 for _ in self.files]
        self.rng = rng
        for path, content in self.files:
            with open(path, "wb") as file:
                file.write(content)

    def age(self, since: int) -> None:
        """Has files changed about when --since leaves them out."""
        old = self.rng.randrange(len(self.files) + 1)
        for i in range(len(self.files)):
            self.changed[i] = since // 1000 + (
                self.rng.choice((-3600, -62)) if i < old else -58)

    def read(self, live: bool, since: int | None) -> oracle.Log:
        files = self.files
        for (path, _), changed in zip(files, self.changed):
            os.utime(path, (changed, changed))
        if since is not None:
            files = files[oracle.files_since(
                [(content, changed) for (_, content), changed
                 in zip(files, self.changed)], since / 1000):]
        good = [f for f in files
                if f[1].startswith(zynlog_decoder.FILE_HEADER)]
        self.left_out = len(good) < len(files)
        self.empty = not good
        return oracle.read_log(good, live)


class Case:
    """Some logs, shown one after another or merged."""

    def __init__(self, rng: random.Random, logs: list[Log]):
        self.rng = rng
        self.logs = logs
        self.live = rng.random() < 0.2
        self.merge = rng.random() < (0.5 if len(logs) == 1 else 0.8)
        self.read(None)

    def read(self, since: int | None) -> None:
        read = [log.read(self.live, since) for log in self.logs]
        self.damage = [damage for log in read for damage in log.damage]
        self.records = (
            oracle.merged([log.records for log in read]) if self.merge
            else [record for log in read for record in log.records])
        self.left_out = any(log.left_out for log in self.logs)
        self.empty = any(log.empty for log in self.logs)
        self.unopened = all(log.empty for log in self.logs)

    def conditions(self) -> tuple[oracle.Conditions, list[bytes]]:
        """Some, and the options that ask for them."""
        rng = self.rng
        records = self.records
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
    threads = set()
    events = []
    for event in json.loads(text.decode("utf-8"))["traceEvents"]:
        if event["ph"] != "M":
            events.append(event)
        elif event["name"] == "process_name":
            host, _, process = event["args"]["name"].rpartition("/")
            names[event["pid"]] = (host, int(process))
        elif event["args"]["name"] == str(event["tid"]):
            threads.add((event["pid"], event["tid"]))
    if threads != {(event["pid"], event["tid"]) for event in events}:
        raise Difference("threads without their names, or names of none")
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
        differential.compare_bytes("count", oracle.count_table(records), text)
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
        (masked(path), offset, kind) for path, offset, kind in case.damage)
    if told != expected:
        raise Difference(f"damage\n  expected {expected}\n  actual {told}")
    wanted = 2 if case.empty else int(
        bool(case.damage) or case.left_out)
    if status != wanted:
        raise Difference(f"status {status}, expected {wanted}: {error!r}")


def check_case(case: Case, program: str, tz: str) -> None:
    wanted, options = case.conditions()
    if wanted.since is not None and case.rng.random() < 0.5:
        for log in case.logs:
            log.age(wanted.since)
    case.read(wanted.since)
    if case.live:
        options.append(b"--live")
    if case.merge:
        options.append(b"--merge")
    taken = [r for r in case.records if wanted.take(r)]
    directories = [log.directory for log in case.logs]
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
        arguments = [b"-o", form.encode(), *options, *more, *directories]
        run = subprocess.run(
            [program, *arguments], env={"TZ": tz}, capture_output=True,
            stdin=subprocess.DEVNULL, timeout=TIMEOUT_S, check=False)
        try:
            if case.unopened:
                differential.compare_bytes(form, b"", run.stdout)
            else:
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
        rng = random.Random(seed)
        files = [log.files] + [
            random_logs.random_log(rng.getrandbits(32), damage,
                                   time_packets=False).files
            for _ in range(rng.choice((0, 0, 0, 1, 2)))]
        try:
            with zynlog_decoder.zone(log.tz):
                logs = [Log(rng, one, os.fsencode(
                            os.path.join(home, f"log{number}")))
                        for number, one in enumerate(files)]
                check_case(Case(rng, logs), program, log.tz)
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
