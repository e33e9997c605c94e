#!/usr/bin/env python3
"""Lets the N-th call of each C library function fail, for N = 1, 2, ... until a run meets no fault,
once and from then on, with each error that matters, in a dozen scenarios of the tool. After each
run: status 0 or 255, a text from the known set, no file of the tool's own left behind, inputs as
they were, the umask as it was, the export a byte prefix of the right one and whole when the status
is 0.

Usage: fault_sweep.py [--whole] [--scenario NAME]... [--call NAME]...
Without --whole a sample is run: fewer errors and growing steps of N."""

import argparse
import errno
import gzip
import json
import os
import re
import shutil
import sys
from concurrent.futures import ThreadPoolExecutor

from world import BANNER, HALF_POLL_US, Fault, World, contents

# What a call may fail with. EINTR for ever is no failure but a machine that makes no progress.
ERRORS = {
    "open": [errno.ENOENT, errno.EACCES, errno.EMFILE, errno.ENOSPC],
    "openat": [errno.EACCES, errno.EMFILE, errno.ENOSPC],
    "read": [errno.EIO, errno.EINTR, "half", "zero"],
    "pread": [errno.EIO, errno.EINTR, "half", "zero"],
    "write": [errno.ENOSPC, errno.EIO, errno.EINTR, "half", "zero"],
    "pwrite": [errno.ENOSPC, errno.EIO, errno.EINTR, "half", "zero"],
    "close": [errno.EIO],
    "lseek": [errno.EIO],
    "stat": [errno.ENOENT, errno.EACCES],
    "fstat": [errno.EIO],
    "lstat": [errno.EACCES],
    "access": [errno.ENOENT, errno.EACCES],
    "ftruncate": [errno.EIO],
    "fallocate": [errno.ENOSPC, errno.EOPNOTSUPP, errno.EINTR],
    "mmap": [errno.ENOMEM, errno.EACCES],
    "munmap": [errno.EINVAL],
    "unlink": [errno.EACCES, errno.ENOENT],
    "unlinkat": [errno.EACCES, errno.ENOENT],
    "mkdir": [errno.EACCES, errno.ENOSPC],
    "opendir": [errno.ENOENT, errno.EACCES, errno.EMFILE],
    "readdir": [errno.EIO],
    "closedir": [errno.EIO],
    "fcntl": [errno.ENOLCK, errno.EINTR],
    "fwrite": [errno.EIO],
    "getrlimit": [errno.EINVAL],
    "setrlimit": [errno.EPERM],
    "gethostname": [errno.ENAMETOOLONG],
    "clock_gettime": [errno.EINVAL],
    "usleep": [errno.EINTR],
    "pthread_create": [errno.EAGAIN],
    "pthread_join": [errno.EDEADLK],
    "mutex_init": [errno.ENOMEM],
    "mutex_lock": [errno.EINVAL],
    "mutex_unlock": [errno.EPERM],
    "mutex_destroy": [errno.EBUSY],
    "malloc": [errno.ENOMEM],
    "calloc": [errno.ENOMEM],
    "realloc": [errno.ENOMEM],
}
ALLOCATION = {"malloc", "calloc", "realloc"}
# As many in a row as stand for "all" of these.
INTERRUPTIONS = "7"
# Short enough for thousands of runs, and mostly long enough for the service to answer meanwhile.
SLEEP_US = 4000

OS_TEXTS = {
    "export": ["Failed to open file for read", "Failed to seek to the end of the file",
               "Failed to query file pointer position",
               "Failed to seek to beginning of the file",
               "Error attempting to read file header",
               "Failed to seek to just after the file header", "Failed to read from file",
               "Can not read directory", "Can not open file", "Can not write file"],
    "clean": ["Can not read directory", "Can not delete file"],
}
OTHER_TEXTS = {
    "export": ["Memory allocation failed:Can not create new FileToBeRead object",
               "Memory allocation failed:Can not expand smart buffer"],
    "clean": ["Bad logic:Failed to open file", "Bad logic:Error document empty.",
              "Bad parameter:Invalid Attribute"],
    "pause": ["Pause Tracing...Failed \n"],
    "resume": ["Resume Tracing Failed \n"],
    "reload": ["Reloading Configuration Failed"],
    "preservation": ["Activating preservation mode...  Failed",
                     "Deactivating preservation mode ... Failed"],
}
PROGRESS = re.compile(rb"(?:[*.]{10}  \[ *\d+%\]\x08{18})*")


class Problem(Exception):
    """A run that did what it must not do."""


