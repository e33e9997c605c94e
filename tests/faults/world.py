"""A private world for the built programs: directories, a log, a configuration, the stand-in service,
and runs of the tool in it, with faults preloaded if wanted. Shared by the tests of this folder."""

import os
import shutil
import signal
import subprocess
import tempfile
from dataclasses import dataclass, field
from pathlib import Path


@dataclass(frozen=True)
class Build:
    """The programs of one build tree."""
    bin: Path

    @property
    def tool(self):
        return self.bin / "zyntool"

    @property
    def fault_preload(self):
        return self.bin.parent / "lib" / "libzyn_fault_preload.so"


BUILD = Build(Path(os.environ["ZYN_BIN"]))
BIN = BUILD.bin
TOOL = BUILD.tool
BANNER = b"Runtime Tracing Command Line Utility 3.0\n" + b"-" * 54 + b"\n"
PATIENCE_SECONDS = 60
# A poll for runs that must succeed: the service has a second for each answer.
HALF_POLL_US = 50000

CONFIGURATION = """<?xml version="1.0"?>
<ZYNConfig trace="1">
    <Logfile path="$(KORVA_VANTOREL_DIR)/log" size="10" maxbackups="5" preserve_size="10"
             preserve_maxbackups="5" log_format="binary"/>
    <Global><GLabel name="Info" state="1"/></Global>
    <Module name="Net" state="1"><MLabel name="Info" state="1"/></Module>
</ZYNConfig>
"""


@dataclass
class Fault:
    """One fault for the preloaded library (testing/faults/FaultPreload.cpp)."""
    call: str
    first: int
    count: str
    action: str
    thread: str = ""  # "main" or "other": only calls of these

    def __str__(self):
        return f"{self.call} {self.first} {self.count} {self.action}"


@dataclass
class Result:
    status: int  # negative: the signal that ended it
    out: bytes
    err: bytes
    timed_out: bool = False
    hits: list = field(default_factory=list)
    pid: int = 0

    def failure(self):
        """The text after "Error description:", None when nothing failed."""
        marker = b"Operation failed.\nError description:"
        at = self.err.rfind(marker)
        return None if at == -1 else self.err[at + len(marker):].removesuffix(b"\n").decode()


