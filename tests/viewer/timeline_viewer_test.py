"""A timeline of zynlog-cat opened in a public viewer of its format, in a real browser: every slice is
found by its name, in the profile of its thread. ZYN_BIN has the programs, ZYN_VIEWER the folder with
the viewer's modules, ZYN_SCREENSHOT the picture to make, if any."""

import collections
import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

BIN = Path(os.environ["ZYN_BIN"])
VIEWER = os.environ.get("ZYN_VIEWER", "")
BROWSER = shutil.which("chromium")
DRIVER = Path(__file__).resolve().parent / "timeline_viewer.mjs"


class TimelineViewer(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        place = tempfile.TemporaryDirectory(prefix="zynviewer")
        cls.addClassCleanup(place.cleanup)
        cls.timeline = Path(place.name) / "timeline.json"
        log = Path(place.name) / "log"
        subprocess.run([BIN / "zynloggen", "--out", log, "--records", "600", "--calls", "--step-us",
                        "700", "--files", "2"], check=True)
        with open(cls.timeline, "wb") as out:
            subprocess.run([BIN / "zynlog-cat", "-o", "timeline", log], check=True, stdout=out)
        command = ["node", DRIVER, VIEWER, BROWSER, cls.timeline]
        if "ZYN_SCREENSHOT" in os.environ:
            command += ["--screenshot", os.environ["ZYN_SCREENSHOT"], "0"]
        shown = subprocess.run(command, check=True, stdout=subprocess.PIPE, timeout=120)
        cls.shown = json.loads(shown.stdout)
        cls.events = json.loads(cls.timeline.read_text())["traceEvents"]

    def test_the_viewer_has_nothing_to_complain_of(self):
        self.assertEqual(self.shown["errors"], [])

    def test_every_slice_is_found_in_the_profile_of_its_thread(self):
        threads = {(event["pid"], event["tid"]): event["args"]["name"]
                   for event in self.events if event["ph"] == "M" and event["name"] == "thread_name"}
        slices = collections.defaultdict(set)
        for event in self.events:
            if event["ph"] == "X":
                slices[event["pid"], event["tid"]].add(event["name"])
        self.assertGreaterEqual(len(slices), 4, "calls on several threads")
        for (pid, tid), names in slices.items():
            profiles = [rows for name, rows in self.shown["profiles"].items()
                        if f"(pid {pid})" in name and f"(tid {tid})" in name]
            self.assertEqual(len(profiles), 1, f"{pid} {tid} in {list(self.shown['profiles'])}")
            # Behind a name the viewer shows the arguments.
            rows = {row.split(" {")[0] for row in profiles[0]}
            self.assertEqual(names, rows & names, f"{pid} {tid} {threads}")
            self.assertEqual(rows - names, set(), "slices that nobody made")

    def test_functions_of_the_log_are_slices(self):
        names = {event["name"] for event in self.events if event["ph"] == "X"}
        for name in ("SessionMgr AcceptSession", "NetEngine Connect", "Storage WritePage"):
            self.assertIn(name, names)


if __name__ == "__main__":
    if BROWSER is None or shutil.which("node") is None or not VIEWER:
        print("timeline_viewer_test: skipped: chromium, node or the viewer's modules are missing")
        sys.exit(77)
    unittest.main()
