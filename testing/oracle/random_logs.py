#!/usr/bin/env python3
"""Seeded random trace logs, sound or damaged in named ways.

random_log(seed) gives the same log on every machine: the files of a log
directory, a column separator and a time zone. The differential test exports
them with the program and with the independent decoder; the bytes are laid
down by this module's own code.

From a shell, to look at the log of a seed:

    random_logs.py [--damage] SEED DIR
"""

from __future__ import annotations

import argparse
import os
import random
import struct
import sys
from dataclasses import dataclass, replace

from log_damage import DAMAGES, damage_files
from log_image import (
    BLOCK_LENGTH, BLOCK_SIZE, BLOCK_START, FILE_HEADER, RECORD_LENGTH,
    RECORD_SIZE, RECORD_START, U32_MAX, Image, Mark, put_packet,
)

ZONES = (
    "UTC", "Europe/Berlin", "Asia/Kolkata", "America/St_Johns",
    "CET-1CEST,M3.5.0,M10.5.0/3", "XST+3:30", "XHI-13:45",
)

# Ends of ranges, and seconds around changes of daylight saving time.
EDGE_TIMES = (
    0, 1, 59, 86399, 86400, 0x7FFFFFFF, 0x80000000, U32_MAX - 1, U32_MAX,
    951782399, 951782400, 1711846799, 1711846800, 1729990799, 1729990800,
    2140045199, 4102444799, 4102444800,
)
EDGE_SIZES = (0, 1, 10, 12, 13, 20, 49, 50, 51)
LONG_SIZES = (1023, 1024, 1025, 2047, 2048, 2049, 2100, 5000)
MODULES = (b"billing", b"net.transport", b"StorageEngine", b"ui", b"auth")
CLIENTS = (b"worker-1", b"front-desk", b"batch", b"session_host_17")
LABELS = (b"INFO", b"ERROR", b"Warning", b"Debug.verbose", b"STATE")
WORDS = (
    b"request", b"took", b"17", b"ms;", b"queue", b"is", b"full", b"retry",
    b"in", b"0x7f00", b"connection", b"closed", b"by", b"peer", b"gr\xc3\xbcn",
)


@dataclass(frozen=True)
class RandomLog:
    """A log directory and how to export it.

    files are in no order and hold files that are no part of the log, too.
    separator is the value of option L, None when the option is absent.
    """

    files: list[tuple[str, bytes]]
    separator: bytes | None
    tz: str
    damages: tuple[str, ...] = ()


