"""Tests that the differential test passes what is right and nothing else.

The program's place is taken by a small script around the decoder, which can
be told to go wrong in one way.
"""

from __future__ import annotations

import os
import subprocess
import sys
import tempfile
import unittest

import differential
import log_damage
import random_logs
import zynlog_decoder

ORACLE = os.path.dirname(os.path.abspath(zynlog_decoder.__file__))

STAND_IN = f"""#!{sys.executable}
import os, sys, time
sys.path.insert(0, {ORACLE!r})
import zynlog_decoder

FAULT = {{fault!r}}
arguments = sys.argv[1:]
assert arguments[0:2] == ["export", "-d"] and arguments[3] == "-f"
assert arguments[5] == "-silent"
directory, out = arguments[2], arguments[4]
separator = b""
if "-l" in arguments:
    separator = b" "
    if arguments[-1] != "-l":
        separator = os.fsencode(arguments[-1]) or b" "
files = []
for name in zynlog_decoder.reading_order(os.listdir(directory)):
    with open(os.path.join(directory, name), "rb") as file:
        files.append(file.read())
now = time.time() - (3600 if FAULT == "clock" else 0)
export = zynlog_decoder.export_log(
    files, separator, (int(now), int(now % 1 * 1000))
)
text = export.text
if FAULT == "byte":
    text = text[:-2] + b"?" + text[-1:]
if FAULT == "cut":
    text = text[:-1]
if export.listed or FAULT == "listing":
    if FAULT != "no file":
        with open(out, "wb") as file:
            file.write(text)
sys.stderr.write("Runtime Tracing Command Line Utility 3.0\\n" + "-" * 54)
sys.stderr.write("\\n")
if FAULT == "chatter":
    print("done")
if export.error is not None:
    error = "Bad logic:?" if FAULT == "text" else export.error
    sys.stderr.write("Operation failed.\\n")
    sys.stderr.write("Error description:" + error + "\\n")
    sys.exit(0 if FAULT == "status" else 255)
"""


def first_seed(**wanted: object) -> int:
    """The first seed of a damaged log whose export has these properties."""
    for seed in range(1, 2000):
        log = random_logs.random_log(seed, True, seed % 7 != 0)
        contents = dict(log.files)
        names = zynlog_decoder.reading_order([*contents])
        export = zynlog_decoder.export_log([contents[n] for n in names])
        if all(bool(getattr(export, k)) == v for k, v in wanted.items()):
            return seed
    raise LookupError(wanted)


class Differential(unittest.TestCase):
    def setUp(self) -> None:
        home = tempfile.TemporaryDirectory()
        self.addCleanup(home.cleanup)
        self.home = home.name

    def stand_in(self, fault: str) -> str:
        path = os.path.join(self.home, "stand-in")
        with open(path, "w", encoding="utf-8") as file:
            file.write(STAND_IN.format(fault=fault))
        os.chmod(path, 0o700)
        return path

    def failure(self, fault: str, seed: int) -> str:
        options = differential.Options(self.stand_in(fault), True, None)
        return differential.check_seed(options, seed) or "none"

    def test_right_program_passes(self) -> None:
        damages: tuple[list[str], ...] = ([], ["--damage"])
        for damage in damages:
            run = subprocess.run(
                [sys.executable, differential.__file__, "--tool",
                 self.stand_in("none"), "--seeds", "1-16", *damage],
                capture_output=True, check=False,
            )
            self.assertEqual(run.stdout, b"16 passed, 0 failed\n")
            self.assertEqual(run.returncode, 0)

    def test_wrong_text_fails(self) -> None:
        run = subprocess.run(
            [sys.executable, differential.__file__, "--tool",
             self.stand_in("byte"), "--seeds", "1-3", "--keep", self.home],
            capture_output=True, check=False,
        )
        self.assertEqual(run.returncode, 1)
        self.assertTrue(run.stdout.endswith(b"\n0 passed, 3 failed\n"))
        self.assertIn(b"seed 2 (separator ", run.stdout)
        self.assertIn(b": the text differs at offset ", run.stdout)
        self.assertTrue(
            os.path.exists(os.path.join(self.home, "seed-2", "out.txt"))
        )

    def test_each_fault_is_seen(self) -> None:
        plain = first_seed(error=False, text=True)
        failing = first_seed(error=True, listed=True)
        for fault, seed, seen in (
            ("none", plain, "none"),
            ("cut", plain, "the text differs at offset"),
            ("no file", plain, "no file was written"),
            ("chatter", plain, "standard output differs at offset 0"),
            ("text", failing, "standard error differs at offset"),
            ("status", failing, "status 0, expected 255"),
            ("listing", first_seed(listed=False), "a failed listing left"),
            ("clock", first_seed(default_times=True), "the text differs"),
            ("none", first_seed(default_times=True), "none"),
        ):
            with self.subTest(fault=fault, seed=seed):
                self.assertIn(seen, self.failure(fault, seed))


class RandomLogs(unittest.TestCase):
    def test_a_seed_gives_the_same_log_again(self) -> None:
        self.assertEqual(
            random_logs.random_log(5, True), random_logs.random_log(5, True)
        )
        self.assertNotEqual(
            random_logs.random_log(5), random_logs.random_log(6)
        )

    def test_sound_logs_export_and_do_not_depend_on_the_clock(self) -> None:
        for seed in range(60):
            log = random_logs.random_log(seed)
            contents = dict(log.files)
            names = zynlog_decoder.reading_order([*contents])
            export = zynlog_decoder.export_log(
                [contents[n] for n in names], log.separator or b""
            )
            self.assertIsNone(export.error)
            self.assertEqual(export.default_times, [])

    def test_damage_leads_to_every_outcome(self) -> None:
        errors = set()
        damages: set[str] = set()
        for seed in range(200):
            log = random_logs.random_log(seed, True)
            damages.update(log.damages)
            contents = dict(log.files)
            names = zynlog_decoder.reading_order([*contents])
            errors.add(
                zynlog_decoder.export_files([contents[n] for n in names])[1]
            )
        self.assertEqual(
            errors,
            {None, zynlog_decoder.TOO_SMALL, zynlog_decoder.NO_MORE_FILES,
             zynlog_decoder.INSUFFICIENT, zynlog_decoder.WRONG_LENGTH},
        )
        self.assertLessEqual(set(log_damage.DAMAGES), damages)


if __name__ == "__main__":
    unittest.main()
