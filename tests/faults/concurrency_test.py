"""Many tools at once against one service, many writers of one diagnostic log, and an application
that forks while the library's threads run."""

import os
import re
import signal
import subprocess
import unittest
from pathlib import Path

from world import BANNER, BIN, PATIENCE_SECONDS, World

FAILURE = "Pause Tracing...Failed \n"
SUCCESS = b"Pause tracing... succeeded.\n"


class ToolsAtOnceTest(unittest.TestCase):
    """Each sender empties the service's ring, another's message in it included, and whoever is done
    removes the senders' lock file: so a request may be lost, but it ends, and in its time."""

    def run_at_once(self, count):
        with World() as world:
            world.start_service(watched=False)
            tools = [world.start(["pause"]) for _ in range(count)]
            succeeded = 0
            for tool in tools:
                result = world.finish(tool)
                self.assertFalse(result.timed_out)
                self.assertIn(result.status, (0, 255))
                if result.status == 0:
                    succeeded += 1
                    self.assertEqual((result.out, result.err), (SUCCESS, BANNER))
                else:
                    self.assertEqual(result.out, b"Pause tracing... ")
                    self.assertEqual(result.failure(), FAILURE)
            self.assertTrue(world.service_runs())
            self.assertEqual(world.left_behind(), [])
            result = world.run(["pause"])
            self.assertEqual((result.status, result.out, result.err), (0, SUCCESS, BANNER))
            return succeeded

    def test_two(self):
        self.run_at_once(2)

    def test_eight(self):
        self.run_at_once(8)

    def test_thirty_two(self):
        self.run_at_once(32)


class ToolsInTurnTest(unittest.TestCase):
    """What the manual page recommends where several commands may come at once."""

    def test_all_succeed_with_the_lock_of_the_manual_page(self):
        page = (Path(os.environ["ZYN_SOURCE"]) / "man" / "zyntool.1").read_text()
        recipes = re.findall(r"^flock .*$", page, re.MULTILINE)
        self.assertEqual(len(recipes), 1)
        with World() as world:
            world.start_service(watched=False)
            variables = world.environment() | {"PATH": f"{BIN}:/usr/bin:/bin"}
            tools = [subprocess.Popen(["/bin/sh", "-c", recipes[0]], env=variables, cwd=world.out,
                                      stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                      stderr=subprocess.PIPE) for _ in range(12)]
            for tool in tools:
                result = world.finish(tool)
                self.assertEqual((result.status, result.out, result.err), (0, SUCCESS, BANNER))
            self.assertEqual(world.left_behind(), [])
            self.assertEqual(os.listdir(world.out), [])


class DiagnosticLogTest(unittest.TestCase):
    def test_lines_of_sixteen_processes_are_whole(self):
        files = 150
        with World() as world:
            paths = []
            for number in range(files):
                path = world.log / f"zynlog-{number:03}-{'x' * (number + 80)}.txt"
                path.write_bytes(b"")
                paths.append(f"../log/{path.name}")
            world.generate_log("--records", "1", "--out", str(world.root / "source"))
            header = (world.root / "source" / "zynlog-0001.txt").read_bytes()
            for path in world.log.iterdir():
                path.write_bytes(header)
            tools = [world.start(["export", "-d", "../log", "-f", f"{number}.txt", "-silent"],
                                 environment={"DIAGNOSTIC_MODE": "1"}) for number in range(16)]
            for tool in tools:
                self.assertEqual(world.finish(tool).status, 0)
            texts = []
            for line in (world.run_directory / "trace.txt").read_text().splitlines():
                match = re.fullmatch(r"\d\d:\d\d:\d\d\.\d{3} ZYNCLIENT: (.*)", line)
                self.assertTrue(match, line)
                texts.append(match[1])
            expected = [f"Total number of files found:{files}",
                        f"Total number of bytes:{files * (len(header) - 256)}", *paths]
            self.assertEqual(sorted(texts), sorted(expected * 16))


class ForkingHostTest(unittest.TestCase):
    def test_fork_closes_the_connection_for_parent_and_child(self):
        with World() as world:
            world.start_service()
            host = subprocess.Popen([BIN / "zyn_forking_host"], env=world.environment(),
                                    stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                    start_new_session=True)
            world.wait_for_service_line(f"confirmed registration of pid {host.pid}")
            self.assertEqual(
                world.left_behind(),
                [f"ZynServerMessageBuffer{host.pid}.map", f"ZynTraceBuffer{host.pid}.map"])
            try:
                out, _ = host.communicate(b"go\n", timeout=PATIENCE_SECONDS)
            except subprocess.TimeoutExpired:
                # Its child would live on.
                os.killpg(host.pid, signal.SIGKILL)
                raise
            world.wait_for_service_line(f"confirmed un-registration of pid {host.pid}")
            self.assertEqual(host.returncode, 0)
            # In either of the two the filter stays as it was read, and a request has nobody to go to.
            closed = "{0} enabled 1\n{0} same handle 1\n{0} pause 1\n"
            self.assertEqual(out.decode(), "host module 0\nhost label 0\nhost enabled 1\n"
                             + closed.format("child") + "host child 0\n" + closed.format("host")
                             + "host second child 0\n")
            self.assertEqual(world.left_behind(), [])
            self.assertEqual(os.listdir(world.out), [])


if __name__ == "__main__":
    unittest.main()
