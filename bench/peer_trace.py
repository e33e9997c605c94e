"""Turns an exported log into a trace in the Common Trace Format, so that a converter of that format
can be timed on the same events with the same fields."""

import calendar
import pathlib
import struct
import time

METADATA = """/* CTF 1.8 */
typealias integer { size = 32; align = 8; signed = false; } := uint32_t;
typealias integer { size = 64; align = 8; signed = false; } := uint64_t;
trace {
    major = 1; minor = 8; byte_order = le;
    packet.header := struct { uint32_t magic; uint32_t stream_id; };
};
clock { name = "log"; freq = 1000000000; offset = 0; };
typealias integer { size = 64; align = 8; signed = false; map = clock.log.value; } := log_time_t;
stream {
    id = 0;
    packet.context := struct { uint64_t content_size; uint64_t packet_size; };
    event.header := struct { uint32_t id; log_time_t timestamp; };
};
event {
    id = 0; name = "record"; stream_id = 0;
    fields := struct {
        uint32_t process; uint32_t thread;
        string module; string client; string label; string message;
    };
};
"""
MAGIC = 0xC1FC1FC1
RECORDS_IN_PACKET = 400
SEPARATOR = "\x1f"


def event(line):
    """One exported line, its fields separated by SEPARATOR, as an event."""
    date, process, thread, module, client, label, message = line.split(SEPARATOR)
    moment, milliseconds = date.split(".")
    seconds = calendar.timegm(time.strptime(moment, "%m/%d/%Y %H:%M:%S"))
    texts = "".join(text + "\0" for text in (module, client, label, message))
    nanoseconds = (seconds * 1000 + int(milliseconds)) * 1_000_000
    return struct.pack("<IQII", 0, nanoseconds, int(process), int(thread)) + texts.encode("latin-1")


def packet(events):
    body = b"".join(events)
    bits = (8 + 16 + len(body)) * 8
    return struct.pack("<IIQQ", MAGIC, 0, bits, bits) + body


def write_trace(text, directory):
    """text: an export of one-line messages with SEPARATOR, in UTC. Makes the directory."""
    directory = pathlib.Path(directory)
    directory.mkdir()
    (directory / "metadata").write_text(METADATA, encoding="ascii")
    with open(text, encoding="latin-1") as lines, open(directory / "stream", "wb") as stream:
        events = []
        for line in lines:
            if line.count(SEPARATOR) != 6 or not line[0].isdigit():
                continue  # the head of the text
            events.append(event(line.rstrip("\n")))
            if len(events) == RECORDS_IN_PACKET:
                stream.write(packet(events))
                events = []
        if events:
            stream.write(packet(events))
