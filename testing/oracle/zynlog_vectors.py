"""Bytes of the log format written out by hand, for tests of the decoder.

Nothing the decoder believes is taken on trust: headers, packets and texts
are laid down here from the tables of the format once more.
"""

from __future__ import annotations

import struct
import unittest

from zynlog_decoder import export_files

HEADER = (
    b"-----------------------------------------------------\r\n"
    b"NOTE: ZYN 3.0 trace data is stored as binary format. \r\n"
    b"Please type zyntool at command prompt for information\r\n"
    b"about converting to text format.  \r\n"
    b"-----------------------------------------------------\r\n"
)
COLUMNS = (
    b"#Timestamp              #PID   #TID        #Module      #Client    "
    b"#Label       #Message   "
    b"                                    \n"
)
# Time 0.000, process 0, thread 0, no names and no separator.
BARE = b"01/01/1970 00:00:00.000    0         0"

WRONG_LENGTH = "Bad logic:Incorrect data length for specified data type."
NO_MORE_FILES = "Bad logic:No more files available for read"
INSUFFICIENT = "Bad logic:Insufficent data to read"
TOO_SMALL = "Bad logic:File size too small"


def block(
    data: bytes, size: int | None = None, head: str = "0a 28000000"
) -> bytes:
    size = len(data) if size is None else size
    return (
        bytes.fromhex(head)
        + b"host".ljust(32, b"\0")
        + struct.pack("<II", 77, size)
        + data
    )


def record(
    number: int, data: bytes, size: int | None = None,
    head: str = "0a 08000000",
) -> bytes:
    size = len(data) if size is None else size
    return bytes.fromhex(head) + struct.pack("<II", number, size) + data


def text(value: bytes, ident: int = 0) -> bytes:
    return struct.pack("<BHI", 0x29, ident, len(value)) + value


def control(payload: bytes) -> bytes:
    return struct.pack("<BHI", 0x2A, 6, len(payload)) + payload


def clock(payload: bytes) -> bytes:
    return struct.pack("<BHI", 0x2A, 2, len(payload)) + payload


def notes(*numbers: int) -> bytes:
    """Records whose messages are their sequence numbers."""
    return b"".join(record(n, text(b"%d" % n)) for n in numbers)


class Case(unittest.TestCase):
    maxDiff = None

    def export(
        self, *files: bytes, separator: bytes = b"", tz: str = "UTC"
    ) -> tuple[bytes, str | None]:
        """Lines of the export of files (headers are added) and the error."""
        out, error = export_files([HEADER + f for f in files], separator,
                                  tz=tz)
        self.assertEqual(out[:128], COLUMNS)
        return out[128:], error

    def lines_of(self, *packets: bytes, separator: bytes = b"") -> bytes:
        lines, error = self.export(
            block(record(1, b"".join(packets))), separator=separator
        )
        self.assertIsNone(error)
        return lines

    def messages(self, *files: bytes) -> list[bytes]:
        lines, error = self.export(*files)
        self.assertIsNone(error)
        return [line[len(BARE):] for line in lines.splitlines()]

    def message_of(self, *packets: bytes) -> bytes:
        line = self.lines_of(*packets)
        self.assertEqual(line[:38], BARE)
        self.assertEqual(line[-1:], b"\n")
        return line[38:-1]