class Scenario:
    """One use of the tool, with a world of its own that is put back in order after each run."""

    def __init__(self, name, arguments, stdin=None, environment=None, sleep_us=None):
        self.name = name
        self.arguments = arguments
        self.command = arguments[0]
        self.input = stdin
        self.environment = environment
        self.sleep_us = sleep_us
        self.program = "zyntool"
        self.undisturbed = 0  # the status of a run without a fault

    def __enter__(self):
        self.world = World()
        self.prepare()
        self.reset()
        result = self.run(None, patient=True)
        if result.status != self.undisturbed or result.hits:
            raise Problem(f"{self.name}: fails without a fault: {result}")
        self.expected_out = result.out
        self.expected_err = result.err
        self.record()
        return self

    def __exit__(self, *_):
        self.world.__exit__()

    def run(self, fault, patient=False):
        """patient: it must succeed, also on a busy machine."""
        sleep_us = HALF_POLL_US if patient and self.sleep_us else self.sleep_us
        options = {}
        if self.input:
            self.world.root.joinpath("input").write_bytes(self.input)
            options["stdin"] = open(self.world.root / "input", "rb")
        try:
            return self.world.run(self.arguments, fault, sleep_us,
                                  environment=self.environment, program=self.program, **options)
        finally:
            if options:
                options["stdin"].close()

    def prepare(self):
        """Makes the world."""

    def reset(self):
        """Puts it in order for the next run."""

    def record(self):
        """Keeps what an undisturbed run has made."""

    def check(self, fault, result):
        if result.timed_out or result.status not in (0, 255):
            raise Problem("hangs" if result.timed_out else f"status {result.status}")
        if "umask" in result.hits:
            raise Problem("umask changed")
        # A stream whose write fails once says nothing more.
        if fault.call != "fwrite":
            self.check_streams(fault, result)
        self.check_files(fault, result)

    def check_streams(self, fault, result):
        failure = result.failure()
        if (failure is None) != (result.status == 0):
            raise Problem(f"status {result.status}, failure {failure!r}")
        if result.status == 0:
            return self.check_success_streams(fault, result)
        self.check_failure_text(fault, failure)
        talk = result.err[:result.err.rfind(b"Operation failed.")]
        if not talk.startswith(BANNER) or not self.is_talk(talk[len(BANNER):]):
            raise Problem(f"standard error {result.err!r}")
        if not self.expected_out.startswith(result.out):
            raise Problem(f"standard output {result.out!r}")

    def check_success_streams(self, fault, result):
        if result.out != self.expected_out or not self.is_talk(result.err[len(BANNER):]):
            raise Problem(f"success, but says {result.out!r} {result.err!r}")

    def is_talk(self, text):
        """What the command itself may say on standard error."""
        return text == self.expected_err[len(BANNER):]

    def check_failure_text(self, fault, failure):
        if failure == "std::bad_alloc":
            if fault.call not in ALLOCATION:
                raise Problem("std::bad_alloc without want of memory")
            return
        if failure in OTHER_TEXTS.get(self.command, ()):
            return
        match = re.fullmatch(r"(.*) \[OS call failed:(\d+)\(([^()]*)\)\]", failure)
        if not match or match[1] not in OS_TEXTS.get(self.command, ()):
            raise Problem(f"unknown text {failure!r}")
        number = int(match[2])
        # A short count that stays short is reported with the errno of no error, or as EIO.
        fitting = [fault.action, "0"] if fault.action.isdigit() else ["0", str(errno.EIO)]
        if str(number) not in fitting or match[3] != os.strerror(number):
            raise Problem(f"wrong error number in {failure!r}")

    def check_files(self, fault, result):
        """Whether the directories hold what they should."""


