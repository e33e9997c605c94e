"""The folders of src, in the order that doc/architecture.md gives them: each includes only what its row
names, and all that its row names; what it includes stands below it; and its library links what it
includes. Header-only code counts like any other."""

import os
import re
import unittest
from pathlib import Path

SOURCE = Path(os.environ["ZYN_SOURCE"])
SRC = SOURCE / "src"
ROW = re.compile(r"^\| `src/([\w/]+)` \| ([^|]*) \|", re.MULTILINE)


def documented():
    """Folder to the set of folders that it uses, in the order of the table."""
    text = (SOURCE / "doc/architecture.md").read_text()
    return {folder: set(re.findall(r"`([\w/]+)`", uses)) for folder, uses in ROW.findall(text)}


def folder_of(path, folders):
    """The folder that a path below src belongs to: the longest one that holds it."""
    return max((f for f in folders if path.startswith(f + "/")), key=len, default=None)


def included(folders):
    """Folder to the set of other folders that its files include."""
    uses = {folder: set() for folder in folders}
    for file in sorted(SRC.rglob("*")):
        if file.suffix not in (".h", ".cpp", ".inc"):
            continue
        folder = folder_of(str(file.relative_to(SRC)), folders)
        for target in re.findall(r'^\s*#\s*include "([^"]+)"', file.read_text(), re.MULTILINE):
            used = folder_of(target, folders)
            if used not in (None, folder):
                uses[folder].add(used)
    return uses


class IncludeGraph(unittest.TestCase):
    def setUp(self):
        self.documented = documented()

    def test_every_folder_with_sources_has_a_row(self):
        holding = {str(file.parent.relative_to(SRC)) for file in SRC.rglob("*")
                   if file.suffix in (".h", ".cpp")}
        rows = {folder_of(name + "/", self.documented) for name in holding}
        self.assertNotIn(None, rows, holding)
        self.assertEqual(rows, set(self.documented))

    def test_includes_are_those_of_the_table(self):
        self.assertEqual(included(self.documented), self.documented)

    def test_what_a_folder_uses_stands_below_it(self):
        seen = []
        for folder, uses in reversed(self.documented.items()):
            self.assertLessEqual(uses, set(seen), folder)
            seen.append(folder)

    def test_quoted_includes_name_files(self):
        for file in SRC.rglob("*"):
            if file.suffix in (".h", ".cpp"):
                for target in re.findall(r'^\s*#\s*include "([^"]+)"', file.read_text(),
                                         re.MULTILINE):
                    self.assertTrue((SRC / target).is_file(), f"{file}: {target}")


if __name__ == "__main__":
    unittest.main()
