"""Named ways of damaging a trace log.

DAMAGES work on the stream of blocks before it is cut into files, and
damage_files() on the files. A damage that finds nothing to work on, because
an earlier one has taken it away, does nothing.
"""

from __future__ import annotations

import random
from collections.abc import Callable

from log_image import (
    BLOCK_LENGTH, BLOCK_SIZE, BLOCK_START, HEADER_BYTE, PACKET_LENGTH,
    RECORD_LENGTH, RECORD_SIZE, RECORD_START, U32_MAX, Image,
)

EDGE_U32 = (
    0, 1, 7, 8, 9, 39, 40, 41, 255, 256, 1024, 8192, 65536, 0x7FFFFFFF,
    0x80000000, 0xFFFFFFF0, 0xFFFFFFF8, U32_MAX,
)

Damage = Callable[[random.Random, Image], None]


def _poke(what: str, width: int, values: tuple[int, ...]) -> Damage:
    def damage(rng: random.Random, image: Image) -> None:
        offsets = image.offsets(what)
        if offsets:
            at = rng.choice(offsets)
            value = rng.choice(values).to_bytes(width, "little")
            image.data[at:at + width] = value
    return damage


def _grow(what: str) -> Damage:
    """A size a little larger than it was, so that it runs past its end."""
    def damage(rng: random.Random, image: Image) -> None:
        offsets = image.offsets(what)
        if offsets:
            at = rng.choice(offsets)
            size = int.from_bytes(image.data[at:at + 4], "little")
            size = size + rng.choice((1, 2, 8, 100)) & U32_MAX
            image.data[at:at + 4] = size.to_bytes(4, "little")
    return damage


def _flip(what: str) -> Damage:
    def damage(rng: random.Random, image: Image) -> None:
        offsets = image.offsets(what)
        if offsets:
            at = rng.choice(offsets) + rng.randrange(4)
            image.data[min(at, len(image.data) - 1)] ^= 1 << rng.randrange(8)
    return damage


def _many_packets(rng: random.Random, image: Image) -> None:
    """So many that a long block fails while it is still being read."""
    damage = _poke(PACKET_LENGTH, 4, EDGE_U32)
    for _ in range(rng.randrange(2, 40)):
        damage(rng, image)


def _truncate(rng: random.Random, image: Image) -> None:
    del image.data[rng.randint(0, len(image.data)):]


def _remove_bytes(rng: random.Random, image: Image) -> None:
    at = rng.randint(0, len(image.data))
    del image.data[at:at + rng.randrange(1, 60)]


def _insert_bytes(rng: random.Random, image: Image) -> None:
    at = rng.randint(0, len(image.data))
    image.data[at:at] = rng.randbytes(rng.randrange(1, 60))


def _flip_anywhere(rng: random.Random, image: Image) -> None:
    if image.data:
        at = rng.randrange(len(image.data))
        image.data[at] ^= 1 << rng.randrange(8)


def _garbage_tail(rng: random.Random, image: Image) -> None:
    tail = rng.choice((b"\0", b"\x08", b"\x2a", b"\x0a(\0\0\0", b"\xff"))
    image.data += rng.choice((tail, rng.randbytes(rng.randrange(1, 80))))


def _zero_tail(rng: random.Random, image: Image) -> None:
    image.data += bytes(rng.choice((1, 40, 45, 4096)))


def _double_unit(rng: random.Random, image: Image) -> None:
    """A block or record, with what follows it, once more."""
    starts = image.offsets(rng.choice((BLOCK_START, RECORD_START)))
    if starts:
        at = rng.choice(starts)
        until = rng.choice([s for s in (*starts, len(image.data)) if s >= at])
        image.data[at:at] = image.data[at:until]


def _drop_unit(rng: random.Random, image: Image) -> None:
    starts = image.offsets(rng.choice((BLOCK_START, RECORD_START)))
    if starts:
        at = rng.choice(starts)
        until = min([s for s in (*starts, len(image.data)) if s > at])
        del image.data[at:until]


DAMAGES: dict[str, Damage] = {
    "truncated": _truncate,
    "bytes removed": _remove_bytes,
    "bytes inserted": _insert_bytes,
    "bit flipped": _flip_anywhere,
    "garbage tail": _garbage_tail,
    "zero tail": _zero_tail,
    "unit doubled": _double_unit,
    "unit dropped": _drop_unit,
    "bit of block size flipped": _flip(BLOCK_SIZE),
    "bit of record size flipped": _flip(RECORD_SIZE),
    "bit of packet length flipped": _flip(PACKET_LENGTH),
    "block past the log": _grow(BLOCK_SIZE),
    "record past its block": _grow(RECORD_SIZE),
    "packet past its record": _grow(PACKET_LENGTH),
    "edge block header length": _poke(BLOCK_LENGTH, 4, EDGE_U32),
    "edge record header length": _poke(RECORD_LENGTH, 4, EDGE_U32),
    "edge block size": _poke(BLOCK_SIZE, 4, EDGE_U32),
    "edge record size": _poke(RECORD_SIZE, 4, EDGE_U32),
    "edge packet length": _poke(PACKET_LENGTH, 4, EDGE_U32),
    "many edge packet lengths": _many_packets,
    "other header byte": _poke(HEADER_BYTE, 1, tuple(range(256))),
}
# Done to the files, when the stream has been cut.
SMALL_FILE = "file below 256 bytes"
BROKEN_FILE_HEADER = "file header damaged"
LOST_FILE = "file lost"


def damage_files(
    rng: random.Random, files: list[tuple[str, bytes]]
) -> tuple[str, ...]:
    if rng.random() < 0.9:
        return ()
    at = rng.randrange(len(files))
    name, content = files[at]
    kind = rng.choice((SMALL_FILE, BROKEN_FILE_HEADER, LOST_FILE))
    if kind == SMALL_FILE:
        files[at] = (name, content[:rng.choice((0, 1, 100, 255))])
    elif kind == BROKEN_FILE_HEADER:
        header = bytearray(content)
        header[rng.randrange(256)] ^= 1 << rng.randrange(8)
        files[at] = (name, bytes(header))
    else:
        del files[at]
    return (kind,)