class LogMaker:
    """Draws one log from a generator of random numbers."""

    def __init__(self, rng: random.Random, time_packets: bool):
        self._rng = rng
        self._time_packets = time_packets
        self._separator = self._draw_separator()
        self._now = rng.choice((rng.choice(EDGE_TIMES), rng.getrandbits(32)))
        self._shapes = self._draw_shapes()

    @property
    def separator(self) -> bytes | None:
        return self._separator

    def _chance(self, probability: float) -> bool:
        return self._rng.random() < probability

    def _draw_separator(self) -> bytes | None:
        rng = self._rng
        return rng.choice(
            (
                None, None, b" ", b" ", b" ", b" | ", b"|", b"\t", b"  ",
                b"\xc2\xa6", b"<" + b"=" * rng.choice((48, 49, 50, 60)),
                b" " + b"x" * rng.choice((48, 49, 50, 60)),
            )
        )

    def _draw_shapes(self) -> list[str]:
        """The orders of packets of a few writers, as words of letters: time,
        process, thread, module, client, label, message, control, other. Now
        and then one repeats a packet or leaves one out, never the time."""
        rng = self._rng
        shapes = []
        for _ in range(rng.choice((1, 1, 2, 4, 12))):
            letters = [*"tpTmclM"]
            if self._chance(0.2):
                letters.append("C")
            if self._chance(0.3):
                letters += rng.choices("tpTmclMo", k=rng.randrange(1, 5))
            if self._chance(0.2):
                letters = ["t", *rng.sample(letters[1:], rng.randrange(7))]
            if self._chance(0.85):
                rng.shuffle(letters)
            shapes.append("".join(letters))
        return shapes

    def stream(self) -> Image:
        """All blocks of the log, back to back."""
        image = Image()
        for _ in range(self._rng.choice((0, 1, 1, 2, 2, 3, 4, 6))):
            image.append(self._block())
        return image

    def _block(self) -> Image:
        rng = self._rng
        records = Image()
        if self._chance(0.07):
            count = rng.randrange(995, 1300)
            make = self._small_record
        elif self._chance(0.15):
            count, make = 0, self._record
        else:
            count, make = rng.choice((1, 2, 3, 5, 8, 20, 60)), self._record
        for number in self._sequence(count):
            if self._chance(0.05):
                self._shapes = self._draw_shapes()
            records.append(make(number))
        host = rng.choice((b"", b"host-7", b"h" * 31, rng.randbytes(32)))
        block = Image()
        block.mark(BLOCK_START)
        header = host.ljust(32, b"\0") + struct.pack("<I", rng.getrandbits(32))
        size = struct.pack("<I", len(records.data))
        put_packet(
            block, self._long_code(10), header + size, self._some_id(),
            self._extra_bits(), BLOCK_LENGTH,
        )
        block.marks.append(Mark(BLOCK_SIZE, len(block.data) - 4))
        block.append(records)
        return block

    def _sequence(self, count: int) -> list[int]:
        """Sequence numbers in the order in which the records are stored."""
        rng = self._rng
        start = rng.choice((0, rng.getrandbits(32), U32_MAX - count // 2))
        numbers = [(start + i) & U32_MAX for i in range(count)]
        order = rng.choice(
            ("rising", "window", "shuffled", "falling", "equal", "random")
        )
        if order == "window":
            width = rng.choice((2, 8, 64, 999, 1000, 1001))
            keys = [i + rng.uniform(0, width) for i in range(count)]
            places = sorted(range(count), key=keys.__getitem__)
            numbers = [numbers[i] for i in places]
        elif order == "shuffled":
            rng.shuffle(numbers)
        elif order == "falling":
            numbers.reverse()
        elif order == "equal":
            numbers = [start + rng.randrange(3) & U32_MAX for _ in numbers]
        elif order == "random":
            numbers = [rng.getrandbits(32) for _ in numbers]
        return numbers

    def _wrap_record(self, number: int, packets: Image) -> Image:
        record = Image()
        record.mark(RECORD_START)
        payload = struct.pack("<II", number, len(packets.data))
        # A 64-bit value is 8 bytes long too, without saying so.
        code = 5 if self._chance(0.05) else self._long_code(10)
        put_packet(
            record, code, payload, self._some_id(), self._extra_bits(),
            RECORD_LENGTH,
        )
        record.marks.append(Mark(RECORD_SIZE, len(record.data) - 4))
        record.append(packets)
        return record

    def _small_record(self, number: int) -> Image:
        packets = Image()
        self._put_time(packets)
        put_packet(packets, 9, b"#%d" % number)
        return self._wrap_record(number, packets)

    def _record(self, number: int) -> Image:
        packets = Image()
        if self._chance(0.6):
            self._put_plain_packets(packets)
        else:
            for _ in range(self._rng.randrange(12)):
                self._put_any_packet(packets)
            # Times among the packets above may come first: the last wins.
            self._put_time(packets)
        return self._wrap_record(number, packets)

    def _put_plain_packets(self, packets: Image) -> None:
        """A record like those of a real service, in the order of a writer."""
        rng = self._rng
        module, client, label = (
            rng.choice(names) if self._chance(0.7) else self._short_text()
            for names in (MODULES, CLIENTS, LABELS)
        )
        if self._chance(0.1):
            message = self._filling_text(module, client, label)
        else:
            message = self._text()
        message_id = rng.choice((None, 0))
        other = rng.randbytes(rng.randrange(20))
        for letter in rng.choice(self._shapes):
            if letter == "t":
                self._put_time(packets)
            elif letter == "p":
                put_packet(packets, 4, self._number(), 4)
            elif letter == "T":
                put_packet(packets, 4, self._number(), 3)
            elif letter == "m":
                put_packet(packets, 9, module, 32)
            elif letter == "c":
                put_packet(packets, 9, client, 33)
            elif letter == "l":
                put_packet(packets, 9, label, 34)
            elif letter == "M":
                put_packet(packets, 9, message, message_id)
            elif letter == "C":
                self._put_control(packets)
            else:
                put_packet(packets, 8, other)

    def _put_any_packet(self, packets: Image) -> None:
        rng = self._rng
        code = rng.randrange(16)
        ident = self._some_id()
        payload = rng.randbytes((0, 1, 1, 2, 4, 8, 0, 0)[code & 7])
        if code == 4:
            payload = self._number()
            ident = rng.choice((3, 4, 3, 4, ident))
        elif code == 9:
            ident = rng.choice((None, 0, 32, 33, 34, ident))
            payload = self._text()
        elif code == 10:
            if self._chance(0.3):
                self._put_time(packets)
                return
            if self._chance(0.7):
                self._put_control(packets)
                return
            # Short, exact and long structures of any id but the times',
            # whose absence would bring in the time of the export.
            ident = rng.choice((0, 1, 3, 5, 6, 7, 32, 0xFFFF))
            payload = rng.randbytes(rng.choice((0, 1, 3, 4, 7, 8, 9, 12, 40)))
        elif code & 0x08:
            payload = rng.randbytes(self._size())
        put_packet(packets, code, payload, ident, self._extra_bits())

    def _put_time(self, packets: Image) -> None:
        rng = self._rng
        if not self._time_packets and self._chance(0.5):
            return
        draw = rng.random()
        if draw < 0.6:
            self._now = self._now + rng.randrange(3) & U32_MAX
            seconds = self._now
        elif draw < 0.8:
            seconds = rng.choice(EDGE_TIMES)
        else:
            seconds = rng.getrandbits(32)
        millis = rng.choice((0, 7, 999, 1000, 65535, rng.randrange(1000)))
        if self._chance(0.2):
            millis |= rng.getrandbits(32) & 0xFFFF0000
        payload = struct.pack("<III", seconds, millis, rng.getrandbits(32))
        if self._chance(0.1):
            payload = payload[:rng.randrange(12)]
        elif self._chance(0.05):
            payload += rng.randbytes(rng.randrange(1, 20))
        put_packet(packets, 10, payload, 2, self._extra_bits())

    def _put_control(self, packets: Image) -> None:
        rng = self._rng
        code = rng.choice((*range(10), rng.getrandbits(32)))
        payload = struct.pack("<I", code) + self._number()
        if self._chance(0.1):
            payload = payload[:rng.randrange(8)]
        elif self._chance(0.1):
            payload += rng.randbytes(rng.choice((4, 1100)))
        put_packet(packets, 10, payload, 6, self._extra_bits())

    def _number(self) -> bytes:
        rng = self._rng
        bits = rng.choice((0, 4, 15, 17, 20, 32, 32))
        return struct.pack("<I", rng.getrandbits(bits) if bits else 0)

    def _some_id(self) -> int | None:
        rng = self._rng
        if self._chance(0.5):
            return None
        return rng.choice((0, 1, 2, 3, 4, 6, 32, 33, 34, rng.getrandbits(16)))

    def _extra_bits(self) -> int:
        rng = self._rng
        return 0 if self._chance(0.7) else rng.randrange(16) << 4 & 0xD0

    def _long_code(self, usual: int) -> int:
        """A data type with a length of its own."""
        return usual if self._chance(0.9) else self._rng.randrange(8, 16)

    def _size(self) -> int:
        rng = self._rng
        draw = rng.random()
        if draw < 0.5:
            return rng.randrange(100)
        if draw < 0.85:
            return rng.choice(EDGE_SIZES)
        if draw < 0.995:
            return rng.choice(LONG_SIZES)
        return rng.choice((8192, 20000, 70000))

    def _short_text(self) -> bytes:
        return self._fill(self._rng.choice((*EDGE_SIZES, 2100)))

    def _text(self) -> bytes:
        return self._fill(self._size())

    def _filling_text(self, *names: bytes) -> bytes:
        """A message that ends near the end of the line buffer."""
        separator = (self._separator or b"")[:50]
        if separator.startswith(b" "):
            used = 12 + 10 + 12
        else:
            used = sum(min(len(name), 50) for name in names)
        used += 23 + 5 + 10 + 6 * len(separator)
        return b"m" * (2048 - used + self._rng.randint(-2, 2))

    def _fill(self, size: int) -> bytes:
        """Text of that size: words, lines, any bytes, or nothing but LF."""
        rng = self._rng
        draw = rng.random()
        if draw < 0.15:
            return rng.randbytes(size)
        if draw < 0.18:
            return b"\n" * size
        joint = b"\n" if draw < 0.3 else b" "
        if draw > 0.95:
            joint = b"\0"
        text = bytearray()
        while len(text) < size:
            text += rng.choice(WORDS)
            text += joint if self._chance(0.3) else b" "
        if joint == b"\n" and size and self._chance(0.5):
            text[size - 1:] = b"\n"
        return bytes(text[:size])


def split_files(
    rng: random.Random, data: bytes
) -> list[tuple[str, bytes]]:
    """The stream cut over 1 to 4 files anywhere, each with its header."""
    cuts = sorted(
        rng.randint(0, len(data)) for _ in range(rng.choice((0, 0, 1, 2, 3)))
    )
    parts = [
        data[start:end] for start, end in zip([0, *cuts], [*cuts, len(data)])
    ]
    # Byte-wise order of names is reading order, not the order of numbers.
    names = rng.choice(
        (
            [f"zynlog-{i:04}.txt" for i in range(4)],
            [f"zynlog-{i}.txt" for i in ("10", "2", "20", "3")],
            ["zynlog-.txt", "zynlog-A.txt", "zynlog-a.txt.old", "zynlog-txt"],
            ["zynlog-0.txt", "zynlog-00.txt", "zynlog-\u00fc.txt",
             "zynlog-\U0001f600.txt"],
        )
    )
    return [
        (name, FILE_HEADER + part) for name, part in zip(names, parts)
    ]


def bystanders(rng: random.Random) -> list[tuple[str, bytes]]:
    """Files beside the log: no log's name, or no log's header."""
    return rng.sample(
        [
            ("other.txt", FILE_HEADER + b"\xff" * 50),
            ("zynlog-0001.dat", b"short"),
            ("Zynlog-0001.txt", b"short"),
            ("zynlog-0002x.txt", b"n" * 256),
            ("zynlog-1.txt", FILE_HEADER[:-1] + b"\r" + rng.randbytes(90)),
            ("zynlog-Z.txt", b"\0" + FILE_HEADER),
            ("zynlog-9-empty.txt", FILE_HEADER),
        ],
        rng.randrange(4),
    )


def random_log(
    seed: int, damage: bool = False, time_packets: bool = True
) -> RandomLog:
    """The log of a seed.

    Each record of a sound log has a time packet, so that its text does not
    depend on when it is exported, unless time_packets is False: then many
    go without. Damage may take a time packet away, too.
    """
    rng = random.Random(seed)
    maker = LogMaker(rng, time_packets)
    image = maker.stream()
    damages: tuple[str, ...] = ()
    if damage:
        damages = tuple(rng.choices(list(DAMAGES), k=rng.choice((1, 1, 1, 3))))
        for name in damages:
            DAMAGES[name](rng, image)
    files = split_files(rng, bytes(image.data))
    if damage:
        damages += damage_files(rng, files)
    used = {name for name, _ in files}
    files += [file for file in bystanders(rng) if file[0] not in used]
    rng.shuffle(files)
    log = RandomLog(files, maker.separator, rng.choice(ZONES))
    return replace(log, damages=damages)


def main() -> int:
    parser = argparse.ArgumentParser(description="Writes the log of a seed.")
    parser.add_argument("--damage", action="store_true")
    parser.add_argument("seed", type=int)
    parser.add_argument("directory")
    options = parser.parse_args()
    log = random_log(options.seed, options.damage)
    os.makedirs(options.directory, exist_ok=True)
    for name, content in log.files:
        with open(os.path.join(options.directory, name), "wb") as file:
            file.write(content)
    print(f"separator {log.separator!r}, TZ={log.tz}, damages {log.damages}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
