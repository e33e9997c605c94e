"""zynlog-cat -f from outside, against a log that is written, rotated, deleted and truncated while it
reads; and its cursor file, when it is killed at any moment. Killed, it may show records once more; it
never loses one."""

import json
import os
import random
import resource
import shutil
import signal
import struct
import subprocess
import threading
import time
import unittest

from world import PATIENCE_SECONDS, Fault, World

FILE_HEADER = (b"-----------------------------------------------------\r\n"
               b"NOTE: ZYN 3.0 trace data is stored as binary format. \r\n"
               b"Please type zyntool at command prompt for information\r\n"
               b"about converting to text format.  \r\n"
               b"-----------------------------------------------------\r\n")
HOST, WRITER = b"alpha", 31


def packet(head, payload):
    return struct.pack("<BI", head, len(payload)) + payload


def block(*numbers):
    """A block of a record for each number, which is its message."""
    records = b"".join(
        packet(10, struct.pack("<II", number, len(data))) + data
        for number in numbers for data in [packet(9, b"%d" % number)])
    return packet(10, HOST.ljust(32, b"\0") + struct.pack("<II", WRITER, len(records))) + records


class Shown:
    """The lines of a process, read by a thread of its own as they come."""

    def __init__(self, process):
        self._process = process
        self._lines = []
        self._changed = threading.Condition()
        self._thread = threading.Thread(target=self._read)
        self._thread.start()

    def _read(self):
        for line in self._process.stdout:
            with self._changed:
                self._lines.append(line)
                self._changed.notify_all()

    def numbers(self):
        """The messages; a line that a kill has cut is none."""
        with self._changed:
            lines = list(self._lines)
        return [int(json.loads(line)["message"]) for line in lines if line.endswith(b"}\n")]

    def wait_for(self, number):
        """Until a record is shown."""
        mark = b'"message":"%d"' % number
        with self._changed:
            if not self._changed.wait_for(
                    lambda: any(mark in line for line in self._lines), PATIENCE_SECONDS):
                raise AssertionError(f"{number} is not shown: {self._lines[-3:]}")

    def join(self):
        self._thread.join()


class FollowCase(unittest.TestCase):
    def setUp(self):
        self.world = self.enterContext(World())
        self.running = []
        # Before the world goes.
        self.addCleanup(self.end_all)

    def end_all(self):
        for process, shown in self.running:
            if process.poll() is None:
                process.kill()
            shown.join()
            process.wait()
            process.stdout.close()
            process.stderr.close()

    def follow(self, *options, fault=None, **more):
        process = self.world.start(["-f", "-o", "json", *options, self.world.log], fault,
                                   program="zynlog-cat", **more)
        shown = Shown(process)
        self.running.append((process, shown))
        return process, shown

    def assert_ended(self, process, status=0, error=b""):
        self.assertEqual(process.wait(PATIENCE_SECONDS), status)
        self.assertEqual(process.stderr.read(), error)

    def end(self, process, shown, number=signal.SIGTERM):
        """Ends it as an operator does; what it has shown."""
        process.send_signal(number)
        self.assert_ended(process)
        shown.join()
        return shown.numbers()

    def path(self, number):
        return self.world.log / f"zynlog-{number:04}.txt"

    def create(self, number, *blocks):
        self.path(number).write_bytes(FILE_HEADER + b"".join(blocks))

    def append(self, number, data):
        with open(self.path(number), "ab", buffering=0) as file:
            file.write(data)


