"""The service killed, stopped or restarted at each step of its dialogue with the tool, the tool
killed at each of its own, and every bad state of the files between them. Whatever happened, the
command ends with success or the one failure text in its number of polls, and the next undisturbed
`pause` works."""

import os
import signal
import unittest

from world import BANNER, HALF_POLL_US, PATIENCE_SECONDS, Fault, World, wait_until_stopped

SUCCESS = b"Pause tracing... succeeded.\n"
FAILURE = "Pause Tracing...Failed \n"
# A poll, much shortened, for runs that need not succeed.
SHORT_POLL_US = 5000
STEPS = ["registration", "confirm", "request", "order", "unregistration"]
# Counts the sleeps of the thread that runs the command, and touches nothing.
COUNT_POLLS = Fault("usleep", 1, "all", "0", thread="main")
# For the confirmation of a registration, of a request and of an un-registration, each.
POLLS = 20
# 4.5 s of 100 ms, less one for each of the two threads that is waited for at the end: whoever is
# dead, silent or hostile is waited for once while it registers, or twice after that.
MOST_POLLS = 45 - 2
# A service that confirms each step at the last moment can take all three waits: 6 s.
MOST_POLLS_IN_TIME = 3 * POLLS


class KillMatrix(unittest.TestCase):
    def setUp(self):
        self.world = self.enterContext(World())

    def assert_ended_properly(self, result):
        self.assertFalse(result.timed_out)
        self.assertIn(result.status, (0, 255))
        if result.status == 0:
            self.assertEqual((result.out, result.err), (SUCCESS, BANNER))
        else:
            self.assertEqual(result.out, b"Pause tracing... ")
            self.assertEqual(result.failure(), FAILURE)

    def assert_pause_works(self):
        """Undisturbed, with a service that runs."""
        result = self.world.run(["pause"], sleep_us=HALF_POLL_US)
        self.assertEqual((result.status, result.out, result.err), (0, SUCCESS, BANNER))

    def assert_nothing_left(self):
        self.assertEqual(self.world.left_behind(), [])

    def fresh_service(self, *options, watched=False):
        self.world.kill_service()
        self.world.clear_run_directory()
        self.world.start_service(*options, watched=watched)

    def pause_with_a_service(self, *options, poll_us):
        """A pause that meets a fresh service of these options, and ends within its polls. Where the
        service got no processor for some of them, as happens on a busy machine, it is made again with
        polls of their full length."""
        for sleep_us in (poll_us, None):
            self.fresh_service(*options)
            result = self.world.run(["pause"], COUNT_POLLS, sleep_us)
            self.assert_ended_properly(result)
            if len(result.hits) <= MOST_POLLS:
                break
        self.assertLessEqual(len(result.hits), MOST_POLLS)
        return result


