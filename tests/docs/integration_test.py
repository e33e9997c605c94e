"""What stands beside the program for other programs to read: the file(1) magic and the
systemd-tmpfiles snippet."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(os.environ["ZYN_SOURCE"])
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
            self.assertTrue(re.fullmatch(r"0[0-7]{3}", fields[2]), fields)

    @unittest.skipUnless(shutil.which("systemd-tmpfiles"), "systemd-tmpfiles is not installed")
    def test_systemd_takes_it(self):
        with tempfile.TemporaryDirectory() as root:
            subprocess.run(["systemd-tmpfiles", "--create", f"--root={root}", self.SNIPPET], check=True)
            self.assertTrue((Path(root) / "usr/vantorel/temp/ZYN").is_dir())


if __name__ == "__main__":
    unittest.main()
