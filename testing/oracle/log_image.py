"""Bytes of a trace log that know where their fields lie.

The maker of random logs builds on this, and damage aims at the marks.
"""

from __future__ import annotations

import struct
from dataclasses import dataclass, field
from typing import NamedTuple

U32_MAX = 0xFFFFFFFF

FILE_HEADER = (
    b"-----------------------------------------------------\r\n"
    b"NOTE: ZYN 3.0 trace data is stored as binary format. \r\n"
    b"Please type zyntool at command prompt for information\r\n"
    b"about converting to text format.  \r\n"
    b"-----------------------------------------------------\r\n"
)

# The fields that damage aims at.
BLOCK_LENGTH = "length of a block header packet"
BLOCK_SIZE = "data size of a block"
RECORD_LENGTH = "length of a record header packet"
RECORD_SIZE = "data length of a record"
PACKET_LENGTH = "length of a packet"
HEADER_BYTE = "header byte of a packet"
BLOCK_START = "first byte of a block"
RECORD_START = "first byte of a record"


class Mark(NamedTuple):
    what: str
    offset: int


@dataclass
class Image:
    """Bytes of a log, and where the fields that damage aims at lie."""

    data: bytearray = field(default_factory=bytearray)
    marks: list[Mark] = field(default_factory=list)

    def mark(self, what: str) -> None:
        self.marks.append(Mark(what, len(self.data)))

    def append(self, other: Image) -> None:
        base = len(self.data)
        self.marks += [Mark(m.what, m.offset + base) for m in other.marks]
        self.data += other.data

    def offsets(self, what: str) -> list[int]:
        """Of the marks of this kind that damage has not cut off yet."""
        return [
            m.offset
            for m in self.marks
            if m.what == what and m.offset < len(self.data)
        ]


def put_packet(
    image: Image,
    code: int,
    payload: bytes = b"",
    ident: int | None = None,
    extra_bits: int = 0,
    length_mark: str = PACKET_LENGTH,
) -> None:
    """extra_bits are the value flag (0x10) and the unused bits 6 and 7."""
    image.mark(HEADER_BYTE)
    image.data.append(code | extra_bits | (0 if ident is None else 0x20))
    if ident is not None:
        image.data += struct.pack("<H", ident)
    if code & 0x08:
        image.mark(length_mark)
        image.data += struct.pack("<I", len(payload))
    image.data += payload