class ServiceTest(KillMatrix):
    """What the service does to the tool."""

    def test_service_dies_at_each_step(self):
        for step in STEPS:
            with self.subTest(step=step):
                result = self.pause_with_a_service("--die-at", step, poll_us=HALF_POLL_US)
                self.assertEqual(result.status == 0, step == "unregistration")
                self.assert_nothing_left()
                # The files of the dead service are still there.
                result = self.world.run(["pause"], sleep_us=SHORT_POLL_US)
                self.assertEqual(result.failure(), FAILURE)
                self.world.kill_service()
                self.world.start_service(watched=False)
                self.assert_pause_works()

    def test_service_stops_at_each_step_and_goes_on(self):
        for step in STEPS:
            with self.subTest(step=step):
                self.pause_with_a_service("--stop-at", step, poll_us=HALF_POLL_US)
                self.assert_nothing_left()
                self.world.service.send_signal(signal.SIGCONT)
                self.assert_pause_works()

    def test_service_is_restarted_at_each_step(self):
        for step in STEPS:
            with self.subTest(step=step):
                self.fresh_service("--die-at", step)
                tool = self.world.start(["pause"], sleep_us=HALF_POLL_US)
                self.world.service.wait(PATIENCE_SECONDS)
                self.world.start_service(watched=False)
                self.assert_ended_properly(self.world.finish(tool))
                self.assertEqual([name for name in self.world.left_behind()
                                  if name.endswith(f"{tool.pid}.map")], [])
                self.assert_pause_works()

    def test_service_that_does_not_answer_is_polled_no_oftener_than_said(self):
        for options, least, most in ((["--silent"], POLLS, POLLS),
                                     (["--die-at", "registration"], POLLS, POLLS),
                                     # It may take some polls to be registered.
                                     (["--confirm-registration-only"], 2 * POLLS, MOST_POLLS)):
            with self.subTest(options=options):
                result = self.pause_with_a_service(*options, poll_us=HALF_POLL_US)
                self.assertEqual(result.failure(), FAILURE)
                self.assertGreaterEqual(len(result.hits), least)
                self.assertLessEqual(len(result.hits), most)

    def test_service_that_is_late_with_everything_is_polled_no_oftener_than_that(self):
        for polls in (10, 15, 19, 25):
            with self.subTest(polls=polls):
                self.fresh_service("--late", str(polls * SHORT_POLL_US // 1000))
                result = self.world.run(["pause"], COUNT_POLLS, SHORT_POLL_US)
                self.assert_ended_properly(result)
                self.assertLessEqual(len(result.hits), MOST_POLLS_IN_TIME)

    def test_service_that_fails_in_each_way_costs_no_more_than_its_polls(self):
        for options in (["--silent"], ["--flood"], ["--unknown-types"],
                        ["--truncated-message"], ["--long-frame", "70000"],
                        ["--frames-of-kind", "5"], ["--split"],
                        ["--bad-positions", "4000000000,3"], ["--bad-positions", "3,4000000000"]):
            with self.subTest(options=options):
                self.pause_with_a_service(*options, poll_us=SHORT_POLL_US)
                self.assert_nothing_left()
                self.fresh_service()
                self.assert_pause_works()


class ToolTest(KillMatrix):
    """What becomes of the next command when one is killed."""

    def steps(self, calls):
        """One fault per call that a `pause` makes, of each of these functions."""
        for call in calls:
            counted = self.world.run(["pause"], Fault(call, 1, "all", "0"), HALF_POLL_US)
            self.assertEqual(counted.status, 0)
            self.assertTrue(counted.hits, call)
            for first in range(1, len(counted.hits) + 1):
                yield call, first

    def kill(self, call, first):
        """A pause that is killed ahead of that call. On a busy machine the service may answer too late
        for short polls, and the tool gives up on the way there: it then gets longer ones."""
        fault = Fault(call, first, "1", "kill")
        result = self.world.run(["pause"], fault, SHORT_POLL_US)
        if result.status == 255:
            self.assert_ended_properly(result)
            result = self.world.run(["pause"], fault, HALF_POLL_US)
        return result

    def test_tool_is_killed_ahead_of_each_system_call(self):
        self.fresh_service()
        for call, first in self.steps(["open", "access", "read", "stat", "lseek", "ftruncate",
                                       "fallocate", "mmap", "fcntl", "munmap", "close", "unlink",
                                       "usleep", "pthread_create", "pthread_join"]):
            with self.subTest(call=call, first=first):
                result = self.kill(call, first)
                # How often the threads sleep and look is a matter of luck.
                if result.status != -signal.SIGKILL:
                    self.assertIn(call, ("access", "stat", "usleep"))
                    self.assert_ended_properly(result)
                # Regions of its own, and the lock file, which the next one takes over.
                self.assertLessEqual(set(self.world.left_behind()), {
                    "ZynServerMessageLock.lck", f"ZynTraceBuffer{result.pid}.map",
                    f"ZynServerMessageBuffer{result.pid}.map"})
                self.assertTrue(self.world.service_runs())
                for name in self.world.left_behind():
                    if name.endswith(".map"):
                        (self.world.run_directory / name).unlink()
        self.assert_pause_works()

    def test_pause_works_after_the_tool_was_killed_at_each_step_of_sending(self):
        self.fresh_service()
        for call, first in self.steps(["fcntl", "unlink", "ftruncate"]):
            with self.subTest(call=call, first=first):
                result = self.kill(call, first)
                self.assertEqual(result.status, -signal.SIGKILL)
                self.assert_pause_works()
                self.assertNotIn("ZynServerMessageLock.lck", self.world.left_behind())

    def cut(self, fault, regions, poll_us=SHORT_POLL_US):
        """Cuts these regions while the tool stands at that call; returns whether it came there."""
        tool = self.world.start(["pause"], fault, poll_us)
        stopped = wait_until_stopped(tool)
        if stopped:
            self.world.service.send_signal(signal.SIGSTOP)
            for path in self.world.run_directory.glob(regions):
                os.truncate(path, 0)
            tool.send_signal(signal.SIGCONT)
        self.assert_ended_properly(self.world.finish(tool))
        self.fresh_service()
        return stopped

    def test_region_of_the_service_is_cut_under_the_tool(self):
        self.fresh_service()
        for call in ("fcntl", "fstat", "mmap"):
            counted = self.world.run(["pause"], Fault(call, 1, "all", "0", "main"), HALF_POLL_US)
            self.assertTrue(counted.hits, call)
            for first in range(1, len(counted.hits) + 1):
                with self.subTest(call=call, first=first):
                    self.cut(Fault(call, first, "1", "stop", "main"), "ZynServerMessageBuffer.map")
        self.assert_pause_works()

    def cut_at_each_look(self, how, pattern, looks):
        """looks: how many there are at most, on the main thread, which registers, and on the one that
        then reads the ring."""
        self.fresh_service()
        for thread, most in zip(("main", "other"), looks):
            for first in range(1, most + 1):
                with self.subTest(thread=thread, first=first):
                    fault = Fault("fstat", first, "1", how, thread)
                    # On a busy machine short polls may end before the service has answered.
                    self.assertTrue(self.cut(fault, pattern) or first > 1
                                    or self.cut(fault, pattern, HALF_POLL_US))
        self.assert_pause_works()

    def test_regions_of_the_tool_are_cut_under_it(self):
        self.cut_at_each_look("stop", "Zyn*[0-9].map", (4, 6))

    def test_regions_are_cut_between_the_look_and_the_access(self):
        self.cut_at_each_look("stop-behind", "Zyn*.map", (6, 6))


class FileStateTest(KillMatrix):
    """What may stand in the run directory instead of the service's files."""

    def try_states(self, name, states, harmless=()):
        for state, make in states.items():
            with self.subTest(file=name, state=state):
                self.fresh_service()
                path = self.world.run_directory / name
                path.unlink(missing_ok=True)
                make(path)
                self.world.service_files.add(name)
                succeeds = state in harmless
                result = self.world.run(["pause"], COUNT_POLLS,
                                        HALF_POLL_US if succeeds else SHORT_POLL_US)
                self.assert_ended_properly(result)
                self.assertLessEqual(len(result.hits), MOST_POLLS)
                self.assertEqual(result.status, 0 if succeeds else 255)
                self.assert_nothing_left()
        self.fresh_service()
        self.assert_pause_works()

    def states(self):
        return {
            "missing": lambda path: None,
            "empty": lambda path: path.write_bytes(b""),
            "directory": lambda path: path.mkdir(),
            "pipe": os.mkfifo,
            "dangling": lambda path: path.symlink_to("nowhere/at/all"),
            "loop": lambda path: path.symlink_to(path.name),
        }

    def sized(self, size, fill=b""):
        def make(path):
            path.write_bytes(fill)
            os.truncate(path, size)
        return make

    def test_pid_file(self):
        states = self.states() | {
            "garbage": lambda path: path.write_bytes(bytes(range(256)) * 20),
            "zero": lambda path: path.write_text("0\n"),
            "negative": lambda path: path.write_text("-1\n"),
            "too large": lambda path: path.write_text("4294967296\n"),
            "far too large": lambda path: path.write_text("9" * 5000),
            "stale": lambda path: path.write_text("4194999\n"),
            "no service": lambda path: path.write_text(f"{os.getpid()}x"),
            "huge": self.sized(1 << 40, b"\0"),
        }
        # Whoever has that id: the service is known by its answers alone, and it runs.
        self.try_states("ZynService.pid", states, harmless=["no service"])

    def test_lock_file_of_the_service(self):
        # Its being there is all that counts.
        self.try_states("ZynService.lck", self.states(), harmless=["empty", "directory", "pipe"])

    def test_lock_file_of_the_senders(self):
        states = self.states() | {"huge": self.sized(1 << 40)}
        for state in ("directory", "pipe"):
            del states[state]
        self.try_states("ZynServerMessageLock.lck", states, harmless=["missing", "empty", "huge"])

    def test_lock_file_of_the_senders_that_is_none(self):
        self.fresh_service()
        lock = self.world.run_directory / "ZynServerMessageLock.lck"
        lock.mkdir()
        self.assertEqual(self.world.run(["pause"]).failure(), FAILURE)
        lock.rmdir()
        os.mkfifo(lock)
        self.assert_ended_properly(self.world.run(["pause"], sleep_us=SHORT_POLL_US))
        lock.unlink(missing_ok=True)
        self.assert_nothing_left()
        self.assert_pause_works()

    def test_region_of_the_service(self):
        states = self.states() | {
            "shorter than its header": self.sized(11),
            "a byte too short": self.sized(523),
            "not the service's": self.sized(524, b"\xff" * 524),
            "more than 4 GiB": self.sized((1 << 32) + 524),
        }
        self.try_states("ZynServerMessageBuffer.map", states)

    def test_region_of_the_sequence_numbers(self):
        states = self.states() | {"short": self.sized(3), "more than 4 GiB": self.sized(1 << 33),
                                  "garbage": self.sized(4096, b"\xa5" * 4096)}
        self.try_states("ZynRecordSequenceNumberSeed.map", states, harmless=["garbage"])

    def test_regions_of_the_tool_that_are_in_its_way(self):
        self.fresh_service()
        run_directory = self.world.run_directory

        for region in ("ZynServerMessageBuffer", "ZynTraceBuffer"):
            with self.subTest(region=region, state="directory"):
                tool = self.world.start(
                    ["pause"], preexec_fn=lambda: os.mkdir(
                        run_directory / f"{region}{os.getpid()}.map"))
                self.assertEqual(self.world.finish(tool).failure(), FAILURE)
                self.assertEqual(self.world.left_behind(), [f"{region}{tool.pid}.map"])
                (run_directory / f"{region}{tool.pid}.map").rmdir()
            with self.subTest(region=region, state="left by a dead process of the same id"):
                def leave():
                    path = run_directory / f"{region}{os.getpid()}.map"
                    path.write_bytes(b"\xff" * 3000000)
                result = self.world.finish(self.world.start(["pause"], preexec_fn=leave))
                self.assertEqual((result.status, result.out), (0, SUCCESS))
                self.assert_nothing_left()

    def test_run_directory_that_is_not_there(self):
        self.world.run_directory.rmdir()
        self.world.service_files = set()
        self.assertEqual(self.world.run(["pause"]).failure(), FAILURE)
        self.world.run_directory.mkdir()
        self.fresh_service()
        self.assert_pause_works()


if __name__ == "__main__":
    unittest.main()