class FollowTest(FollowCase):
    def test_signals_end_it_well(self):
        self.create(1, block(1))
        for number in (signal.SIGINT, signal.SIGTERM):
            process, shown = self.follow()
            shown.wait_for(1)
            self.assertEqual(self.end(process, shown, number), [1])

    def test_signal_ends_it_while_the_log_grows(self):
        self.create(1, block(1))
        process, shown = self.follow()
        shown.wait_for(1)
        for number in range(2, 500):
            self.append(1, block(number))
        shown.wait_for(100)
        numbers = self.end(process, shown)
        self.assertEqual(numbers, list(range(1, len(numbers) + 1)))

    def test_closed_pipe_ends_it_quietly(self):
        for silent in (True, False):
            with self.subTest(silent=silent):
                self.create(1, block(1))
                process = self.world.start(["-f", self.world.log], program="zynlog-cat")
                with process.stdout, process.stderr:
                    process.stdout.readline()
                    process.stdout.close()
                    if not silent:
                        self.append(1, block(2))
                    self.assertEqual(process.wait(PATIENCE_SECONDS), 0)
                    self.assertEqual(process.stderr.read(), b"")

    def test_last_lines_come_first(self):
        self.create(1, block(1, 2), block(3, 4))
        process, shown = self.follow("-n", "2")
        shown.wait_for(4)
        self.append(1, block(5))
        shown.wait_for(5)
        self.assertEqual(self.end(process, shown), [3, 4, 5])

    def test_header_stands_over_an_empty_directory(self):
        process = self.world.start(["-f", self.world.log], program="zynlog-cat")
        with process.stdout, process.stderr:
            self.assertTrue(process.stdout.readline().startswith(b"#Timestamp"))
            self.create(1, block(1))
            self.assertTrue(process.stdout.readline().endswith(b" 1\n"))
            process.terminate()
            self.assertEqual(process.wait(PATIENCE_SECONDS), 0)

    def test_rotation_by_new_names_and_by_renaming(self):
        self.create(1, block(1))
        process, shown = self.follow()
        shown.wait_for(1)
        self.create(2, block(2))
        shown.wait_for(2)
        self.path(1).unlink()
        # A name that was used before, and one before all others.
        self.create(1, block(3))
        shown.wait_for(3)
        self.path(2).rename(self.path(9))
        self.append(9, block(4))
        shown.wait_for(4)
        self.create(2, block(5))
        shown.wait_for(5)
        self.append(9, block(6))
        shown.wait_for(6)
        self.assertEqual(self.end(process, shown), [1, 2, 3, 4, 5, 6])

    def test_block_that_runs_on_into_the_next_file(self):
        whole = block(2)
        self.create(1, block(1), whole[:30])
        process, shown = self.follow()
        shown.wait_for(1)
        self.create(2, whole[30:], block(3))
        shown.wait_for(3)
        self.assertEqual(self.end(process, shown), [1, 2, 3])

    def test_clean_amid_following(self):
        for number in (1, 2):
            self.create(number, block(number))
        process, shown = self.follow()
        shown.wait_for(2)
        for number in range(3, 9):
            cleaned = self.world.run(["clean", "-f"])
            self.assertEqual(cleaned.status, 0)
            self.assertEqual(list(self.world.log.iterdir()), [])
            self.create(1, block(number))
            shown.wait_for(number)
        self.assertEqual(self.end(process, shown), list(range(1, 9)))

    def test_truncation_goes_on_from_there(self):
        self.create(1, block(1), block(2), block(3))
        process, shown = self.follow()
        shown.wait_for(3)
        length = len(FILE_HEADER + block(1))
        os.truncate(self.path(1), length)
        # The shorter file has been seen once it was looked at.
        time.sleep(1)
        self.append(1, block(4))
        shown.wait_for(4)
        os.truncate(self.path(1), 0)
        time.sleep(1)
        self.append(1, FILE_HEADER + block(5))
        shown.wait_for(5)
        self.assertEqual(self.end(process, shown), [1, 2, 3, 4, 5])

    def test_several_logs(self):
        self.create(1, block(1))
        other = self.world.out / "one.txt"
        other.write_bytes(FILE_HEADER + block(2))
        process, shown = self.follow(other)
        shown.wait_for(1)
        shown.wait_for(2)
        with open(other, "ab") as file:
            file.write(block(3))
        shown.wait_for(3)
        self.append(1, block(4))
        shown.wait_for(4)
        self.assertEqual(sorted(self.end(process, shown)), [1, 2, 3, 4])

    def test_what_cannot_be_followed(self):
        missing = self.world.run(["-f", self.world.root / "none"], program="zynlog-cat")
        self.assertEqual((missing.status, missing.out), (2, b""))
        self.assertIn(b"No such file or directory", missing.err)

    def test_writer_byte_by_byte_that_rotates_and_deletes(self):
        seed = random.randrange(2**32)
        print("seed", seed)
        rng = random.Random(seed)
        process, shown = self.follow()
        files = []  # number and when its last byte was written
        file_number = 0
        data = []
        for number in range(1, 401):
            data.append(block(number))
            if rng.random() < 0.1 or number == 400:
                file_number = rng.choice((file_number + 1, file_number + 1, file_number + 40))
                # Bytes are written one by one to some files, in pieces to others.
                most = rng.choice((1, 1, 7, 500))
                rest = FILE_HEADER + b"".join(data)
                data = []
                # A block may run on into the next file.
                if number != 400 and rng.random() < 0.3:
                    cut = rng.randrange(1, len(block(number)))
                    data = [rest[-cut:]]
                    rest = rest[:-cut]
                with open(self.path(file_number), "wb", buffering=0) as file:
                    while rest:
                        count = rng.randint(1, most)
                        file.write(rest[:count])
                        rest = rest[count:]
                files.append((file_number, time.monotonic()))
            # Seen long before, were the machine ever so busy.
            while files and time.monotonic() - files[0][1] > 3 and len(files) > 2:
                self.path(files.pop(0)[0]).unlink()
            time.sleep(0.01)
        shown.wait_for(400)
        self.assertEqual(self.end(process, shown), list(range(1, 401)))


