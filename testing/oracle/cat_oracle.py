"""What zynlog-cat shows of a log, learned from its manual alone.

Builds on the byte tables of zynlog_decoder and shares nothing with the
program. read_log() gives the records of a log's files in the order in which
they are shown, and the places of damage; Conditions chooses among them;
columns(), json_objects() and the rest are the output forms, as bytes or as
what a parser makes of them.
"""

from __future__ import annotations

import base64
import ctypes
import heapq
import re
import struct
import time
from collections.abc import Iterator, Sequence
from dataclasses import dataclass, field

import zynlog_decoder as decoder

_LIBC = ctypes.CDLL(None)
_U32 = struct.Struct("<I").unpack_from

Damage = tuple[bytes, int, str]  # path, offset, kind


@dataclass
class Shown:
    """A record as the forms know it; None stands for what is absent."""

    data: bytes
    sequence: int
    host: bytes
    writer: int
    path: bytes
    offset: int
    file_number: int = 0  # in the log
    time: int | None = None  # milliseconds, carried
    counted: int | None = None  # the time it counts with
    pid: int | None = None
    tid: int | None = None
    module: bytes | None = None
    client: bytes | None = None
    label: bytes | None = None
    message: bytes | None = None


@dataclass
class Log:
    records: list[Shown] = field(default_factory=list)
    damage: list[Damage] = field(default_factory=list)


class Data:
    """The files of a log as one stream that knows where its bytes lie."""

    def __init__(self, files: Sequence[tuple[bytes, bytes]]):
        self.bytes = b""
        self.pieces: list[tuple[int, bytes]] = []
        for path, content in files:
            self.pieces.append((len(self.bytes), path))
            self.bytes += content[256:]

    def file_number(self, position: int) -> int:
        return sum(begin <= position for begin, _ in self.pieces) - 1

    def place(self, position: int) -> tuple[bytes, int]:
        begin, path = [
            piece for piece in self.pieces if piece[0] <= position
        ][-1]
        return path, position - begin + 256


def header_at(data: bytes, pos: int, size: int) -> int | None:
    """Where the payload of a header packet begins, if one stands there."""
    try:
        return decoder.fixed_header(data, pos, len(data), size, "short")
    except decoder.LogFault:
        return None


class Walker:
    """Goes over the blocks of a log and over what is none."""

    def __init__(self, data: Data, live: bool):
        self._data = data
        self._live = live
        self.damage: list[Damage] = []

    def _report(self, position: int, kind: str) -> None:
        self.damage.append((*self._data.place(position), kind))

    def blocks(self) -> Iterator[tuple[int, int, int]]:
        """Position of the payload of the header, begin and end of data."""
        data = self._data.bytes
        pos = 0
        while pos < len(data):
            payload = header_at(data, pos, 40)
            end = payload and payload + 40 + _U32(data, payload + 36)[0]
            if end is None or end > len(data):
                if end is not None and self._live and self._goes_on(payload):
                    return
                if end is None and self._live and self._is_begun(pos):
                    return
                following = self._next(pos + 1)
                # What a live log goes on with has been told from this.
                cut = following is None and not self._live and (
                    end is not None or self._is_begun(pos))
                self._report(pos, "block-cut" if cut else "block-header")
                if following is None:
                    return
                pos = following
                continue
            if not self._holds(payload, end):
                following = self._next(pos + 1)
                if following is not None and following < end:
                    self._report(pos, "block-header")
                    if following < payload + 40:
                        pos = following
                        continue
                    end = following
            yield payload, payload + 40, end
            pos = end

    def _is_begun(self, pos: int) -> bool:
        """Whether the data ends within a block header."""
        data = self._data.bytes
        try:
            decoder.fixed_header(data, pos, len(data), 40, "short")
        except decoder.LogFault as fault:
            return str(fault) == "short"
        return False

    def _goes_on(self, payload: int) -> bool:
        """Whether records follow each other to the end of the data."""
        data = self._data.bytes
        pos = payload + 40
        end = pos + _U32(data, payload + 36)[0]
        while pos < len(data):
            record = header_at(data, pos, 8)
            if record is None:
                try:
                    decoder.fixed_header(data, pos, len(data), 8, "short")
                except decoder.LogFault as fault:
                    return str(fault) == "short"
            pos = record + 8 + _U32(data, record + 4)[0]
            if pos > end:
                return False
        return True

    def _fill(self, begin: int, end: int) -> bool:
        block = self._data.bytes[begin:end]
        try:
            for _ in decoder.split_block(block):
                pass
        except decoder.LogFault:
            return False
        return begin < end

    def _holds(self, payload: int, end: int) -> bool:
        data = self._data.bytes
        return (
            end == len(data)
            or header_at(data, end, 40) is not None
            or self._fill(payload + 40, end)
        )

    def _believed(self, pos: int) -> bool:
        data = self._data.bytes
        payload = header_at(data, pos, 40)
        if payload is None:
            return False
        begin = payload + 40
        end = begin + _U32(data, payload + 36)[0]
        if end > len(data):
            return False
        if begin < end:
            record = header_at(data[:end], begin, 8)
            if record is None:
                return False
            if record + 8 + _U32(data, record + 4)[0] > end:
                return False
        return self._holds(payload, end)

    def _next(self, pos: int) -> int | None:
        for candidate in range(pos, len(self._data.bytes)):
            if self._believed(candidate):
                return candidate
        return None