class Export(Scenario):
    def __init__(self, name, arguments, log, configured=False, **options):
        super().__init__(name, ["export", *arguments], **options)
        self.log_options = log
        self.configured = configured

    def prepare(self):
        self.world.generate_log(*self.log_options)
        self.inputs = contents(self.world.log)
        self.stamps = self.stamp()

    def stamp(self):
        return {entry.name: (entry.stat().st_size, entry.stat().st_mtime_ns)
                for entry in os.scandir(self.world.log)}

    def reset(self):
        for entry in self.world.out.iterdir():
            entry.unlink()

    def record(self):
        self.expected = contents(self.world.out)
        if not any(text.count(b"\n") > 20 for text in self.expected.values()):
            raise Problem(f"{self.name}: exports too little")

    def is_talk(self, text):
        return "-silent" not in self.arguments and PROGRESS.fullmatch(text) or not text

    def nothing_is_listed(self, fault, result):
        """A directory that cannot be opened has no files, and so has a configuration that cannot be
        read: both are no error."""
        return result.status == 0 and (fault.call == "opendir" or self.configured)

    def check_files(self, fault, result):
        outputs = contents(self.world.out)
        empty = self.nothing_is_listed(fault, result)
        if not set(outputs) <= set(self.expected):
            raise Problem(f"files {sorted(outputs)}")
        if result.status == 0 and not empty and set(outputs) != set(self.expected):
            raise Problem(f"only the files {sorted(outputs)}")
        for name, text in outputs.items():
            right = self.expected[name]
            header = right[:right.index(b"\n") + 1]
            if not right.startswith(text):
                raise Problem(f"{name} is no prefix of the right export")
            if result.status == 0 and text != right and not (empty and text == header):
                raise Problem(f"{name} is cut, and the status is 0")
        if self.stamp() != self.stamps:
            raise Problem("an input file has changed")

    def __exit__(self, *exception):
        changed = contents(self.world.log) != self.inputs
        super().__exit__(*exception)
        if changed:
            raise Problem(f"{self.name}: an input file has changed")


class Verify(Scenario):
    """zynlog-verify: status 0 with the report of an undisturbed run, or 2 with a word of why, and
    nothing touched. It promises no records that it could not read."""

    def __init__(self, name, arguments):
        super().__init__(name, arguments)
        self.program = "zynlog-verify"

    def prepare(self):
        self.world.generate_log(*SPANNING)
        self.inputs = contents(self.world.log)

    def check(self, fault, result):
        if result.timed_out or result.status not in (0, 2):
            raise Problem("hangs" if result.timed_out else f"status {result.status}")
        if result.status == 0 and (result.out, result.err) != (self.expected_out, b""):
            raise Problem(f"success, but says {result.out!r} {result.err!r}")
        # A stream whose write fails once says nothing more.
        if result.status == 2 and fault.call not in ("fwrite", "write") and not self.says_why(result):
            raise Problem(f"status 2 without a word: {result.out!r} {result.err!r}")
        if contents(self.world.log) != self.inputs or contents(self.world.out):
            raise Problem("a file has changed")

    def says_why(self, result):
        said = result.err.startswith(b"zynlog-verify: ") and result.err.endswith(b"\n")
        return said or b"could not be read\n" in result.out or b'"unreadable":true' in result.out


class Salvage(Scenario):
    """zynlog-verify --salvage of a damaged log: status 1 with the whole copy and its report, or 2 with a
    word of why. What there is of a copy then are whole files, and the log is as it was."""

    def __init__(self, name, arguments, compressed=False):
        super().__init__(name, [*arguments, "--salvage", "copy", "../log"])
        self.program = "zynlog-verify"
        self.undisturbed = 1
        self.compressed = compressed

    def prepare(self):
        self.world.generate_log(*SPANNING)
        logs = sorted(self.world.log.iterdir())
        broken = bytearray(logs[1].read_bytes())
        middle = len(broken) // 2
        broken[middle:middle + 300] = bytes(300)
        logs[1].write_bytes(broken)
        os.truncate(logs[2], logs[2].stat().st_size - 100)
        if self.compressed:
            for path in logs:
                path.with_name(path.name + ".gz").write_bytes(gzip.compress(path.read_bytes()))
                path.unlink()
        self.inputs = contents(self.world.log)

    def reset(self):
        shutil.rmtree(self.copy(), ignore_errors=True)

    def copy(self):
        return self.world.out / "copy"

    def record(self):
        self.expected = contents(self.copy())
        if len(self.expected) != 3 or self.expected_err:
            raise Problem(f"{self.name}: salvages too little")

    def check_copy(self):
        """Where a file of the log was missing, the copy holds less, but nothing that is cut or damaged."""
        report = json.loads(self.world.run(["-j", "copy"], program=self.program).out)
        kinds = {item["kind"] for log in report["logs"] for item in log["items"] if item["type"] == "finding"}
        if kinds - {"gap", "duplicate", "order", "stray", "restart"}:
            raise Problem(f"the copy is damaged: {sorted(kinds)}")

    def check(self, fault, result):
        if result.timed_out or result.status not in (1, 2):
            raise Problem("hangs" if result.timed_out else f"status {result.status}")
        files = contents(self.copy()) if self.copy().exists() else {}
        said = result.err.startswith(b"zynlog-verify: ") and result.err.endswith(b"\n")
        # A file that ends early for once is taken to be so.
        whole = result.status == 1 and not (fault.action == "zero" and said)
        if whole and (result.out, result.err, files) != (self.expected_out, b"", self.expected):
            raise Problem(f"success, but says {result.out!r} {result.err!r}, copies {sorted(files)}")
        # A stream whose write fails once says nothing more.
        if result.status == 2 and fault.call not in ("fwrite", "write") and not said:
            raise Problem(f"status 2 without a word: {result.out!r} {result.err!r}")
        # A file whose removal fails stays.
        if files.items() - self.expected.items() and fault.call != "unlinkat":
            self.check_copy()
        if contents(self.world.log) != self.inputs or set(os.listdir(self.world.out)) - {"copy"}:
            raise Problem("a file has changed")


