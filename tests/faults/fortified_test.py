"""The fault kit stands in front of every fortified entry point of the C library that a program imports:
one that it does not know would let a call pass by the faults unseen."""

import re
import subprocess
import unittest

from world import BIN

PROGRAMS = ["zyntool", "zynlog-verify", "zynlog-cat", "zyn-doctor", "zyntraced-app"]
KIT = ["libzyn_fault_preload.so", "libzyn_syslog_preload.so"]
# They move bytes in memory and cannot fail.
MEMORY = re.compile(r"__(stack|(v?sn?printf|mem\w+|str\w+|st[rp]n?cpy|longjmp|explicit_bzero|fdelt)_chk)")
FORTIFIED = re.compile(r"__\w+_chk|__open(at)?(64)?_2")


def symbols(path, kind):
    listing = subprocess.run(["nm", "-D", kind, path], check=True, capture_output=True, text=True)
    return {line.split()[-1].split("@")[0] for line in listing.stdout.splitlines()}


class FortifiedTest(unittest.TestCase):
    def test_kit_knows_what_programs_import(self):
        known = set().union(*(symbols(BIN.parent / "lib" / name, "--defined-only") for name in KIT))
        self.assertIn("__read_chk", known)
        for program in PROGRAMS:
            with self.subTest(program=program):
                imported = {name for name in symbols(BIN / program, "--undefined-only")
                            if FORTIFIED.fullmatch(name) and not MEMORY.match(name)}
                self.assertEqual(imported - known, set())


if __name__ == "__main__":
    unittest.main()