def split(block: bytes) -> tuple[list[tuple[int, int, int, bytes]], int | None]:
    """(offset, offset of the data, sequence, data) of each record, and where
    none can be read."""
    records = []
    pos = 0
    while pos < len(block):
        begin = pos
        try:
            pos = decoder.fixed_header(block, pos, len(block), 8, "short")
            number, length = struct.unpack_from("<II", block, pos)
            pos += 8
            if len(block) - pos < length:
                raise decoder.LogFault("short")
        except decoder.LogFault:
            return records, begin
        records.append((begin, pos, number, block[pos:pos + length]))
        pos += length
    return records, None


def export_order(records: list) -> Iterator:
    """By sequence number, at most 1,000 held; equal ones as they come."""
    heap: list = []
    for arrival, record in enumerate(records):
        if len(heap) == decoder.REORDER_LIMIT:
            yield heapq.heappop(heap)[2]
        heapq.heappush(heap, (record[2], arrival, record))
    while heap:
        yield heapq.heappop(heap)[2]


def packets(data: bytes) -> Iterator[tuple[int, int, bytes]]:
    """(header byte, id, payload); LogFault with args[1] the offset."""
    pos = 0
    while pos < len(data):
        begin = pos
        try:
            head, ident, length, pos = decoder.packet_header(
                data, pos, len(data), "short")
            if len(data) - pos < length:
                raise decoder.LogFault("short")
        except decoder.LogFault:
            raise decoder.LogFault("short", begin) from None
        yield head, ident, data[pos:pos + length]
        pos += length


def fill(shown: Shown) -> None:
    """The values of a record's packets."""
    for head, ident, payload in packets(shown.data):
        code = head & 0x0F
        if code == 9:
            if ident == 0:
                shown.message = (shown.message or b"") + payload
            elif ident in (32, 33, 34):
                name = ("module", "client", "label")[ident - 32]
                setattr(shown, name, payload)
        elif code == 10 and ident in (2, 6):
            first, second = struct.unpack_from("<II", payload.ljust(8, b"\0"))
            if ident == 2:
                shown.time = first * 1000 + (second & 0xFFFF)
            else:
                text = decoder.control_text(first, second)
                shown.message = (shown.message or b"") + text
        elif code == 4 and not head & 0x10 and ident in (3, 4):
            setattr(shown, "tid" if ident == 3 else "pid", _U32(payload)[0])


def read_log(
    files: Sequence[tuple[bytes, bytes]], live: bool = False
) -> Log:
    """files: (path, content) of the log's files, with their headers."""
    data = Data(files)
    walker = Walker(data, live)
    log = Log()
    for payload, begin, end in walker.blocks():
        header = data.bytes[payload:payload + 40]
        host = header[:32].partition(b"\0")[0]
        records, bad = split(data.bytes[begin:end])
        counted = None
        for offset, at, number, content in export_order(records):
            shown = Shown(content, number, host, _U32(header, 32)[0],
                          *data.place(begin + offset),
                          data.file_number(begin + offset))
            try:
                fill(shown)
            except decoder.LogFault as fault:
                walker.damage.append(
                    (*data.place(begin + at + fault.args[1]), "packet"))
                continue
            if shown.time is not None:
                counted = shown.time
            shown.counted = counted
            log.records.append(shown)
        if bad is not None:
            walker.damage.append((*data.place(begin + bad), "record"))
    log.damage = walker.damage
    return log


def merged(logs: Sequence[Sequence[Shown]]) -> list[Shown]:
    """By time over all writers: the heads of the writers compared, each with
    the latest time its writer has had, then log, file and offset."""
    writers: dict[tuple, list[tuple]] = {}
    latest: dict[tuple, int] = {}
    for number, records in enumerate(logs):
        for record in records:
            writer = (number, record.host, record.writer)
            latest[writer] = max(latest.get(writer, 0), record.time or 0)
            writers.setdefault(writer, []).append(
                (latest[writer], number, record.file_number, record.offset,
                 record))
    heads = [(queue[0][:4], index, 0)
             for index, queue in enumerate(writers.values())]
    queues = list(writers.values())
    heapq.heapify(heads)
    order = []
    while heads:
        _, index, at = heapq.heappop(heads)
        order.append(queues[index][at][4])
        if at + 1 < len(queues[index]):
            heapq.heappush(heads, (queues[index][at + 1][:4], index, at + 1))
    return order