class Cat(Scenario):
    """zynlog-cat: status 0 with the whole output, or 2 with a word of why, and nothing
    touched."""

    def __init__(self, name, arguments):
        super().__init__(name, [*arguments, "../log"])
        self.program = "zynlog-cat"

    def prepare(self):
        self.world.generate_log(*SPANNING)
        self.inputs = contents(self.world.log)

    def record(self):
        if self.expected_err or self.expected_out.count(b"\n") < 5:
            raise Problem(f"{self.name}: shows too little")

    def check(self, fault, result):
        if result.timed_out or result.status not in (0, 1, 2):
            raise Problem("hangs" if result.timed_out else f"status {result.status}")
        if result.status == 0 and (result.out, result.err) != (self.expected_out, b""):
            raise Problem(f"success, but says {result.out!r} {result.err!r}")
        # A stream whose write fails once says nothing more.
        said = result.err.startswith(b"zynlog-cat: ") and result.err.endswith(b"\n")
        if result.status != 0 and fault.call not in ("fwrite", "write") and not said:
            raise Problem(f"status {result.status} without a word: {result.err!r}")
        # A file that ends early for once is taken to be so.
        if result.status == 1 and fault.action != "zero":
            raise Problem(f"damage in a good log: {result.err!r}")
        if contents(self.world.log) != self.inputs or contents(self.world.out):
            raise Problem("a file has changed")


class Clean(Scenario):
    def prepare(self):
        self.world.generate_log("--records", "9", "--files", "3")
        (self.world.log / "kept.txt").write_text("not a log")
        self.logs = contents(self.world.log)

    def reset(self):
        for name, content in self.logs.items():
            if not (self.world.log / name).exists():
                (self.world.log / name).write_bytes(content)

    def is_talk(self, text):
        return self.expected_err[len(BANNER):].startswith(text)

    def check_files(self, fault, result):
        left = contents(self.world.log)
        if any(self.logs.get(name) != content for name, content in left.items()):
            raise Problem("a file has changed")
        if "kept.txt" not in left:
            raise Problem("a file that is no log was deleted")
        everything = len(left) == 1
        if result.status == 0 and not everything and fault.call != "opendir":
            raise Problem(f"status 0, but {sorted(left)} are left")


class Control(Scenario):
    """A command that talks to the service. Its failures go to the system log; the console
    has one text for all of them."""

    def __init__(self, name, arguments, diagnostic=False):
        super().__init__(name, arguments, sleep_us=SLEEP_US,
                         environment={"DIAGNOSTIC_MODE": "1"} if diagnostic else None)

    def prepare(self):
        self.world.start_service(watched=False)

    def reset(self):
        if not self.world.service_runs():
            raise Problem("the service has died")
        for name in self.world.left_behind():
            (self.world.run_directory / name).unlink()

    def record(self):
        if self.world.left_behind() not in ([], ["trace.txt"]):
            raise Problem(f"leaves {self.world.left_behind()}")

    def check(self, fault, result):
        # Kept as is: a lock file that cannot be opened leaves the umask at 0.
        if fault.call == "open" and "umask" in result.hits:
            result.hits.remove("umask")
        super().check(fault, result)

    def check_success_streams(self, fault, result):
        if self.command == "test":
            known = re.fullmatch(
                rb'ZYN module handle for "Net" is (-1|\d+)\n'
                rb'ZYN label handle for "Info" is (-1|\d+)\n'
                rb'ZYN tracing status with module "Net", client "c" and label "Info" is '
                rb'(en|dis)abled.\n', result.out)
            if not known or result.err != BANNER:
                raise Problem(f"says {result.out!r} {result.err!r}")
        else:
            super().check_success_streams(fault, result)

    def check_files(self, fault, result):
        left = self.world.left_behind()
        if "trace.txt" in left and self.environment:
            left.remove("trace.txt")
        # A file whose removal fails stays. And a client whose mutex cannot be locked is not taken
        # down: another thread may be at work with it.
        allowed = result.hits.count("unlink")
        if len(left) > allowed and fault.call != "mutex_lock":
            raise Problem(f"leaves {left}")


