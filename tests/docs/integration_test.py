"""What stands beside the program for other programs to read: the file(1) magic, the lnav
format and the systemd-tmpfiles snippet."""

import json
import os
import random
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(os.environ["ZYN_SOURCE"])
BIN = Path(os.environ["ZYN_BIN"])
LOG = SOURCE / "samples" / "log" / "zynlog-0001.txt"
NOTE_BYTES = 256


@unittest.skipUnless(shutil.which("file"), "file is not installed")
class MagicTest(unittest.TestCase):
    def describe(self, content, *options):
        with tempfile.NamedTemporaryFile() as sample:
            sample.write(content)
            sample.flush()
            magic = SOURCE / "integrations" / "magic" / "zynlog"
            result = subprocess.run(["file", "--brief", *options, "--magic-file", magic, sample.name],
                                    text=True, capture_output=True, check=True)
            self.assertEqual(result.stderr, "")
            return result.stdout.strip()

    def test_a_log_is_named_with_its_writer(self):
        content = LOG.read_bytes()
        host = content[261:293].split(b"\0")[0].decode()
        process = int.from_bytes(content[293:297], "little")
        self.assertEqual(self.describe(content),
                         f"ZYN 3.0 binary trace log, written on {host} by process {process}")

    def test_a_log_without_blocks_is_named(self):
        self.assertEqual(self.describe(LOG.read_bytes()[:NOTE_BYTES]), "ZYN 3.0 binary trace log")

    def test_a_first_block_of_another_form_is_left_alone(self):
        content = LOG.read_bytes()
        self.assertEqual(self.describe(content[:NOTE_BYTES] + b"\x2a" + content[NOTE_BYTES + 1:]),
                         "ZYN 3.0 binary trace log")

    def test_the_media_type_is_given(self):
        self.assertEqual(self.describe(LOG.read_bytes(), "--mime-type"), "application/x-zynlog")

    def test_other_text_is_not_named(self):
        self.assertNotIn("trace log", self.describe(b"-" * 53 + b"\r\nNOTE: something else\r\n"))