def begins_with_block(content: bytes) -> bool | None:
    """Whether the data of a log file begins with a block header; None for
    what has no data."""
    if not content.startswith(decoder.FILE_HEADER) or len(content) == 256:
        return None
    return header_at(content, 256, 40) is not None


def files_since(files: Sequence[tuple[bytes, float]], since: float) -> int:
    """How many of (content, time of change), in order, --since leaves out."""
    old = 0
    while old < len(files) and files[old][1] < since - 60:
        old += 1
    while old:
        behind = [begins_with_block(content) for content, _ in files[old:]]
        if next((b for b in behind if b is not None), False):
            break
        old -= 1
    return old


@dataclass
class Conditions:
    since: int | None = None
    until: int | None = None
    modules: list[bytes] = field(default_factory=list)
    clients: list[bytes] = field(default_factory=list)
    labels: list[bytes] = field(default_factory=list)
    hosts: list[bytes] = field(default_factory=list)
    pids: list[int] = field(default_factory=list)
    tids: list[int] = field(default_factory=list)
    greps: list[bytes] = field(default_factory=list)  # plain texts
    ignore_case: bool = False

    def take(self, record: Shown) -> bool:
        if record.counted is not None:
            if self.since is not None and record.counted < self.since:
                return False
            if self.until is not None and record.counted >= self.until:
                return False
        return (
            matches(self.modules, record.module)
            and matches(self.clients, record.client)
            and matches(self.labels, record.label)
            and matches(self.hosts, record.host)
            and (not self.pids or record.pid in self.pids)
            and (not self.tids or record.tid in self.tids)
            and self._grep(record.message)
        )

    def _grep(self, message: bytes | None) -> bool:
        if not self.greps:
            return True
        flags = re.IGNORECASE if self.ignore_case else 0
        return message is not None and any(
            re.search(text, message, flags | re.MULTILINE)
            for text in self.greps
        )


def matches(patterns: list[bytes], name: bytes | None) -> bool:
    if not patterns:
        return True
    if name is None:
        return False
    # The C library's function ends a name at its NUL; no pattern used here
    # holds the byte that takes its place.
    name = name.replace(b"\0", b"\x02")
    return any(not _LIBC.fnmatch(p, name, 0) for p in patterns)


def columns(records: list[Shown], header: bool = True) -> bytes:
    """In the zone of the process."""
    exporter = decoder.Exporter(b" ", (0, 0))
    text = b""
    for record in records:
        exporter._text.clear()
        exporter._default_times.clear()
        exporter._write_line(decoder.decode_record(record.data))
        line = bytes(exporter._text)
        if exporter._default_times:
            line = b" " * 23 + line[23:]
        text += line
    return (decoder.COLUMN_HEADER if header else b"") + text


def printable(text: bytes) -> bytes:
    """Control characters of both sets, as bytes or in UTF-8, are masked."""
    shown = text.decode("utf-8", "surrogateescape")
    shown = re.sub("[\0-\x1f\x7f-\x9f\udc80-\udc9f]", "?", shown)
    return shown.encode("utf-8", "surrogateescape")