SMALL = ["--records", "60", "--files", "1", "--block-bytes", "2000-3000"]
SPANNING = ["--records", "90", "--files", "3", "--block-bytes", "2000-3000", "--span"]
# More text than the output buffer holds.
LARGE = ["--records", "1500", "--files", "2", "--order", "window"]
# Blocks of more records than are held to be put in order, larger than the input buffer.
BLOCKS = ["--records", "4000", "--block-bytes", "400000-500000", "--message", "20-60",
          "--order", "window"]


def scenarios():
    return [
        Export("export-one", ["-d", "../log", "-f", "all.txt", "-silent"], SMALL),
        Export("export-spanning", ["-d", "../log", "-f", "all.txt", "-silent", "-l", "|"], SPANNING),
        Export("export-large", ["-d", "../log", "-f", "-silent"], LARGE),
        Export("export-blocks", ["-d", "../log", "-f", "all.txt", "-silent"], BLOCKS),
        Export("export-many", ["-d", "../log", "-m", ".", "-silent"],
               ["--records", "120", "--files", "3"]),
        Export("export-source", ["-s", "../log/zynlog-0001.txt", "-silent"], SMALL),
        Export("export-progress", ["-d", "../log", "-f", "all.txt"], SPANNING),
        Export("export-configured", ["-f", "all.txt", "-silent"], SMALL, configured=True),
        Verify("verify", ["../log"]),
        Verify("verify-json", ["-j", "-b", "--live", "../log"]),
        Salvage("salvage", []),
        Salvage("salvage-compressed", ["-j"], compressed=True),
        Cat("cat-short", ["-o", "short"]),
        Cat("cat-json", ["-o", "json"]),
        Cat("cat-merge", ["--merge"]),
        Cat("cat-lines", ["-n", "7"]),
        Clean("clean-forced", ["clean", "-f"]),
        Clean("clean-asked", ["clean"], stdin=b"maybe\ny\n"),
        Control("pause", ["pause"]),
        Control("resume-diagnostic", ["resume"], diagnostic=True),
        Control("reload", ["reload"]),
        Control("preservation", ["preservation", "-on"]),
        Control("test", ["test", "-m", "Net", "-l", "Info", "-c", "c"]),
    ]


def numbers(whole):
    """Which calls fail: all of them, or 1, 2, 3, 5, 8, 13, ..."""
    this, following = 1, 2
    while True:
        yield this
        this, following = following, following + 1 if whole else this + following


def sweep_call(scenario, call, whole, count):
    """Fails the calls of one function; returns the problems."""
    problems = []
    errors = ERRORS[call]
    for at, error in enumerate(errors):
        if not whole and at != hash_of(scenario.name, call) % len(errors):
            continue
        for times in ("1", INTERRUPTIONS if error == errno.EINTR else "all"):
            for first in numbers(whole):
                fault = Fault(call, first, times, str(error))
                scenario.reset()
                result = scenario.run(fault)
                count[0] += 1
                try:
                    scenario.check(fault, result)
                except Problem as problem:
                    problems.append(f"{scenario.name}: {fault}: {problem}")
                if call not in result.hits:
                    break
    return problems


def hash_of(*texts):
    """The same in every run, unlike Python's own."""
    return sum(sum(text.encode()) for text in texts)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--whole", action="store_true")
    parser.add_argument("--no-allocation", action="store_true")
    parser.add_argument("--scenario", action="append")
    parser.add_argument("--call", action="append")
    arguments = parser.parse_args()
    calls = [call for call in arguments.call or ERRORS
             if not (arguments.no_allocation and call in ALLOCATION)]

    def sweep(scenario):
        count = [0]
        problems = []
        with scenario:
            for call in calls:
                problems += sweep_call(scenario, call, arguments.whole, count)
        return scenario.name, count[0], problems

    chosen = [s for s in scenarios() if not arguments.scenario or s.name in arguments.scenario]
    failed = False
    with ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        for name, count, problems in pool.map(sweep, chosen):
            print(f"{name}: {count} runs, {len(problems)} problems", flush=True)
            for problem in problems:
                print("   ", problem[:400])
            failed |= bool(problems)
    return 1 if failed or not chosen else 0


if __name__ == "__main__":
    sys.exit(main())
