"""Programs of 32 and of 64 bits on the same files: tool, service and an application that is traced,
in every combination. ZYN_BIN and ZYN_OTHER_BIN are the programs of two builds, one of each size."""

import fcntl
import functools
import inspect
import itertools
import os
import re
import signal
import struct
import subprocess
import unittest
from pathlib import Path

from world import (BANNER, BUILD, HALF_POLL_US, Build, Fault, World,
                   wait_until_stopped)

PID_FILE = "ZynService.pid"
SENDERS_LOCK = "ZynServerMessageLock.lck"
SERVER_REGION_BYTES = 524
CLIENT_REGION_BYTES = 524
TRACE_REGION_BYTES = 1047564
# By command: what it says, what the service calls it, how it fails.
COMMANDS = {
    ("pause",): ("Pause tracing... ", "pause", "Pause Tracing...Failed \n"),
    ("resume",): ("Resume tracing... ", "resume", "Resume Tracing Failed \n"),
    ("reload",): ("Reloading configuration... ", "reload", "Reloading Configuration Failed"),
    ("preservation", "-on"): ("Activating preservation mode... ", "preservation on",
                              "Activating preservation mode...  Failed"),
    ("preservation", "-off"): ("Deactivating preservation mode ...", "preservation off",
                               "Deactivating preservation mode ... Failed"),
}


def word_size(build):
    """32 or 64, as the tool's own file says."""
    identification = build.tool.read_bytes()[:5]
    return {b"\x7fELF\x01": 32, b"\x7fELF\x02": 64}[identification]


BUILDS = {word_size(build): build for build in (BUILD, Build(Path(os.environ["ZYN_OTHER_BIN"])))}
if len(BUILDS) != 2:
    raise SystemExit("ZYN_BIN and ZYN_OTHER_BIN must be builds of different word size")


def words(path, count):
    with open(path, "rb") as file:
        return struct.unpack(f"<{count}I", file.read(4 * count))


def in_every_combination(test):
    """The test gets builds of every combination of word sizes, one for each of its parameters."""
    roles = list(inspect.signature(test).parameters)[1:]

    @functools.wraps(test)
    def run(self):
        for sizes in itertools.product(BUILDS, repeat=len(roles)):
            with self.subTest(**dict(zip(roles, sizes))):
                test(self, *(BUILDS[size] for size in sizes))
    return run