class CursorTest(FollowCase):
    def setUp(self):
        super().setUp()
        self.cursor = self.world.out / "cursor"

    def follow_on(self, **more):
        return self.follow("--cursor-file", self.cursor, **more)

    def test_next_run_goes_on(self):
        self.create(1, block(1))
        process, shown = self.follow_on()
        shown.wait_for(1)
        self.append(1, block(2))
        shown.wait_for(2)
        self.assertEqual(self.end(process, shown), [1, 2])
        self.append(1, block(3))
        process, shown = self.follow_on()
        shown.wait_for(3)
        self.assertEqual(self.end(process, shown), [3])

    def test_killed_amid_following_nothing_is_lost(self):
        seed = random.randrange(2**32)
        print("seed", seed)
        rng = random.Random(seed)
        stop = threading.Event()
        written = 0

        def write():
            nonlocal written
            file_number = 1
            self.create(1)
            while not stop.is_set():
                if rng.random() < 0.02:
                    file_number += 1
                    self.create(file_number)
                self.append(file_number, block(written + 1))
                written += 1
                time.sleep(0.001)

        writer = threading.Thread(target=write)
        writer.start()
        seen = []
        try:
            for _ in range(12):
                process, shown = self.follow_on()
                time.sleep(rng.uniform(0, 1.5))
                process.kill()
                process.wait(PATIENCE_SECONDS)
                shown.join()
                seen.append(shown.numbers())
        finally:
            stop.set()
            writer.join()
        process, shown = self.follow_on()
        shown.wait_for(written)
        seen.append(self.end(process, shown))
        self.assert_repeats_only(seen, written)

    def assert_repeats_only(self, seen, last):
        """Each run shows its records in order, begins at or before the next one that nobody has
        shown, and leaves no gap."""
        reached = 0
        for numbers in seen:
            if numbers:
                self.assertEqual(numbers, list(range(numbers[0], numbers[-1] + 1)))
                self.assertLessEqual(numbers[0], reached + 1)
                reached = max(reached, numbers[-1])
        self.assertEqual(reached, last)

    def test_killed_at_each_step_of_writing_the_cursor(self):
        self.create(1, block(1))
        seen = []
        last = 1
        for call in ("open", "unlink", "write", "close"):
            for nth in range(1, 30):
                result = self.world.run(
                    ["--cursor-file", self.cursor, "-o", "json", self.world.log],
                    Fault(call, nth, "1", "kill"), program="zynlog-cat")
                self.assertIn(result.status, (0, -signal.SIGKILL))
                seen.append([int(json.loads(line)["message"])
                             for line in result.out.splitlines(True) if line.endswith(b"}\n")])
                if result.status == 0:
                    break
                last += 1
                self.append(1, block(last))
        final = self.world.run(["--cursor-file", self.cursor, "-o", "json", self.world.log],
                               program="zynlog-cat")
        self.assertEqual((final.status, final.err), (0, b""))
        seen.append([int(json.loads(line)["message"]) for line in final.out.splitlines()])
        self.assert_repeats_only(seen, last)
        self.assertGreater(last, 4, "it was killed at each of these calls")
        self.assertEqual(os.listdir(self.world.out), ["cursor"])

    def test_cursor_file_that_cannot_grow_is_reported(self):
        self.create(1, block(1))
        process, shown = self.follow_on()
        shown.wait_for(1)
        self.assertEqual(self.end(process, shown), [1])
        before = self.cursor.read_bytes()
        self.append(1, block(2))

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (20, 20))

        process, shown = self.follow_on(preexec_fn=limit)
        self.assert_ended(process, 2, b"zynlog-cat: --follow: Failed to write cursor file "
                                      b"[OS call failed:27(File too large)]\n")
        shown.join()
        self.assertEqual(shown.numbers(), [2])
        self.assertEqual(self.cursor.read_bytes(), before)
        self.assertEqual(os.listdir(self.world.out), ["cursor"])

    def test_other_files_are_left_alone(self):
        self.create(1, block(1))
        self.cursor.write_bytes(b"no cursor")
        process, shown = self.follow_on()
        self.assertEqual(process.wait(PATIENCE_SECONDS), 2)
        self.assertIn(b"cursor: is not a cursor file", process.stderr.read())
        shown.join()
        self.assertEqual(shown.numbers(), [])
        self.assertEqual(self.cursor.read_bytes(), b"no cursor")

    def test_place_is_found_after_rotation_and_compression(self):
        self.create(1, block(1))
        process, shown = self.follow_on()
        shown.wait_for(1)
        self.assertEqual(self.end(process, shown), [1])
        if shutil.which("gzip") is None:
            raise AssertionError("gzip is part of every system that this runs on")
        subprocess.run(["gzip", self.path(1)], check=True)
        self.create(2, block(2))
        process, shown = self.follow_on()
        shown.wait_for(2)
        self.assertEqual(self.end(process, shown), [2])


if __name__ == "__main__":
    unittest.main()
