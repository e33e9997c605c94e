"""Tests of compare_builds.py with builds that are shell scripts."""

import tempfile
import unittest
from pathlib import Path

import compare_builds


class CompareTest(unittest.TestCase):
    def setUp(self) -> None:
        self.home = Path(self.enterContext(tempfile.TemporaryDirectory()))

    def build(self, name: str, export: str, verify: str = "echo clean") -> Path:
        directory = self.home / name
        directory.mkdir()
        for program, script in (("zyntool", export), ("zynlog-verify", verify)):
            path = directory / program
            path.write_text(f"#!/bin/sh\n{script}\n")
            path.chmod(0o700)
        return directory

    def difference(self, *builds: Path, times: tuple[int, ...] = ()) -> str | None:
        def write(_: Path, directory: Path) -> None:
            (directory / "zynlog-1.txt").write_bytes(b"log")

        log = compare_builds.Log("a log", write, {"export": ["-f"]}, times=times)
        return compare_builds.compare(list(builds), log)

    def test_same_results_are_no_difference(self) -> None:
        script = "cat ../log/* > all.txt; echo said; echo warned >&2; exit 3"
        self.assertIsNone(
            self.difference(*(self.build(name, script) for name in "abc")))

    def test_each_kind_of_difference_is_found(self) -> None:
        right = self.build("right", "cat ../log/* > all.txt")
        for number, (script, what) in enumerate((
                ("echo log > all.txt", "export: file b'all.txt' differs at offset 3"),
                ("cat ../log/* > other.txt", "other results: ["),
                ("cat ../log/* > all.txt; echo x", "export: standard output differs"),
                ("cat ../log/* > all.txt; echo x >&2", "export: standard error differs"),
                ("cat ../log/* > all.txt; exit 1", "export: status differs"))):
            with self.subTest(what=what):
                wrong = self.build(f"wrong{number}", script)
                self.assertIn(what, self.difference(right, right, wrong) or "")

    def test_other_findings_are_found(self) -> None:
        right = self.build("right", ":")
        wrong = self.build("wrong", ":", 'test "$1" != --json')
        self.assertIn("verify --blocks: standard output differs",
                      self.difference(right, wrong) or "")

    def test_times_of_the_run_may_differ_and_nothing_beside_them(self) -> None:
        width = compare_builds.zynlog_decoder.DATE_WIDTH + 4
        first = self.build("first", f"printf 'ab%{width}sc' now > all.txt")
        later = self.build("later", f"printf 'ab%{width}sc' later > all.txt")
        other = self.build("other", f"printf 'ab%{width}sd' later > all.txt")
        self.assertIsNone(self.difference(first, later, times=(2,)))
        self.assertIn("differs", self.difference(first, other, times=(2,)) or "")
        self.assertIn("differs", self.difference(first, later) or "")


if __name__ == "__main__":
    unittest.main()
