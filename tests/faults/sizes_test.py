"""Logs at the limits: ten thousand files, more than 4 GiB, a block of 512 MiB, a full disk, files
that grow, shrink or vanish while they are exported."""

import os
import resource
import signal
import struct
import subprocess
import sys
import unittest
from pathlib import Path

from world import BANNER, BIN, TOOL, Fault, World, contents, wait_until_stopped

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "testing" / "oracle"))
from log_image import FILE_HEADER  # noqa: E402 (found by the line above)

MIB = 1 << 20
# What an export may hold beside one block.
MOST_MEMORY = 48 * MIB
SANITIZED = "ZYN_SANITIZED" in os.environ

BINARY, STRING, SKIPPED = 0x0A, 0x09, 0x08
TIME_ID = 2


def packet(code, payload, ident=None):
    head = bytes([code | (0 if ident is None else 0x20)])
    head += b"" if ident is None else struct.pack("<H", ident)
    return head + struct.pack("<I", len(payload)) + payload


def record_head(number, length):
    return packet(BINARY, struct.pack("<II", number, length))


def block_head(size):
    return packet(BINARY, b"host".ljust(32, b"\0") + struct.pack("<II", 1, size))


def text_packets(text):
    return packet(BINARY, struct.pack("<III", 1700000000, 0, 0), TIME_ID) + packet(
        STRING, text, 0)


def write_block(file, number, padding=0):
    """One record with a text and, when asked for, a packet of that many bytes that is skipped and
    of which the disk holds nothing."""
    content = text_packets(b"text %d" % number)
    if padding:
        content += bytes([SKIPPED]) + struct.pack("<I", padding)
    head = record_head(number, len(content) + padding)
    file.write(block_head(len(head) + len(content) + padding) + head + content)
    if padding:
        file.seek(padding, os.SEEK_CUR)


class ExportCase(unittest.TestCase):
    def setUp(self):
        self.world = self.enterContext(World())

    def export(self, *arguments, limits=(), **options):
        """The exported text and the peak of the memory, in bytes."""
        def limit():
            for which, value in limits:
                resource.setrlimit(which, (value, value))
        with open(self.world.root / "err", "wb") as error:
            process = self.world.start(["export", "-d", "../log", "-f", "all.txt", *arguments],
                                       preexec_fn=limit, stderr=error,
                                       stdout=subprocess.DEVNULL, **options)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self.error = (self.world.root / "err").read_bytes()
        text = self.world.out / "all.txt"
        return process.returncode, text.read_bytes() if text.exists() else None, \
            usage.ru_maxrss * 1024


class SizesTest(ExportCase):
    def text_of(self, numbers):
        """What these blocks say, by an export of as many small ones."""
        with World() as small:
            with open(small.log / "zynlog-1.txt", "wb") as file:
                file.write(FILE_HEADER)
                for number in numbers:
                    write_block(file, number)
            result = small.run(["export", "-d", "../log", "-f", "all.txt", "-silent"])
            self.assertEqual((result.status, result.err), (0, BANNER))
            text = (small.out / "all.txt").read_bytes()
        self.assertEqual(text.count(b"\n"), len(numbers) + 1)
        return text

    def test_ten_thousand_files(self):
        count = 10000
        for number in range(count):
            with open(self.world.log / f"zynlog-{number:05}.txt", "wb") as file:
                file.write(FILE_HEADER)
                write_block(file, number)
        limits = [(resource.RLIMIT_NOFILE, 200)]
        status, text, memory = self.export("-silent", limits=limits)
        self.assertEqual((status, self.error), (0, BANNER))
        self.assertTrue(text == self.text_of(range(count)))
        if not SANITIZED:
            self.assertLess(memory, MOST_MEMORY)
        result = self.world.run(["clean", "-f"])
        self.assertEqual((result.status, result.err), (0, BANNER))
        self.assertEqual(os.listdir(self.world.log), [])

    def test_more_than_four_gibibytes(self):
        # Two files, so that the whole passes 4 GiB in the middle of one that does so itself.
        blocks = 0
        for name, count in (("zynlog-1.txt", 40), ("zynlog-2.txt", 4200)):
            with open(self.world.log / name, "wb") as file:
                file.write(FILE_HEADER)
                for number in range(blocks, blocks + count):
                    write_block(file, number, MIB - 1000)
                file.truncate()
            blocks += count
        self.assertGreater((self.world.log / "zynlog-2.txt").stat().st_size, 4 << 30)
        status, text, memory = self.export("-silent")
        self.assertEqual((status, self.error), (0, BANNER))
        self.assertTrue(text == self.text_of(range(blocks)))
        if not SANITIZED:
            self.assertLess(memory, MOST_MEMORY)

    def make_large_block(self):
        with open(self.world.log / "zynlog-1.txt", "wb") as file:
            file.write(FILE_HEADER)
            write_block(file, 1)
            write_block(file, 2, 512 * MIB)
            write_block(file, 3)

    def test_block_of_512_mebibytes(self):
        self.make_large_block()
        status, text, memory = self.export("-silent")
        self.assertEqual((status, self.error), (0, BANNER))
        self.assertEqual(text, self.text_of([1, 2, 3]))
        if not SANITIZED:
            self.assertLess(memory, 512 * MIB + MOST_MEMORY)

    def test_growing_blocks_need_memory_for_one_at_a_time(self):
        with open(self.world.log / "zynlog-1.txt", "wb") as file:
            file.write(FILE_HEADER)
            for number, size in enumerate((128, 132, 136)):
                write_block(file, number, size * MIB)
            file.truncate()
        status, text, memory = self.export("-silent")
        self.assertEqual((status, self.error), (0, BANNER))
        self.assertEqual(text, self.text_of(range(3)))
        if not SANITIZED:
            self.assertLess(memory, 136 * MIB + MOST_MEMORY)

    @unittest.skipIf(SANITIZED, "a sanitizer reserves more addresses than any limit")
    def test_block_that_does_not_fit_into_memory(self):
        self.make_large_block()
        status, text, _ = self.export("-silent", limits=[(resource.RLIMIT_AS, 300 * MIB)])
        self.assertEqual(status, 255)
        self.assertEqual(self.error, BANNER + b"Operation failed.\nError description:"
                                              b"Memory allocation failed:"
                                              b"Can not expand smart buffer\n")
        self.assertEqual(text, self.text_of([1]))

    def test_full_disk(self):
        small = self.world.root / "small"
        small.mkdir()
        unshare = ["unshare", "--map-root-user", "--mount", "sh", "-ec"]
        mount = 'mount -t tmpfs -o size=64k none "$1"; '
        trial = subprocess.run([*unshare, mount, "sh", small], capture_output=True, check=False)
        if trial.returncode != 0:
            self.skipTest("no mounting here: " + trial.stderr.decode())
        self.world.generate_log("--records", "2000")
        status, right, _ = self.export("-silent")
        self.assertEqual(status, 0)
        run = subprocess.run(
            [*unshare, mount + '"$2" export -d "$3" -f "$1/all.txt" -silent || status=$?; '
                               'cat "$1/all.txt"; exit ${status:-0}', "sh", small, TOOL,
             self.world.log],
            env=self.world.environment() | {"PATH": os.environ["PATH"]}, capture_output=True,
            check=False)
        self.assertEqual(run.returncode, 255)
        self.assertEqual(run.stderr, BANNER + b"Operation failed.\nError description:Can not write"
                                              b" file [OS call failed:28(No space left on "
                                              b"device)]\n")
        self.assertEqual(len(run.stdout), 64 * 1024)
        self.assertTrue(right.startswith(run.stdout))

    def test_run_directory_with_little_room(self):
        """A client's trace region has a MiB, of which a control command touches the head."""
        unshare = ["unshare", "--map-root-user", "--mount", "sh", "-ec"]
        mount = 'mount -t tmpfs -o size=500k none "$1"; '
        run = self.world.run_directory
        trial = subprocess.run([*unshare, mount, "sh", run], capture_output=True, check=False)
        if trial.returncode != 0:
            self.skipTest("no mounting here: " + trial.stderr.decode())
        ready = self.world.root / "ready"
        os.mkfifo(ready)
        result = subprocess.run(
            [*unshare, mount + '"$2" --run-dir "$1" --ready-fd 3 3>"$4" >/dev/null & service=$!; '
                               'head -c 1 "$4" >/dev/null; "$3" pause || status=$?; '
                               'kill "$service"; wait "$service"; exit ${status:-0}',
             "sh", run, BIN / "zyn-standin-service", TOOL, ready],
            env=self.world.environment() | {"PATH": os.environ["PATH"]}, capture_output=True,
            check=False)
        self.assertEqual(result.stdout, b"Pause tracing... succeeded.\n")
        self.assertEqual(result.returncode, 0)


