"""The logs that the tests of this folder export, and what they compare the texts with."""

import os
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
FLEET = SOURCE / "integrations/fleet"
BIN = Path(os.environ["ZYN_BIN"])
ENVIRONMENT = dict(os.environ, PATH=f"{BIN}:{os.environ['PATH']}", TZ="UTC", LC_ALL="C")


def run(*command, status=0, environment=None, **options):
    """Runs a command that must end with the status; its output."""
    result = subprocess.run(command, env=environment or ENVIRONMENT, text=True, check=False,
                            stdin=subprocess.DEVNULL, capture_output=True, timeout=300, **options)
    if result.returncode != status:
        raise AssertionError(f"{command}: {result.returncode}\n{result.stdout}{result.stderr}")
    return result.stdout


def generate(directory, files, records, seed=1):
    run(BIN / "zynloggen", "--out", directory, "--files", str(files), "--records", str(records),
        "--seed", str(seed))


def whole_export(log, scratch):
    """The lines of the export of the whole log, without the header line."""
    text = Path(scratch) / "whole"
    run(BIN / "zyntool", "export", "-d", log, "-f", text, "-l", "-silent")
    return text.read_bytes().split(b"\n", 1)[1]


def joined_texts(directory):
    """The lines of the texts in the order of their names, without header lines."""
    return b"".join(text.read_bytes().split(b"\n", 1)[1]
                    for text in sorted(Path(directory).glob("zynlog-*.txt")))


def outcomes(directory):
    """The first word of each record, by the name of the log file."""
    return {record.name.removesuffix(".status"): record.read_text().split()[0]
            for record in Path(directory).glob("*.status")}


def leftovers(directory):
    """What no user asked for."""
    return sorted(path.name for path in Path(directory).iterdir()
                  if path.name.startswith((".export", ".list")))


class LogCase(unittest.TestCase):
    def setUp(self):
        place = tempfile.TemporaryDirectory(prefix="zynfleet")
        self.addCleanup(place.cleanup)
        self.place = Path(place.name)
        self.log = self.place / "log"
        self.text = self.place / "text"
        self.text.mkdir()
