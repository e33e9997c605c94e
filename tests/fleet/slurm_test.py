"""A log of 60 files exported by a job array on a Slurm cluster of three nodes, one of which dies with
a running step."""

import json
import os
import unittest

from fleet_log import (BIN, FLEET, LogCase, generate, joined_texts, leftovers, outcomes,
                       whole_export)
from slurm_cluster import SlurmCluster, wait_for

FILES = 60
# Before the program on the PATH of the tasks: on the node that will die it waits to be killed.
HELD = """#!/bin/sh
if [ "$SLURMD_NODENAME" = n2 ] && mkdir "$ZYN_HELD" 2>/dev/null; then
    exec sleep 300
fi
exec "{program}" "$@"
"""


class Slurm(LogCase):
    def test_array_survives_a_node_and_repeats_only_what_failed(self):
        generate(self.log, files=FILES, records=200 * FILES)
        whole = whole_export(self.log, self.place)
        hurt = self.log / "zynlog-0017.txt"
        content = hurt.read_bytes()
        hurt.write_bytes(content[:-50])
        held = self.place / "held"
        programs = self.place / "bin"
        programs.mkdir()
        (programs / "zyntool").write_text(HELD.format(program=BIN / "zyntool"))
        (programs / "zyntool").chmod(0o755)
        cluster = SlurmCluster(["n1", "n2", "n3"])
        cluster.environment.update(PATH=f"{programs}:{BIN}:{os.environ['PATH']}", TZ="UTC",
                                   ZYN_HELD=str(held))
        with cluster:
            job = cluster.run(FLEET / "zyn-slurm-export", self.log, self.text).strip()
            wait_for(held.is_dir, "a step runs on n2")
            self.assertGreaterEqual(cluster.kill_node("n2"), 2, "the daemon and its step")
            self.assertEqual(cluster.wait_for_job(job), "FAILED", "one file is damaged")
            states = outcomes(self.text)
            self.assertEqual(len(states), FILES)
            self.assertEqual([name for name, state in states.items() if state != "ok"],
                             [hurt.name])
            failed = (self.text / "failed").read_text().splitlines()
            self.assertEqual(len(failed), 1)
            self.assertRegex(failed[0], rf"^damaged .* {hurt.name}$")
            self.assertIn(cluster.state("n2"), ("down", "drained"))

            before = {path.name: path.stat().st_ino for path in self.text.glob("zynlog-*.txt")}
            hurt.write_bytes(content)
            job = cluster.run(FLEET / "zyn-slurm-export", self.log, self.text).strip()
            self.assertEqual(cluster.wait_for_job(job), "COMPLETED")
            after = {path.name: path.stat().st_ino for path in self.text.glob("zynlog-*.txt")}
            self.assertEqual([name for name in after if after[name] != before.get(name)],
                             [hurt.name])
        self.assertEqual(joined_texts(self.text), whole)
        self.assertEqual((self.text / "failed").read_text(), "")
        count = json.loads((self.text / "count.json").read_text())
        self.assertEqual(count["records"], 200 * FILES)
        # What the killed step left behind is all there is.
        self.assertLessEqual(len(leftovers(self.text)), 1)


if __name__ == "__main__":
    unittest.main()
