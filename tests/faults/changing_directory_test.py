"""The log directory changes while the tool is at work in it: an export into it must see the change
beside its own, and a clean deletes where it has listed."""

import os
import shutil
import signal
import unittest

from world import BANNER, Fault, World, contents, wait_until_stopped


def next_change_shows(directory, elsewhere):
    """Times of change come in ticks: until one is later than that of the directory."""
    probe = elsewhere / "probe"
    while True:
        probe.touch()
        if probe.stat().st_mtime_ns > directory.stat().st_mtime_ns:
            probe.unlink()
            return


class StoppedTest(unittest.TestCase):
    def setUp(self):
        self.world = World()
        self.addCleanup(self.world.__exit__)
        self.world.generate_log("--records", "300", "--files", "3")

    def run_with_change(self, arguments, fault, change):
        tool = self.world.start(arguments, fault)
        self.assertTrue(wait_until_stopped(tool), fault)
        change()
        tool.send_signal(signal.SIGCONT)
        result = self.world.finish(tool)
        self.assertEqual((result.status, result.err), (0, BANNER), fault)


class ExportIntoTheLogDirectoryTest(StoppedTest):
    """A log is opened, then its text, which is cut if it was there: ahead of the N-th of these, a file
    appears that continues the third log."""

    ARGUMENTS = ["export", "-d", "../log", "-m", "../log", "-silent"]
    LAST = "EXPORT-zynlog-0003.txt"

    def setUp(self):
        super().setUp()
        self.later = self.world.log / "zynlog-0003b.txt"
        self.made = self.world.root / "later"
        shutil.copy(self.world.log / "zynlog-0001.txt", self.made)
        self.alone = self.exported()
        self.appear()
        self.both = self.exported()
        self.assertGreater(len(self.both), len(self.alone))
        self.forget()

    def exported(self):
        result = self.world.run(["export", "-d", "../log", "-m", ".", "-silent"])
        self.assertEqual(result.status, 0)
        return contents(self.world.out)[self.LAST]

    def appear(self):
        next_change_shows(self.world.log, self.world.out)
        shutil.copy(self.made, self.later)

    def forget(self):
        self.later.unlink()
        for text in self.world.log.glob("EXPORT-*"):
            text.unlink()

    def assert_seen(self, call, first):
        self.run_with_change(self.ARGUMENTS, Fault(call, first, "1", "stop"), self.appear)
        self.assertTrue(contents(self.world.log)[self.LAST] == self.both, (call, first))
        self.forget()

    def test_change_beside_a_text_that_is_made_is_seen(self):
        # What comes between the look at the directory and the making of a text cannot be told from
        # that: not at the second and fourth.
        for opening in (1, 3):
            self.assert_seen("open", opening)

    def test_texts_that_are_there_change_nothing_themselves(self):
        for call, first in (("open", 1), ("open", 2), ("open", 3), ("open", 4), ("ftruncate", 1),
                            ("ftruncate", 2)):
            for text in ("EXPORT-zynlog-0001.txt", "EXPORT-zynlog-0002.txt"):
                (self.world.log / text).touch()
            self.assert_seen(call, first)

    def test_own_texts_need_no_second_listing(self):
        for readings, arguments in ((1, self.ARGUMENTS), (1, self.ARGUMENTS[:3] + ["-m", "."])):
            result = self.world.run(arguments, Fault("opendir", 1, "all", "0"))
            self.assertEqual(result.status, 0)
            self.assertEqual(result.hits.count("opendir"), readings)


class CleanTest(StoppedTest):
    """Ahead of the N-th call something else comes to stand under the directory's path."""

    def test_deletes_in_the_directory_that_it_has_listed(self):
        for call, count in (("readdir", 1), ("readdir", 4), ("unlinkat", 1), ("unlinkat", 3)):
            for replace in (self.by_a_directory, self.by_a_link):
                log, moved = self.world.log, self.world.root / "moved"
                other = self.world.root / "other"
                other.mkdir()
                (other / "zynlog-0001.txt").write_text("kept")
                (other / "zynlog-0002.txt").write_text("kept")

                def change():
                    os.rename(log, moved)
                    replace(other, log)
                self.run_with_change(["clean", "-f"], Fault(call, count, "1", "stop"), change)
                self.assertEqual(contents(log), {"zynlog-0001.txt": b"kept",
                                                 "zynlog-0002.txt": b"kept"}, (call, count))
                self.assertEqual(contents(moved), {}, (call, count))
                if log.is_symlink():
                    log.unlink()
                    shutil.rmtree(other)
                else:
                    shutil.rmtree(log)
                os.rename(moved, log)
                self.world.generate_log("--records", "300", "--files", "3")

    @staticmethod
    def by_a_directory(other, path):
        os.rename(other, path)

    @staticmethod
    def by_a_link(other, path):
        os.symlink(other, path)


if __name__ == "__main__":
    unittest.main()
