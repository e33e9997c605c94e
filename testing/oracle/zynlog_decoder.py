#!/usr/bin/env python3
"""A second, independent decoder of binary trace logs and of their text form.

Tests compare the exporter's files with what comes out here, byte for byte,
so this module shares no code with it: it follows the byte tables of the log
format and works on bytes throughout (a log may hold any byte, and lengths
alone decide where a text ends).

Use export_files() from Python. From a shell:

    zynlog_decoder.py [-l SEP] [--default-time S.mmm] FILE...
    zynlog_decoder.py [-l SEP] [--default-time S.mmm] --batch CASES

FILEs are given in reading order; times are shown in the zone of TZ. CASES
holds a u32 count, then per case a u32 number of files and per file a u32
length and the bytes; one line per case is printed: the SHA-256 of the text,
a blank, and the error description or "-". The exit status is 1 when the export
of FILEs fails, its description on standard error, and 2 for wrong usage.
"""

from __future__ import annotations

import argparse
import contextlib
import heapq
import os
import re
import struct
import sys
import time
from collections.abc import Iterator, Sequence
from dataclasses import dataclass, field

_RULE = b"-" * 53
FILE_HEADER = b"".join(
    line + b"\r\n"
    for line in (
        _RULE,
        b"NOTE: ZYN 3.0 trace data is stored as binary format. ",
        b"Please type zyntool at command prompt for information",
        b"about converting to text format.  ",
        _RULE,
    )
)

BLOCK_HEADER_SIZE = 40
RECORD_HEADER_SIZE = 8
REORDER_LIMIT = 1000

SHORT_TEXT_LIMIT = 50
MESSAGE_LIMIT = 2048
LINE_LIMIT = 2048
DATE_WIDTH = 23
MODULE_WIDTH, CLIENT_WIDTH, LABEL_WIDTH = 12, 10, 12
CONTINUATION = b"\n" + b" " * 79

COLUMN_HEADER = (
    b"#"
    + b"#".join(
        title.ljust(width)
        for title, width in (
            (b"Timestamp", DATE_WIDTH),
            (b"PID", 6),
            (b"TID", 11),
            (b"Module", MODULE_WIDTH),
            (b"Client", CLIENT_WIDTH),
            (b"Label", LABEL_WIDTH),
            (b"Message", 10),
        )
    )
).ljust(127) + b"\n"

# All four are logic checks, whose texts reach the user with this prefix.
_LOGIC = "Bad logic:"
TOO_SMALL = _LOGIC + "File size too small"
NO_MORE_FILES = _LOGIC + "No more files available for read"
INSUFFICIENT = _LOGIC + "Insufficent data to read"
WRONG_LENGTH = _LOGIC + "Incorrect data length for specified data type."

# Header byte.
TYPE_MASK = 0x0F
HAS_LENGTH = 0x08
VALUE_FLAG = 0x10
HAS_ID = 0x20

TYPE_U32 = 4
TYPE_STRING = 9
TYPE_BINARY = 10
IMPLIED_LENGTH = (0, 1, 1, 2, 4, 8, 0, 0)

ID_THREAD = 3
ID_PROCESS = 4
ID_TIME = 2
ID_CONTROL = 6
ID_MESSAGE = 0
ID_MODULE = 32
ID_CLIENT = 33
ID_LABEL = 34

CONTROL_TEXTS = {
    1: b"Client attached",
    2: b"Client detached",
    3: b"Pauseed tracing",
    4: b"Resumeed tracing",
    5: b"Reloaded configuration",
    6: b"Turned on preservation",
    7: b"Turned off preservation",
}

_U16 = struct.Struct("<H").unpack_from
_U32 = struct.Struct("<I").unpack_from
_U32_PAIR = struct.Struct("<II").unpack_from


class LogFault(Exception):
    """A failed check; str() is what follows "Error description:"."""


@dataclass(slots=True)
class Record:
    """What the packets of one record have said; a fresh one per record."""

    seconds: int | None = None
    milliseconds: int = 0
    process: int = 0
    thread: int = 0
    module: bytes = b""
    client: bytes = b""
    label: bytes = b""
    message: bytes = b""