class WordSizesTest(unittest.TestCase):
    def assert_succeeds(self, world, arguments):
        """Returns the process id of the tool."""
        says, request, _ = COMMANDS[arguments]
        result = world.run(arguments, sleep_us=HALF_POLL_US)
        self.assertEqual((result.status, result.out, result.err),
                         (0, says.encode() + b"succeeded.\n", BANNER))
        world.wait_for_service_line(f"request {request} from pid {result.pid}")
        world.wait_for_service_line(f"confirmed un-registration of pid {result.pid}")
        return result.pid

    @in_every_combination
    def test_commands_reach_the_service_and_leave_nothing(self, tool, service):
        with World(tool, service) as world:
            world.start_service()
            for arguments in COMMANDS:
                self.assert_succeeds(world, arguments)
                self.assertEqual(world.left_behind(), [])
            region = world.run_directory / "ZynServerMessageBuffer.map"
            self.assertEqual(region.stat().st_size, SERVER_REGION_BYTES)
            # Empty again, at whatever position.
            read, write, capacity = words(region, 3)
            self.assertEqual((read, capacity), (write, 512))

    @in_every_combination
    def test_commands_fail_once_the_service_is_gone(self, tool, service):
        with World(tool, service) as world:
            world.start_service()
            pid = world.service.pid
            self.assertEqual(
                re.match(rb"\d+", (world.run_directory / PID_FILE).read_bytes())[0],
                str(pid).encode())
            self.assert_succeeds(world, ("pause",))
            # Its files stay, and name a process that is no more.
            world.kill_service()
            for arguments, (says, _, failure) in COMMANDS.items():
                result = world.run(arguments, sleep_us=HALF_POLL_US)
                self.assertEqual((result.status, result.out, result.failure()),
                                 (255, says.encode(), failure))
                self.assertEqual(world.left_behind(), [])

    @in_every_combination
    def test_status_is_queried_through_the_service(self, tool, service):
        with World(tool, service) as world:
            world.start_service()
            # The configuration names the first, so the other gets the next handle.
            for handle, label, enabled in ((0, "Info", "enabled"), (1, "Debug", "disabled")):
                result = world.run(["test", "-m", "Net", "-l", label, "-c", "c"],
                                   sleep_us=HALF_POLL_US)
                self.assertEqual((result.status, result.err), (0, BANNER))
                self.assertEqual(
                    result.out.decode(),
                    f'ZYN module handle for "Net" is 0\nZYN label handle for "{label}" is {handle}\n'
                    f'ZYN tracing status with module "Net", client "c" and label "{label}" is '
                    f'{enabled}.\n')
                world.wait_for_service_line(f"confirmed registration of pid {result.pid}")

    @in_every_combination
    def test_applications_follow_the_tools_commands(self, tool, service, application):
        with World(tool, service) as world:
            world.start_service()
            with subprocess.Popen(
                    [application.bin / "zyntraced-app", "Net", "c", "Info"],
                    env=world.environment(), stdin=subprocess.PIPE, stdout=subprocess.PIPE) as traced:
                # The end of its input is its own, and the service's wait for it ends too.
                self.follow(world, traced)
            self.assertEqual(traced.returncode, 0)
            self.assertEqual(world.left_behind(), [])

    def follow(self, world, traced):
        def expect(line):
            self.assertEqual(traced.stdout.readline(), line)

        expect(b"tracing enabled\n")
        regions = {f"ZynServerMessageBuffer{traced.pid}.map": (CLIENT_REGION_BYTES, 512),
                   f"ZynTraceBuffer{traced.pid}.map": (TRACE_REGION_BYTES, 0xFFC00)}
        self.assertEqual(world.left_behind(), sorted(regions))
        for name, (size, capacity) in regions.items():
            path = world.run_directory / name
            self.assertEqual(path.stat().st_size, size)
            self.assertEqual(words(path, 3)[2], capacity)
        self.assert_succeeds(world, ("pause",))
        expect(b"tracing disabled\n")
        self.assert_succeeds(world, ("resume",))
        expect(b"tracing enabled\n")
        text = world.configuration.read_text()
        world.configuration.write_text(
            text.replace('<MLabel name="Info" state="1"/>', '<MLabel name="Info" state="0"/>'))
        self.assert_succeeds(world, ("reload",))
        expect(b"tracing disabled\n")
        # Both are for the service alone.
        self.assert_succeeds(world, ("preservation", "-on"))
        self.assert_succeeds(world, ("preservation", "-off"))
        world.configuration.write_text(text)
        self.assert_succeeds(world, ("reload",))
        expect(b"tracing enabled\n")

    @in_every_combination
    def test_senders_of_both_sizes_wait_for_the_same_lock(self, holding, waiting, service):
        with World(holding, service) as world:
            world.start_service()
            # The second call gives the lock back.
            holder = world.start(["pause"], Fault("fcntl", 2, "1", "stop"))
            self.assertTrue(wait_until_stopped(holder))
            self.assert_locked_by(world.run_directory / SENDERS_LOCK, holder.pid)
            world.tool_build = waiting
            waiter = world.start(["pause"])
            self.wait_until_blocked(waiter, holder)
            # Its death gives the lock back as well.
            holder.kill()
            self.assertEqual(world.finish(holder).status, -signal.SIGKILL)
            result = world.finish(waiter)
            self.assertEqual((result.status, result.out, result.err),
                             (0, b"Pause tracing... succeeded.\n", BANNER))
            self.assertEqual(world.left_behind(),
                             [f"ZynServerMessageBuffer{holder.pid}.map",
                              f"ZynTraceBuffer{holder.pid}.map"])

    def assert_locked_by(self, path, pid):
        """Exactly the first byte, for writing."""
        layout = "hhqqi4x"
        with open(path, "r+b") as file:
            for start, length in ((0, 0), (1, 0)):
                asked = struct.pack(layout, fcntl.F_WRLCK, os.SEEK_SET, start, length, 0)
                found = struct.unpack(layout, fcntl.fcntl(file, fcntl.F_GETLK, asked))
                if start == 0:
                    self.assertEqual(found, (fcntl.F_WRLCK, os.SEEK_SET, 0, 1, pid))
                else:
                    self.assertEqual(found[0], fcntl.F_UNLCK)

    def wait_until_blocked(self, waiter, holder):
        """Until the kernel lists its request behind the lock of the holder."""
        blocked = re.compile(rf"^(\d+): POSIX .* {holder.pid} .*\n(?:\1: -> .*\n)*?"
                             rf"\1: -> POSIX .* {waiter.pid} ", re.MULTILINE)
        while not blocked.search(Path("/proc/locks").read_text()):
            self.assertIsNone(waiter.poll(), "it did not wait for the lock")
            os.sched_yield()


if __name__ == "__main__":
    unittest.main()