class ChangingFileTest(ExportCase):
    """The tool is stopped ahead of a read, a file is changed, and it goes on."""

    FILES = 3
    # Every file's header is read first, then their data.
    FIRST_DATA_READ = FILES + 1

    def setUp(self):
        super().setUp()
        self.world.generate_log("--records", "3000", "--files", str(self.FILES), "--span")
        status, self.right, _ = self.export("-silent")
        self.assertEqual(status, 0)
        self.second = self.world.log / "zynlog-0002.txt"

    def export_while(self, change, limits=(), first=FIRST_DATA_READ):
        def limit():
            for which, value in limits:
                resource.setrlimit(which, (value, value))
        tool = self.world.start(["export", "-d", "../log", "-f", "all.txt", "-silent"],
                                Fault("read", first, "1", "stop"), preexec_fn=limit)
        self.assertTrue(wait_until_stopped(tool))
        change()
        tool.send_signal(signal.SIGCONT)
        result = self.world.finish(tool)
        return result, contents(self.world.out)["all.txt"]

    def test_file_that_grows_is_exported_as_it_was_found(self):
        def grow():
            with open(self.second, "ab") as file:
                file.write(b"\xff" * 1000)
        result, text = self.export_while(grow)
        self.assertEqual((result.status, result.err), (0, BANNER))
        self.assertTrue(text == self.right)

    def test_file_that_shrinks_fails_after_what_it_still_has(self):
        result, text = self.export_while(lambda: os.truncate(self.second, 100000))
        self.assertEqual(result.status, 255)
        self.assertEqual(result.failure(), "Failed to read from file [OS call failed:0(Success)]")
        self.assertTrue(self.right.startswith(text))
        self.assertGreater(len(text), len(self.right) // self.FILES)

    def test_file_that_vanishes_is_exported_all_the_same(self):
        result, text = self.export_while(self.second.unlink)
        self.assertEqual((result.status, result.err), (0, BANNER))
        self.assertTrue(text == self.right)

    def test_file_that_vanishes_before_it_can_be_opened_again_fails(self):
        # So few descriptors that no file stays open between its listing and its turn.
        result, text = self.export_while(self.second.unlink,
                                         limits=[(resource.RLIMIT_NOFILE, 32)])
        self.assertEqual(result.status, 255)
        self.assertEqual(result.failure(), "Failed to open file for read "
                                           "[OS call failed:2(No such file or directory)]")
        self.assertTrue(self.right.startswith(text))
        self.assertGreater(len(text), len(self.right) // (self.FILES + 1))


if __name__ == "__main__":
    unittest.main()