@dataclass(slots=True)
class Export:
    """The outcome of one export.

    text is what the destination file holds. When the listing of the files
    failed the destination is never created: listed is False, text empty.
    default_times holds the offsets in text of dates that no time packet
    gave, 23 bytes each; they depend on the moment of the export.
    """

    text: bytes = b""
    error: str | None = None
    listed: bool = True
    default_times: list[int] = field(default_factory=list)


def reading_order(
    names: Sequence[str], prefix: str = "zynlog-", part: str = "txt"
) -> list[str]:
    """The names that belong to a log, in the order in which it is read."""
    return sorted(
        (n for n in names if n.startswith(prefix) and part in n),
        key=os.fsencode,
    )


def log_data(files: Sequence[bytes]) -> bytes:
    """The stream of blocks in the files: headers and strange files go.

    Files are judged in reading order, but as every fault of this stage has
    the same text, which of several small files is met first can't be seen.
    """
    parts = []
    for content in files:
        if len(content) < len(FILE_HEADER):
            raise LogFault(TOO_SMALL)
        if content.startswith(FILE_HEADER):
            parts.append(content[len(FILE_HEADER):])
    return b"".join(parts)


def packet_header(
    data: bytes, pos: int, end: int, shortage: str
) -> tuple[int, int, int, int]:
    """Header byte, id and payload length at pos, and where payload starts.

    The fields are taken one after the other, so a packet that ends inside
    its header fails with the shortage, before its length can be judged.
    """
    if pos >= end:
        raise LogFault(shortage)
    head = data[pos]
    pos += 1
    ident = 0
    if head & HAS_ID:
        if end - pos < 2:
            raise LogFault(shortage)
        ident = _U16(data, pos)[0]
        pos += 2
    if not head & HAS_LENGTH:
        return head, ident, IMPLIED_LENGTH[head & TYPE_MASK], pos
    if end - pos < 4:
        raise LogFault(shortage)
    return head, ident, _U32(data, pos)[0], pos + 4


def fixed_header(
    data: bytes, pos: int, end: int, size: int, shortage: str
) -> int:
    """Where the payload of a block or record header packet starts.

    Only the length of such a packet is tested, its type and id are not: a
    record header may thus be a 64-bit value, whose implied length is 8.
    """
    _, _, length, pos = packet_header(data, pos, end, shortage)
    if length != size:
        raise LogFault(WRONG_LENGTH)
    if end - pos < size:
        raise LogFault(shortage)
    return pos


def message_text(text: bytes) -> bytes:
    """One message string as it is shown.

    Text without a line feed is taken whole; otherwise each piece that ends
    in a line feed is kept and what follows the last line feed is lost.
    """
    last = text.rfind(b"\n")
    if last < 0:
        return text
    # Line feeds make the text only longer, so no more than this is shown.
    return text[:min(last, MESSAGE_LIMIT)].replace(b"\n", CONTINUATION)


def control_text(code: int, process: int) -> bytes:
    """The message that a control packet stands for."""
    text = CONTROL_TEXTS.get(code)
    if text is None:
        text = b"Unknown control message:%d" % code
    return b"[Control message from process %d]:%b " % (process, text)


def decode_record(data: bytes) -> Record:
    """Decodes the packets of one record; LogFault when one runs past it."""
    record = Record()
    pos = 0
    end = len(data)
    while pos < end:
        head, ident, length, pos = packet_header(data, pos, end, INSUFFICIENT)
        if end - pos < length:
            raise LogFault(INSUFFICIENT)
        code = head & TYPE_MASK
        if code == TYPE_STRING:
            take_string(record, ident, data[pos:pos + length])
        elif code == TYPE_BINARY:
            # At least 8 bytes, so that the missing ones read as 0.
            take_binary(record, ident, data[pos:pos + length].ljust(8, b"\0"))
        elif code == TYPE_U32 and not head & VALUE_FLAG:
            if ident == ID_THREAD:
                record.thread = _U32(data, pos)[0]
            elif ident == ID_PROCESS:
                record.process = _U32(data, pos)[0]
        pos += length
    return record


def take_string(record: Record, ident: int, text: bytes) -> None:
    """Repeated names replace each other, messages append up to the limit."""
    if ident == ID_MESSAGE:
        append_message(record, message_text(text))
    elif ident == ID_MODULE:
        record.module = text[:SHORT_TEXT_LIMIT]
    elif ident == ID_CLIENT:
        record.client = text[:SHORT_TEXT_LIMIT]
    elif ident == ID_LABEL:
        record.label = text[:SHORT_TEXT_LIMIT]


