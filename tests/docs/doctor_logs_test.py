"""What zyn-doctor finds in a log directory. Run by doctor_test.py, which sees that every code is raised."""

import os
import resource
import struct
import time

from doctor_host import FIRST_BLOCK, SANITIZED, DoctorHost


class LogTests(DoctorHost):
    def test_files_that_stop_an_export_are_found(self):
        (self.root / "log" / "zynlog-2.txt").write_bytes(b"x" * 255)
        (self.root / "log" / "zynlog-3.txt").mkdir()
        (self.root / "log" / "zynlog-4.txt").write_bytes(b"x" * 256)
        (self.root / "log" / "zynlog-5.txt").symlink_to("nowhere")
        os.mkfifo(self.root / "log" / "zynlog-6.txt")
        lines, findings = self.diagnose()
        self.assertEqual(findings, ["zynlog-2.txt: 255 bytes, too small; stops an export",
                                    "zynlog-3.txt: not a regular file; stops an export",
                                    "zynlog-5.txt: No such file or directory; stops an export",
                                    "zynlog-6.txt: not a regular file; stops an export"])
        self.assertIn("1 files without the header of a binary log; an export leaves them out", lines)

    def test_names_drive_no_terminal(self):
        name = "zynlog-\x1b[31m|\n\x9b1mÄ.txt"
        (self.root / "log" / name).write_bytes(b"x")
        self.assertEqual(self.diagnose()[1],
                         [r"zynlog-\x1b[31m|\x0a\xc2\x9b1mÄ.txt: 1 bytes, too small; stops an export"])

    def newest(self):
        """The newest log, made so."""
        path = self.root / "log" / "zynlog-0002.txt"
        later = time.time() + 100
        os.utime(path, (later, later))
        return path

    def blocks(self, path):
        """Offsets of the blocks of a log, and its size."""
        content = path.read_bytes()
        offsets = [FIRST_BLOCK]
        while offsets[-1] < len(content):
            offsets.append(offsets[-1] + 45 + struct.unpack_from("<I", content, offsets[-1] + 41)[0])
        return offsets

    def advice(self):
        return f'; "zynlog-verify {self.root}/log" says what it costs'

    def rescue(self):
        return self.advice() + ", with --salvage NEW_DIRECTORY it copies what is good"

    def test_the_newest_log_is_looked_at(self):
        self.newest()
        self.assertIn("newest: zynlog-0002.txt, ends with a whole block", self.diagnose()[0])

    def break_off_newest(self):
        """Cuts the newest log within its last block; returns that block's offset."""
        path = self.newest()
        last = self.blocks(path)[-2]
        with path.open("r+b") as log:
            log.truncate(last + 60)
        self.newest()
        return last

    def test_an_unfinished_newest_log_is_found(self):
        last = self.break_off_newest()
        self.assertEqual(self.diagnose()[1],
                         [f"newest: zynlog-0002.txt, ends within the block at offset {last}" + self.rescue()])

    def test_an_unfinished_log_of_a_living_service_is_as_it_should_be(self):
        last = self.break_off_newest()
        self.service(os.getpid())
        lines, findings = self.diagnose()
        self.assertEqual(findings, [])
        self.assertIn(f"newest: zynlog-0002.txt, its last block at offset {last} is not finished: the service "
                      "is writing it", lines)

    def test_damage_in_the_newest_log_is_found(self):
        path = self.newest()
        second = self.blocks(path)[1]
        content = bytearray(path.read_bytes())
        content[second] = 0xFF
        path.write_bytes(content)
        self.newest()
        self.assertEqual(self.diagnose()[1],
                         [f"newest: zynlog-0002.txt, no block header at offset {second}" + self.rescue()])

    def test_zeros_at_the_end_of_the_newest_log_are_found(self):
        path = self.newest()
        size = path.stat().st_size
        with path.open("r+b") as log:
            log.truncate(size + 100_000)
        self.newest()
        self.assertEqual(self.diagnose()[1],
                         [f"newest: zynlog-0002.txt, only zeros from offset {size}" + self.rescue()])

    def test_too_little_room_for_another_log_is_found(self):
        path = self.root / "log" / "zynlog-0003.txt"
        with path.open("r+b") as log:
            # Longer than any disk here, and empty for the most part.
            log.truncate(1 << 43)
        findings = self.diagnose()[1]
        self.assertEqual(len(findings), 2, findings)
        self.assertRegex(findings[1], rf"^room left: \d+ bytes, too little for another log file \({1 << 43} bytes\)$")

    def test_a_log_of_very_many_blocks_is_not_walked_to_its_end(self):
        empty = b"\x0a" + struct.pack("<I", 40) + bytes(40)
        path = self.newest()
        path.write_bytes(path.read_bytes()[:FIRST_BLOCK] + empty * 50_001)
        self.newest()
        self.assertIn("newest: zynlog-0002.txt, more than 50000 blocks: its end was not looked at" +
                      self.advice(), self.diagnose()[0])

    def test_it_is_quick_with_many_logs(self):
        log = self.root / "log"
        for number in range(1500):
            os.link(log / "zynlog-0001.txt", log / f"zynlog-{number:06}.txt")
        # Processor time: how long it takes also depends on what else runs here.
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        self.assertEqual(self.run_doctor().returncode, 0)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        self.assertLess(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime,
                        2 if SANITIZED else 0.2)
