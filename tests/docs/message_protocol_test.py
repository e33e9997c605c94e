"""Plays the tracing service for `zyntool pause` with the bytes that doc/message-protocol.md shows:
what the tool sends must be the example's bytes, and the example's confirmation must satisfy it."""

import os
import re
import struct
import subprocess
import tempfile
import time
import unittest
from pathlib import Path

SOURCE = Path(os.environ["ZYN_SOURCE"])
TOOL = Path(os.environ["ZYN_BIN"]) / "zyntool"
RING_HEADER = 12
RING_DATA = 512
EXAMPLE_PROCESS = struct.pack("<I", 4711)
OTHER_PROCESS = struct.pack("<I", 4712)
PATIENCE_SECONDS = 30


def example_bytes():
    """The named hex blocks of the document."""
    text = (SOURCE / "doc" / "message-protocol.md").read_text()
    blocks = {}
    for name, block in re.findall(r"^```hex (\w+)\n(.*?)^```", text, re.MULTILINE | re.DOTALL):
        blocks[name] = bytes.fromhex(re.sub(r"#.*", "", block))
    return blocks


class Region:
    """A region file, read and written without mapping it."""

    def __init__(self, path):
        self.path = path

    def head(self):
        return struct.unpack("<III", self.path.read_bytes()[:RING_HEADER])

    def consume(self):
        """Takes what the ring holds: returns header and frame as they lay there."""
        image = self.path.read_bytes()
        write = struct.unpack_from("<I", image, 4)[0]
        with self.path.open("r+b") as file:
            file.write(struct.pack("<I", write))
        return image[:RING_HEADER + write]

    def append(self, frame):
        _, write, _ = self.head()
        with self.path.open("r+b") as file:
            for i, byte in enumerate(frame):
                file.seek(RING_HEADER + (write + i) % RING_DATA)
                file.write(bytes([byte]))
            file.seek(4)
            file.flush()
            file.write(struct.pack("<I", (write + len(frame)) % RING_DATA))


class MessageProtocolTest(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory(prefix="zyn-protocol.")
        self.addCleanup(self.directory.cleanup)
        self.run_directory = Path(self.directory.name) / "temp" / "ZYN"
        self.run_directory.mkdir(parents=True)
        (self.run_directory / "ZynService.lck").touch()
        (self.run_directory / "ZynService.pid").write_text(f"{os.getpid()}\n")
        (self.run_directory / "ZynRecordSequenceNumberSeed.map").write_bytes(bytes(4096))
        self.server = Region(self.run_directory / "ZynServerMessageBuffer.map")
        self.server.path.write_bytes(bytes(RING_HEADER + RING_DATA))

    def next_message(self, tool):
        deadline = time.monotonic() + PATIENCE_SECONDS
        while time.monotonic() < deadline:
            read, write, _ = self.server.head()
            if read != write:
                # A header reset and a frame's arrival are two steps: both have happened when the
                # lock file of the sender has gone.
                if not (self.run_directory / "ZynServerMessageLock.lck").exists():
                    return self.server.consume()
            elif tool.poll() is not None:
                break
            time.sleep(0.001)
        self.fail(f"no message came; the tool said {tool.communicate()[0]!r}")

    def test_pause_passes_the_bytes_of_the_example(self):
        blocks = example_bytes()
        self.assertEqual(set(blocks),
                         {"registration", "confirmation", "request", "unregistration", "order"})
        environment = {"KORVA_VANTOREL_DIR": self.directory.name, "PATH": os.environ["PATH"],
                       "KORVA_VANTOREL_CFG": str(SOURCE / "samples" / "cfg"),
                       "DIAGNOSTIC_MODE": "1"}
        environment.update((k, v) for k, v in os.environ.items() if k.endswith("SAN_OPTIONS"))
        with subprocess.Popen([str(TOOL), "pause"], env=environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as tool:
            own = struct.pack("<I", tool.pid)
            client = Region(self.run_directory / f"ZynServerMessageBuffer{tool.pid}.map")
            try:
                for step in ("registration", "request", "unregistration"):
                    self.assertEqual(self.next_message(tool),
                                     blocks[step].replace(EXAMPLE_PROCESS, own), step)
                    if step == "request":
                        client.append(blocks["order"].replace(OTHER_PROCESS, own))
                    client.append(blocks["confirmation"].replace(EXAMPLE_PROCESS, own))
                output, _ = tool.communicate(timeout=PATIENCE_SECONDS)
            finally:
                tool.kill()
        self.assertEqual(tool.returncode, 0)
        self.assertTrue(output.endswith(b"Pause tracing... succeeded.\n"), output)
        self.assertFalse(client.path.exists())
        # The diagnostic log shows that the order was understood.
        self.assertIn("ZYNCLIENT: ZYN client pause tracing\n",
                      (self.run_directory / "trace.txt").read_text())


if __name__ == "__main__":
    unittest.main()