def take_binary(record: Record, ident: int, payload: bytes) -> None:
    """The third word of a time is never shown, so two words are enough."""
    first, second = _U32_PAIR(payload)
    if ident == ID_TIME:
        record.seconds = first
        record.milliseconds = second & 0xFFFF
    elif ident == ID_CONTROL:
        append_message(record, control_text(first, second))


def append_message(record: Record, text: bytes) -> None:
    record.message = (record.message + text)[:MESSAGE_LIMIT]


def fit_column(text: bytes, width: int) -> bytes:
    """Text made exactly width bytes wide, its middle dotted out if long."""
    size = len(text)
    head = min(width // 2, size)
    tail = min(size - head, width - width // 2)
    dots = 0
    if size > width:
        head -= head >= 2
        tail -= tail >= 2
        dots = width - head - tail
    if tail > 2:
        head, tail = head + tail - 2, 2
    column = text[:head] + b"." * dots + text[size - tail:]
    return column.ljust(width)


class Exporter:
    """Renders one log; the zone is that of the process."""

    def __init__(self, separator: bytes, default_time: tuple[int, int]):
        self._separator = separator[:SHORT_TEXT_LIMIT]
        self._default_time = default_time
        self._dates: dict[int, bytes] = {}
        self._text = bytearray(COLUMN_HEADER)
        self._default_times: list[int] = []

    def run(self, files: Sequence[bytes]) -> Export:
        try:
            data = log_data(files)
        except LogFault as fault:
            return Export(error=str(fault), listed=False)
        error = None
        try:
            pos = 0
            while pos < len(data):
                pos = self._export_block(data, pos)
        except LogFault as fault:
            error = str(fault)
        return Export(bytes(self._text), error, True, self._default_times)

    def _export_block(self, data: bytes, pos: int) -> int:
        """Exports the block at pos and returns where the next one starts.

        A block is read whole before it is split, so wherever the splitting
        ends, the next block starts behind the block's declared size, and
        nothing of a block that is cut short by the end of the log is shown.
        """
        end = len(data)
        pos = fixed_header(data, pos, end, BLOCK_HEADER_SIZE, NO_MORE_FILES)
        size: int = _U32(data, pos + 36)[0]
        pos += BLOCK_HEADER_SIZE
        if end - pos < size:
            raise LogFault(NO_MORE_FILES)
        self._export_records(data[pos:pos + size])
        return pos + size

    def _export_records(self, block: bytes) -> None:
        # Ordered by sequence number, then by arrival: records with equal
        # numbers leave in the order in which they lie in the block.
        heap: list[tuple[int, int, bytes]] = []
        with contextlib.suppress(LogFault):
            for arrival, (number, data) in enumerate(split_block(block)):
                if len(heap) >= REORDER_LIMIT:
                    # A record that fails here ends the block quietly and
                    # stays in front, where the drain below meets it again.
                    self._emit_front(heap)
                heapq.heappush(heap, (number, arrival, data))
        while heap:
            self._emit_front(heap)

    def _emit_front(self, heap: list[tuple[int, int, bytes]]) -> None:
        self._write_line(decode_record(heap[0][2]))
        heapq.heappop(heap)

    def _write_line(self, record: Record) -> None:
        if record.seconds is None:
            record.seconds, record.milliseconds = self._default_time
            self._default_times.append(len(self._text))
        separator = self._separator
        names: tuple[bytes, ...]
        names = (record.module, record.client, record.label)
        if separator.startswith(b" "):
            widths = (MODULE_WIDTH, CLIENT_WIDTH, LABEL_WIDTH)
            names = tuple(map(fit_column, names, widths))
        line = separator.join(
            (
                self._date(record.seconds) + b".%03d" % record.milliseconds,
                b"%5d" % record.process,
                b"%10d" % record.thread,
                *names,
                record.message,
            )
        )[:LINE_LIMIT]
        if len(line) < LINE_LIMIT:
            line += b"\n"
        self._text += line

    def _date(self, seconds: int) -> bytes:
        date = self._dates.get(seconds)
        if date is None:
            date = self._dates[seconds] = format_date(seconds)
        return date


def format_date(seconds: int) -> bytes:
    """Month/day/year hour:minute:second in the zone of the process."""
    t = time.localtime(seconds)
    return b"%02d/%02d/%4d %02d:%02d:%02d" % (
        t.tm_mon, t.tm_mday, t.tm_year, t.tm_hour, t.tm_min, t.tm_sec,
    )


def split_block(block: bytes) -> Iterator[tuple[int, bytes]]:
    """Yields (sequence number, data) of each record of a block.

    LogFault where a record can't be split off, after those before it.
    """
    pos = 0
    end = len(block)
    while pos < end:
        pos = fixed_header(block, pos, end, RECORD_HEADER_SIZE, INSUFFICIENT)
        number, length = _U32_PAIR(block, pos)
        pos += RECORD_HEADER_SIZE
        if end - pos < length:
            raise LogFault(INSUFFICIENT)
        yield number, block[pos:pos + length]
        pos += length


@contextlib.contextmanager
def zone(tz: str | None) -> Iterator[None]:
    """Sets the zone of the process; None leaves it as it is."""
    if tz is None:
        yield
        return
    before = os.environ.get("TZ")
    os.environ["TZ"] = tz
    time.tzset()
    try:
        yield
    finally:
        if before is None:
            del os.environ["TZ"]
        else:
            os.environ["TZ"] = before
        time.tzset()


def export_log(
    files: Sequence[bytes],
    separator: bytes = b"",
    default_time: tuple[int, int] = (0, 0),
    tz: str | None = None,
) -> Export:
    """Exports the contents of log files, given in reading order.

    separator is the value of option L: empty when the option is absent, one
    blank when it has no value. default_time, in seconds and milliseconds, is
    shown for records without a time packet. Changes TZ while it runs, so no
    other thread may work with local times meanwhile.
    """
    with zone(tz):
        return Exporter(separator, default_time).run(files)


def export_files(
    files: Sequence[bytes],
    separator: bytes = b"",
    default_time: tuple[int, int] = (0, 0),
    tz: str | None = None,
) -> tuple[bytes, str | None]:
    """Like export_log(), but only the text and the error description."""
    export = export_log(files, separator, default_time, tz)
    return export.text, export.error


def read_cases(content: bytes) -> Iterator[list[bytes]]:
    """Yields the files of each case; ValueError if the layout is broken."""
    pos = 0

    def take(size: int) -> bytes:
        nonlocal pos
        if len(content) - pos < size:
            raise ValueError("the file of cases is cut short")
        pos += size
        return content[pos - size:pos]

    def take_u32() -> int:
        value: int = _U32(take(4))[0]
        return value

    for _ in range(take_u32()):
        yield [take(take_u32()) for _ in range(take_u32())]
    if pos != len(content):
        raise ValueError("bytes follow the last case")


def read_file(path: str) -> bytes:
    with open(path, "rb") as file:
        return file.read()


def parse_time(text: str) -> tuple[int, int]:
    match = re.fullmatch(r"(\d+)(?:\.(\d{3}))?", text)
    if match is None:
        raise argparse.ArgumentTypeError("expected seconds or S.mmm")
    return int(match[1]), int(match[2] or 0)


def main() -> int:
    parser = argparse.ArgumentParser(
        description="Decodes binary trace logs into the text of an export."
    )
    parser.add_argument("-l", metavar="SEP", help="column separator")
    parser.add_argument(
        "--default-time", metavar="S.mmm", type=parse_time,
        help="for records without a time packet; otherwise the current time",
    )
    parser.add_argument("--batch", metavar="CASES")
    parser.add_argument("files", metavar="FILE", nargs="*")
    options = parser.parse_args()

    separator = b""
    if options.l is not None:
        separator = os.fsencode(options.l) or b" "
    default_time = options.default_time
    if default_time is None:
        default_time = divmod(time.time_ns() // 1_000_000, 1000)
    out = sys.stdout.buffer

    try:
        if options.batch is not None:
            for files in read_cases(read_file(options.batch)):
                text, error = export_files(files, separator, default_time)
                out.write(f"{text.hex()} {error or '-'}\n".encode())
            return 0
        files = [read_file(path) for path in options.files]
    except (OSError, ValueError) as failure:
        parser.error(str(failure))
    text, error = export_files(files, separator, default_time)
    out.write(text)
    if error is None:
        return 0
    print(error, file=sys.stderr)
    return 1


if __name__ == "__main__":
    sys.exit(main())