def short(records: list[Shown]) -> bytes:
    lines = []
    for r in records:
        clock = b" " * 12
        if r.time is not None:
            t = time.localtime(r.time // 1000 % 2**32)
            clock = b"%02d:%02d:%02d.%03d" % (
                t.tm_hour, t.tm_min, t.tm_sec, r.time % 1000)
        names = [printable(n or b"-") for n in (r.module, r.client, r.label)]
        numbers = "/".join(
            "-" if n is None else str(n) for n in (r.pid, r.tid))
        lines.append(b" ".join((clock, *names, numbers.encode(),
                                printable(r.message or b""))) + b"\n")
    return b"".join(lines)


def utc(milliseconds: int) -> str:
    t = time.gmtime(milliseconds // 1000)
    return time.strftime("%Y-%m-%dT%H:%M:%S", t) + ".%03dZ" % (
        milliseconds % 1000)


FIELDS = ("time", "host", "writer", "pid", "tid", "module", "client",
          "label", "message", "seq", "file", "offset")


def values(r: Shown) -> list:
    return [None if r.time is None else utc(r.time), r.host, r.writer, r.pid,
            r.tid, r.module, r.client, r.label, r.message, r.sequence,
            r.path, r.offset]


def json_items(record: Shown) -> list[tuple[str, object]]:
    """Members and values in order, as a parser gives them."""
    items: list[tuple[str, object]] = []
    for name, value in zip(FIELDS, values(record)):
        if not isinstance(value, bytes):
            items.append((name, value))
            continue
        items.append((name, value.decode("utf-8", "replace")))
        try:
            value.decode("utf-8")
        except UnicodeDecodeError:
            items.append(
                (name + "_base64", base64.b64encode(value).decode()))
    return items


def csv_field(value: object) -> bytes:
    if value is None:
        return b""
    text = value if isinstance(value, bytes) else str(value).encode()
    if re.search(rb'[,"\r\n]', text):
        return b'"' + text.replace(b'"', b'""') + b'"'
    return text


def csv_text(records: list[Shown], header: bool = True) -> bytes:
    rows = [",".join(FIELDS).encode()] if header else []
    rows += [b",".join(map(csv_field, values(r))) for r in records]
    return b"".join(row + b"\n" for row in rows)


KINDS = ("module", "client", "label", "pid", "host")


def count_items(records: list[Shown]) -> list[tuple[str, object]]:
    times = [r.time for r in records if r.time is not None]
    items: list[tuple[str, object]] = [
        ("records", len(records)),
        ("first", utc(min(times)) if times else None),
        ("last", utc(max(times)) if times else None),
    ]
    for kind in KINDS:
        sums: dict[str, int] = {}
        for record in records:
            value = getattr(record, kind)
            if isinstance(value, bytes):
                value = value.decode("utf-8", "replace")
            name = "" if value is None else str(value)
            sums[name] = sums.get(name, 0) + 1
        items.append((kind, sorted(
            sums.items(), key=lambda item: (-item[1], item[0].encode()))))
    return items


def count_table(records: list[Shown]) -> bytes:
    """In the zone of the process."""
    def local(milliseconds: int) -> str:
        clock = time.localtime(milliseconds // 1000 % 2**32)
        return time.strftime("%m/%d/%Y %H:%M:%S", clock) + ".%03d" % (
            milliseconds % 1000)

    times = [r.time for r in records if r.time is not None]
    text = b"%d record%s" % (len(records), b"s"[len(records) == 1:])
    if times:
        text += f", {local(min(times))} to {local(max(times))}".encode()
    text += b"\n"
    for kind in KINDS:
        sums: dict[bytes, int] = {}
        for record in records:
            value = getattr(record, kind)
            name = (b"" if value is None else value
                    if isinstance(value, bytes) else str(value).encode())
            sums[name] = sums.get(name, 0) + 1
        text += b"\n     RECORDS  %s\n" % kind.upper().encode()
        for name, count in sorted(
                sums.items(), key=lambda item: (-item[1], item[0])):
            text += b"%12d  %s\n" % (count, printable(name) or b"-")
    return text


def timeline_events(
    records: list[Shown], begin: bytes = b"Entry", end: bytes = b"Exit"
) -> tuple[list[dict], int]:
    """The events but those that give names, in any order, and how many
    records were left out. pid is the pair of host and process."""
    events: list[dict] = []
    stacks: dict[tuple, list[Shown]] = {}

    def text(value: bytes | None) -> str | None:
        return None if value is None else value.decode("utf-8", "replace")

    def thread(r: Shown) -> tuple:
        return r.host, r.writer if r.pid is None else r.pid, r.tid or 0

    def event(r: Shown, kind: str, **more: object) -> None:
        word = re.split(rb"[ (\[{]", r.message or b"", maxsplit=1)[0]
        host, process, number = thread(r)
        name = (r.module or b"") + b" " + word
        events.append({
            "ph": kind, "pid": (host.decode("latin-1"), process),
            "tid": number, "ts": r.counted * 1000, "name": text(name),
            "cat": text(r.label or b""), **more,
            "args": {"client": text(r.client), "message": text(r.message),
                     "seq": r.sequence}})

    def moment(r: Shown) -> None:
        event(r, "i", s="t")

    left_out = 0
    for r in records:
        if r.counted is None:
            left_out += 1
            continue
        stack = stacks.setdefault(thread(r), [])
        if r.label == begin:
            stack.append(r)
            continue
        if r.label != end:
            moment(r)
            continue
        for i in reversed(range(len(stack))):
            if (stack[i].module or b"", stack[i].client or b"") == (
                    r.module or b"", r.client or b""):
                for inside in stack[i + 1:]:
                    moment(inside)
                event(stack[i], "X",
                      dur=max(r.counted - stack[i].counted, 0) * 1000)
                del stack[i:]
                break
        else:
            moment(r)
    for stack in stacks.values():
        for r in stack:
            moment(r)
    return events, left_out
