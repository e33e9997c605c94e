#!/usr/bin/env python3
"""Compares the walk over a log's blocks with the model's, on logs that are
sound, damaged at random, or damaged at every single place.

Logs lie there plainly, are compressed, or come through a pipe, and are cut over
files anywhere; each must give the same blocks.
"""

from __future__ import annotations

import argparse
import gzip
import os
import random
import struct
import subprocess
import sys
import tempfile

sys.path.insert(
    0, os.path.join(os.path.dirname(__file__), "../../testing/oracle"))

import block_walk_model as model  # noqa: E402
from log_damage import DAMAGES  # noqa: E402
from log_image import FILE_HEADER, put_packet, Image  # noqa: E402
from random_logs import LogMaker, split_files  # noqa: E402


def sum_of(data: bytes) -> int:
    total = 1
    for byte in data:
        total = (total * 31 + byte) & 0xFFFFFFFF
    return total


def expected_lines(log: bytes, hop: bool) -> list[str]:
    lines = []
    for found in model.walk(log):
        if isinstance(found, model.Damaged):
            lines.append(f"{found.kind} {found.position} {found.size}")
            continue
        line = (f"block {found.position} {found.data} {found.size} "
                f"{found.pid} <{found.host.hex()}>")
        data = log[found.data:found.data + found.size]
        lines.append(line if hop else f"{line} {sum_of(data)}")
    return lines


class Comparison:
    def __init__(self, program: str, directory: str):
        self._program = program
        self._directory = directory
        self._count = 0

    def _run(self, arguments: list[str], stdin: bytes | None) -> list[str]:
        result = subprocess.run(
            [self._program, *arguments], input=stdin, check=False,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60)
        if result.returncode != 0:
            raise SystemExit(f"{arguments}: {result.stderr.decode()}")
        return result.stdout.decode().splitlines()

    def compare(self, log: bytes, rng: random.Random, what: str) -> None:
        """Of the ways to read it, one each."""
        self._count += 1
        directory = os.path.join(self._directory, str(self._count))
        os.mkdir(directory)
        files = [(name, content) for name, content in split_files(rng, log)
                 if not name.endswith(".old")]
        way = rng.choice(("plain", "plain", "hop", "gzip", "mixed", "pipe"))
        paths = []
        for name, content in sorted(files):
            if way == "gzip" or (way == "mixed" and rng.random() < 0.5):
                name, content = name + ".gz", gzip.compress(content, 1)
            paths.append(os.path.join(directory, name))
            with open(paths[-1], "wb") as file:
                file.write(content)
        whole = b"".join(content[256:] for _, content in sorted(files))
        if way == "pipe":
            printed = self._run(["-"], FILE_HEADER + whole)
        else:
            arguments = ["--hop", directory] if way == "hop" else [directory]
            printed = self._run(arguments, None)

        if way == "hop":
            printed = [" ".join(line.split()[:6]) for line in printed]
        expected = expected_lines(whole, way == "hop")
        if printed != expected:
            raise SystemExit(
                f"{what}, read as {way}, in {directory}:\n"
                f"expected {expected}\nprinted  {printed}")
        for path in paths:
            os.remove(path)
        os.rmdir(directory)

    @property
    def count(self) -> int:
        return self._count


def random_stream(rng: random.Random) -> Image:
    image = LogMaker(rng, True).stream()
    if len(image.data) < 40_000:
        return image
    return random_stream(rng)


def small_log(rng: random.Random) -> bytes:
    """A few blocks of a few records; one message looks like a block."""
    image = Image()
    for number in range(4):
        records = Image()
        for record in range(rng.randrange(1, 4)):
            message = rng.randbytes(rng.randrange(12))
            if rng.random() < 0.2:
                message = (b"\x0a\x28\0\0\0" + b"inner".ljust(32, b"\0") +
                           struct.pack("<II", 7, 13) +
                           b"\x0a\x08\0\0\0" + struct.pack("<II", 1, 0))
            packets = Image()
            put_packet(packets, 9, message)
            put_packet(
                records, rng.choice((10, 10, 5)),
                struct.pack("<II", record, len(packets.data)),
                rng.choice((None, None, 9)))
            records.append(packets)
        put_packet(
            image, 10,
            b"host".ljust(32, b"\0") +
            struct.pack("<II", number, len(records.data)),
            rng.choice((None, None, 5)))
        image.append(records)
    return bytes(image.data)


def every_place(comparison: Comparison, rng: random.Random, step: int) -> None:
    """Each byte of a small log lost, doubled, changed; the log cut there."""
    log = small_log(rng)
    for at in range(rng.randrange(step), len(log), step):
        flipped = bytearray(log)
        flipped[at] ^= 1 << rng.randrange(8)
        other = log[:at] + bytes([rng.randrange(256)]) + log[at + 1:]
        for what, damaged in (
                ("cut at", log[:at]), ("lost", log[:at] + log[at + 1:]),
                ("doubled", log[:at + 1] + log[at:]), ("bit of", flipped),
                ("byte", other)):
            comparison.compare(bytes(damaged), rng, f"{what} {at}")


def main() -> int:
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--seeds", default="1-150")
    parser.add_argument("--step", type=int, default=7)
    options = parser.parse_args()
    first, last = map(int, options.seeds.split("-"))
    with tempfile.TemporaryDirectory() as directory:
        comparison = Comparison(options.program, directory)
        for seed in range(first, last + 1):
            rng = random.Random(seed)
            image = random_stream(rng)
            for name in rng.choices(list(DAMAGES), k=rng.choice((0, 1, 2, 6))):
                DAMAGES[name](rng, image)
            comparison.compare(bytes(image.data), rng, f"seed {seed}")
        for seed in (first, last):
            every_place(comparison, random.Random(seed), options.step)
        print(f"{comparison.count} logs gave the same blocks")
    return 0


if __name__ == "__main__":
    sys.exit(main())