class World:
    """`root` is KORVA_VANTOREL_DIR; the log lies in root/log, the service's files in root/temp/ZYN,
    and the tool runs in root/out. The two sides may come from different builds."""

    def __init__(self, tool_build=BUILD, service_build=BUILD):
        self.tool_build = tool_build
        self.service_build = service_build
        self.root = Path(tempfile.mkdtemp(prefix="zynfaults-"))
        self.log = self.root / "log"
        self.run_directory = self.root / "temp" / "ZYN"
        self.out = self.root / "out"
        for path in (self.log, self.run_directory, self.out, self.root / "cfg"):
            path.mkdir(parents=True)
        self.configuration = self.root / "cfg" / "ZynConfigLinux.xml"
        self.configuration.write_text(CONFIGURATION)
        self.hits = self.root / "hits"
        self.service = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop_service()
        for directory, _, _ in os.walk(self.root):
            os.chmod(directory, 0o700)
        shutil.rmtree(self.root)

    def generate_log(self, *options):
        subprocess.run([BIN / "zynloggen", "--out", self.log, "--replace", *options], check=True,
                       stdout=subprocess.DEVNULL)

    def environment(self, fault=None, sleep_us=None, **more):
        variables = {"TZ": "UTC0", "KORVA_VANTOREL_CFG": str(self.root),
                     "KORVA_VANTOREL_DIR": str(self.root)}
        for name in ("ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"):
            if name in os.environ:
                variables[name] = os.environ[name]
        if fault or sleep_us:
            variables["LD_PRELOAD"] = str(self.tool_build.fault_preload)
            variables["ZYN_FAULT_LOG"] = str(self.hits)
            # The sanitizer's own library must be loaded first; this check of it can be switched off.
            variables["ASAN_OPTIONS"] = ":".join(
                filter(None, [variables.get("ASAN_OPTIONS"), "verify_asan_link_order=0"]))
        if fault:
            variables |= {"ZYN_FAULT_CALL": fault.call, "ZYN_FAULT_FIRST": str(fault.first),
                          "ZYN_FAULT_COUNT": fault.count, "ZYN_FAULT_ACTION": fault.action}
            if fault.thread:
                variables["ZYN_FAULT_THREAD"] = fault.thread
        if sleep_us:
            variables["ZYN_FAULT_SLEEP"] = str(sleep_us)
        return variables | more

    def start(self, arguments, fault=None, sleep_us=None, environment=None, program="zyntool", **options):
        """The tool, or another program of its build, as a process; the caller collects it."""
        options.setdefault("stdin", subprocess.DEVNULL)
        options.setdefault("stdout", subprocess.PIPE)
        options.setdefault("stderr", subprocess.PIPE)
        options.setdefault("cwd", self.out)
        return subprocess.Popen([self.tool_build.bin / program, *arguments], **options,
                                env=self.environment(fault, sleep_us, **(environment or {})))

    def run(self, arguments, fault=None, sleep_us=None, **options):
        self.hits.unlink(missing_ok=True)
        return self.finish(self.start(arguments, fault, sleep_us, **options))

    def finish(self, process):
        timed_out = False
        try:
            out, err = process.communicate(timeout=PATIENCE_SECONDS)
        except subprocess.TimeoutExpired:
            timed_out = True
            process.kill()
            out, err = process.communicate()
        hits = self.hits.read_text().split() if self.hits.exists() else []
        return Result(process.returncode, out or b"", err or b"", timed_out, hits,
                      process.pid)

    def start_service(self, *options, watched=True):
        """zyn-standin-service on the run directory; returns when it is up. Watched, its lines are there
        to be read, and must be: it waits when nobody does."""
        self.stop_service()
        ready, written = os.pipe()
        try:
            self.service = subprocess.Popen(
                [self.service_build.bin / "zyn-standin-service", "--run-dir", self.run_directory,
                 "--ready-fd", str(written), *options],
                stdout=subprocess.PIPE if watched else subprocess.DEVNULL, pass_fds=[written])
        finally:
            os.close(written)
        try:
            if not os.read(ready, 1):
                raise RuntimeError("the service did not start")
        finally:
            os.close(ready)
        self.service_files = set(os.listdir(self.run_directory))

    def service_runs(self):
        return self.service is not None and self.service.poll() is None

    def wait_for_service_line(self, text):
        """Reads what the service prints up to a line that ends so."""
        for line in self.service.stdout:
            if line.rstrip().endswith(text.encode()):
                return
        raise AssertionError(f"the service ended without {text!r}")

    def kill_service(self, number=signal.SIGKILL):
        """As it would die: its files stay."""
        if self.service is not None:
            if self.service.poll() is None:
                self.service.send_signal(number)
            self.service.wait(PATIENCE_SECONDS)
            if self.service.stdout:
                self.service.stdout.close()
            self.service = None

    def stop_service(self):
        if self.service is not None and self.service.poll() is None:
            self.service.send_signal(signal.SIGCONT)
        self.kill_service(signal.SIGTERM)

    def clear_run_directory(self):
        for entry in self.run_directory.iterdir():
            if entry.is_dir() and not entry.is_symlink():
                shutil.rmtree(entry)
            else:
                entry.unlink()

    def left_behind(self):
        """What stands in the run directory that the service has not put there."""
        return sorted(set(os.listdir(self.run_directory)) - self.service_files)


def contents(directory):
    return {entry.name: entry.read_bytes() for entry in sorted(directory.iterdir())}


def wait_until_stopped(process):
    """Until it has sent itself SIGSTOP; False when it has ended instead."""
    _, status = os.waitpid(process.pid, os.WUNTRACED)
    if os.WIFSTOPPED(status):
        return True
    process.returncode = os.waitstatus_to_exitcode(status)
    return False