@unittest.skipUnless(shutil.which("lnav"), "lnav is not installed")
class LnavTest(unittest.TestCase):
    """The recipes of doc/viewing.md are run with that document; here, the format's corners."""

    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="zyn-lnav.")
        self.addCleanup(directory.cleanup)
        self.directory = Path(directory.name)
        self.environment = {"PATH": os.environ["PATH"], "HOME": directory.name, "TZ": "UTC",
                            "LC_ALL": "C.UTF-8", "TERM": "dumb"}
        self.lnav("-i", str(SOURCE / "integrations" / "lnav" / "zyntool_log.json"))

    def lnav(self, *arguments):
        return subprocess.run(["lnav", *arguments], env=self.environment, cwd=self.directory,
                              stdin=subprocess.DEVNULL, text=True, capture_output=True, timeout=60,
                              check=True)

    def fields(self, *lines):
        """What lnav makes of lines: one dictionary for each message."""
        (self.directory / "text.log").write_text("\n".join(lines) + "\n")
        query = ";SELECT log_level, pid, tid, module, client, label, log_body FROM zyntool_log"
        return json.loads(self.lnav("-n", "text.log", "-c", query, "-c", ":write-json-to -").stdout)

    def test_the_format_and_its_samples_raise_no_warning(self):
        (self.directory / "text.log").write_text("")
        result = self.lnav("-n", "-W", "text.log", "-c", ";SELECT 1")
        self.assertNotIn("warning", result.stdout + result.stderr)

    def test_levels_follow_the_labels(self):
        labels = {"Error": "error", "Warning": "warning", "Info": "info", "Debug": "debug",
                  "Entry": "trace", "Exit": "trace", "Fatal": "fatal", "": "info"}
        lines = [f"11/14/2023 10:00:00.000    12       1170 NetEngine    rx         {label:<12} up"
                 for label in labels]
        self.assertEqual([message["log_level"] for message in self.fields(*lines)],
                         list(labels.values()))

    def test_columns_with_long_numbers_and_names_with_blanks(self):
        self.assertEqual(
            self.fields("11/14/2023 10:00:00.000 1234567 4294967295 my module    a client   a label      up"),
            [{"log_level": "info", "pid": 1234567, "tid": 4294967295, "module": "my module   ",
              "client": "a client  ", "label": "a label     ", "log_body": "up"}])

    def test_full_columns_without_blanks_between(self):
        self.assertEqual(
            self.fields("11/14/2023 10:00:00.000    12       1170 abcdefghijkl 0123456789 ABCDEFGHIJKL up"),
            [{"log_level": "info", "pid": 12, "tid": 1170, "module": "abcdefghijkl",
              "client": "0123456789", "label": "ABCDEFGHIJKL", "log_body": "up"}])

    def test_lines_of_a_message_belong_together(self):
        messages = self.fields("11/14/2023 10:00:00.000    12       1170 a            b          Error        one",
                               " " * 79 + "two",
                               "11/14/2023 10:00:00.001    12       1170 a            b          Info         three")
        self.assertEqual([message["log_level"] for message in messages], ["error", "info"])

    def test_columns_of_zynlog_cat_are_read_as_its_json_has_them(self):
        """All records of the sample log, by time over all writers; names as far as columns go."""
        def cat(*options):
            return subprocess.run([BIN / "zynlog-cat", "--merge", *options, SOURCE / "samples" / "log"],
                                  env={"TZ": "UTC0"}, capture_output=True, check=True).stdout

        def fitted(name, width):
            return name if len(name) <= width else f"{name[:width - 4]}..{name[-2:]}"

        records = [json.loads(line) for line in cat("-o", "json").splitlines()]
        (self.directory / "text.log").write_bytes(cat())
        query = (";SELECT log_time, pid, tid, trim(module) AS module, trim(client) AS client, "
                 "trim(label) AS label, log_body FROM zyntool_log WHERE pid IS NOT NULL")
        shown = json.loads(self.lnav("-n", "text.log", "-c", query, "-c", ":write-json-to -").stdout)
        self.assertGreater(len(records), 100)
        self.assertEqual(len(shown), len(records))
        for line, record in zip(shown, records):
            self.assertEqual(
                (line["log_time"], int(line["pid"]), int(line["tid"]), line["module"], line["client"], line["label"]),
                (record["time"].replace("T", " ").rstrip("Z"), record["pid"], record["tid"],
                 fitted(record["module"], 12), fitted(record["client"], 10), fitted(record["label"], 12)))
            # Its lines stand below each other, behind blanks.
            self.assertEqual(line["log_body"].split(), record["message"].split())

    def test_columns_without_header_are_read_too(self):
        text = subprocess.run([BIN / "zynlog-cat", "--no-header", "-l", "Error", SOURCE / "samples" / "log"],
                              env={"TZ": "UTC0"}, capture_output=True, text=True, check=True).stdout
        levels = [message["log_level"] for message in self.fields(*text.splitlines())]
        self.assertEqual(set(levels), {"error"})
        self.assertEqual(len(levels), len(re.findall(r"^\d\d/", text, re.MULTILINE)))

    def times(self, lines):
        """The times that lnav gives to lines."""
        (self.directory / "text.log").write_text("\n".join(lines) + "\n")
        query = ";SELECT log_time, log_body FROM zyntool_log"
        shown = json.loads(self.lnav("-n", "text.log", "-c", query, "-c", ":write-json-to -").stdout)
        return {message["log_body"]: message["log_time"] for message in shown}

    def test_times_of_writers_that_overlap_are_their_own(self):
        seed = random.SystemRandom().randrange(1 << 32)
        choose = random.Random(seed)
        expected, blocks = {}, []
        for writer in range(3):
            now = 0
            for block in range(6):
                lines = []
                for _ in range(choose.randint(1, 9)):
                    now += choose.randint(1, 200)
                    stamp, body = f"10:00:{now // 1000:02}.{now % 1000:03}", f"record {writer}-{now}"
                    lines.append(f"11/14/2023 {stamp} {writer:5}       1170 NetEngine    rx         Info         {body}")
                    expected[body] = f"2023-11-14 {stamp}"
                blocks.append((now + choose.randint(0, 500), lines))
        # As a service writes them: a block when it is full, with records older than those written before.
        lines = [line for _, block in sorted(blocks) for line in block]
        self.assertEqual(self.times(lines), expected, f"seed {seed}")

    def test_times_of_the_hour_that_comes_twice_are_those_of_the_text(self):
        stamps = [f"02:{minute:02}:00.000" for minute in (0, 30, 59, 0, 30, 59)] + ["03:00:00.000"]
        lines = [f"10/29/2023 {stamp}    12       1170 NetEngine    rx         Info         record {number}"
                 for number, stamp in enumerate(stamps)]
        self.assertEqual(self.times(lines), {f"record {number}": f"2023-10-29 {stamp}"
                                             for number, stamp in enumerate(stamps)})

    def test_separated_fields(self):
        for separator in (";", ",", "|", "\t", " | ", "::", "\x1f", ", ", " -> ", "x", " ======= "):
            with self.subTest(separator=separator):
                line = separator.join(["11/14/2023 10:00:00.000", "   12", "      1170", "my module", "",
                                       "Error", f"a{separator}b"])
                self.assertEqual(self.fields(line),
                                 [{"log_level": "error", "pid": 12, "tid": 1170, "module": "my module",
                                   "client": "", "label": "Error", "log_body": f"a{separator}b"}])


class TmpfilesTest(unittest.TestCase):
    SNIPPET = SOURCE / "packaging" / "tmpfiles.d" / "zyntool.conf"

    def test_it_makes_the_run_directory_with_its_parents_first(self):
        lines = [line.split() for line in self.SNIPPET.read_text().splitlines()
                 if line and not line.startswith("#")]
        self.assertEqual([fields[1] for fields in lines],
                         ["/usr/vantorel", "/usr/vantorel/temp", "/usr/vantorel/temp/ZYN"])
        for fields in lines:
            self.assertEqual(len(fields), 7)
            self.assertEqual(fields[0], "d")
            self.assertTrue(re.fullmatch(r":?0[0-7]{3}", fields[2]), fields)

    @unittest.skipUnless(shutil.which("systemd-tmpfiles"), "systemd-tmpfiles is not installed")
    def test_systemd_takes_it(self):
        with tempfile.TemporaryDirectory() as root:
            subprocess.run(["systemd-tmpfiles", "--create", f"--root={root}", self.SNIPPET], check=True)
            self.assertTrue((Path(root) / "usr/vantorel/temp/ZYN").is_dir())


if __name__ == "__main__":
    unittest.main()
