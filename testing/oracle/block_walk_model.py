"""The blocks of a log as a reader finds them that goes on behind damage.

A second reading of the rule, on all the data of a log at once and without any
regard to cost, to compare the program's with:

- A block begins with a packet whose payload is 40 bytes long: host, process
  and the length of the data that follows.
- Where none stands, or one whose data would end behind the log's, the next one
  is searched for, beginning one byte behind, over the ends of files.
- One that was searched for is believed when its data is all there, the header
  of its first record fits into that, and its data ends where another header
  stands or the log ends; or when its records fill its data exactly.
- The same is asked of a header to which the block before leads, but only to
  tell where its data really ends: where it is not so, and a header is found
  within its data, the block ends there.
- A log that ends within its last block is cut off, if no header is found in
  what is left of it.
"""

from __future__ import annotations

from dataclasses import dataclass

BLOCK_PAYLOAD = 40
RECORD_PAYLOAD = 8
IMPLIED = {0: 0, 1: 1, 2: 1, 3: 2, 4: 4, 5: 8, 6: 0, 7: 0}


@dataclass(frozen=True)
class Block:
    position: int
    data: int
    size: int
    pid: int
    host: bytes


@dataclass(frozen=True)
class Damaged:
    kind: str  # "header" or "cut"
    position: int
    size: int


def packet_payload(log: bytes, at: int) -> tuple[int, int] | None:
    """Where a packet's payload begins, and its length; None: cut off."""
    if at >= len(log):
        return None
    flags = log[at]
    begin = at + 1 + (2 if flags & 0x20 else 0)
    if not flags & 0x08:
        return (begin, IMPLIED[flags & 0x0F]) if begin <= len(log) else None
    if begin + 4 > len(log):
        return None
    return begin + 4, int.from_bytes(log[begin:begin + 4], "little")


def header_at(log: bytes, at: int) -> Block | None:
    """The block whose header stands at a position, wherever it ends."""
    found = packet_payload(log, at)
    if found is None or found[1] != BLOCK_PAYLOAD:
        return None
    begin, data = found[0], found[0] + BLOCK_PAYLOAD
    if data > len(log):
        return None
    return Block(
        at, data,
        int.from_bytes(log[begin + 36:data], "little"),
        int.from_bytes(log[begin + 32:begin + 36], "little"),
        log[begin:begin + 32].split(b"\0")[0],
    )


def is_cut_header(log: bytes, at: int) -> bool:
    """Whether the log ends before it could be told, or within the header."""
    found = packet_payload(log, at)
    return found is None or (
        found[1] == BLOCK_PAYLOAD and found[0] + BLOCK_PAYLOAD > len(log))


def next_record(log: bytes, at: int) -> int | None:
    found = packet_payload(log, at)
    if found is None or found[1] != RECORD_PAYLOAD:
        return None
    begin = found[0] + RECORD_PAYLOAD
    if begin > len(log):
        return None
    return begin + int.from_bytes(log[begin - 4:begin], "little")


def records_fill(log: bytes, block: Block) -> bool:
    at, end = block.data, block.data + block.size
    while at < end:
        after = next_record(log, at)
        if after is None:
            return False
        at = after
    return at == end


def leads_on(log: bytes, block: Block) -> bool:
    end = block.data + block.size
    return end == len(log) or header_at(log, end) is not None


def is_believed(log: bytes, at: int) -> bool:
    block = header_at(log, at)
    if block is None or block.data + block.size > len(log):
        return False
    if block.size == 0:
        return leads_on(log, block)
    first = next_record(log, block.data)
    if first is None or first > block.data + block.size:
        return False
    return leads_on(log, block) or records_fill(log, block)


def search(log: bytes, start: int) -> int | None:
    for at in range(start, len(log)):
        if is_believed(log, at):
            return at
    return None


def walk(log: bytes) -> list[Block | Damaged]:
    """What is handed out and passed over, from the first byte to the last."""
    found: list[Block | Damaged] = []
    at = 0
    while at < len(log):
        block = header_at(log, at)
        if block is None or block.data + block.size > len(log):
            cut = block is not None or is_cut_header(log, at)
            target = search(log, at + 1)
            kind = "cut" if cut and target is None else "header"
            end = len(log) if target is None else target
            found.append(Damaged(kind, at, end - at))
            at = end
            continue
        end = block.data + block.size
        holds = leads_on(log, block) or records_fill(log, block)
        target = None if holds else search(log, at + 1)
        if target is None or target >= end:
            found.append(block)
            at = end
            continue
        if target < block.data:
            found.append(Damaged("header", at, target - at))
        else:
            found.append(Damaged("header", at, 0))
            found.append(Block(at, block.data, target - block.data, block.pid,
                               block.host))
        at = target
    return found
