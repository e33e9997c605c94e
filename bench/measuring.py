"""What the benchmarks of whole exports share: the logs, the commands, and how a run is measured."""

import os
import pathlib
import re
import shutil
import statistics
import subprocess
import sys
from typing import NamedTuple

ROOT = pathlib.Path(__file__).resolve().parent.parent
COMMON = ["--names", "6-16", "--message", "60-100", "--control-percent", "0",
          "--multiline-percent", "0"]
SHAPES = {
    "in-order": ["--order", "in-order"],
    "window-64": ["--order", "window", "--window", "64"],
    "shuffled": ["--order", "shuffled"],
    "large-blocks": ["--order", "shuffled", "--block-bytes", "1000000-1000000"],
    "one-per-second": ["--one-per-second"],
    "multi-line": ["--multiline-percent", "5"],
    "small-blocks": ["--block-bytes", "2000-2100"],
}


# The orders of a record's packets, as zynloggen's --packets has them.
ORDERS = ["tTpmclM", "tpTmclM", "mclMtpT", "mclpTtM", "Mlcmt8Tp", "TMlpcmt",
          "tTpmclM,tpTmclM,mclMtpT,Mlcmt8Tp", "writer", "random"]


class Run(NamedTuple):
    """Nanoseconds of all threads, of the clock; KiB."""
    cpu: int
    wall: int
    peak: int


class Bench:
    """Programs of one preset, and a directory for logs and texts that the caller removes."""

    def __init__(self, preset, scratch, seed=1):
        self.binaries = ROOT / "build" / preset / "bin"
        self.scratch = pathlib.Path(scratch)
        self.seed = seed

    def generate(self, name, records, shape, files=20, more=()):
        """A log of records in files of equal size; its directory."""
        log = self.scratch / name
        shutil.rmtree(log, ignore_errors=True)
        subprocess.run([self.binaries / "zynloggen", "--out", log, "--records", str(records),
                        "--files", str(files), "--seed", str(self.seed), *COMMON, *SHAPES[shape], *more],
                       check=True, stdout=subprocess.DEVNULL)
        return log

    def export(self, log, out, silent=True, layout=()):
        return [self.binaries / "zyntool", "export", "-d", log, "-f", out, "-l", *layout,
                *(["-silent"] if silent else [])]

    def measured(self, command):
        """A run of a command, its output thrown away, or with "-o" and a file before it, in that."""
        result = subprocess.run([self.binaries / "measure", *command], capture_output=True,
                                text=True, check=False)
        if result.returncode != 0:
            sys.exit(f"{' '.join(map(str, command))}: exit status {result.returncode} {result.stderr}")
        return Run(*map(int, result.stdout.split()))

    def paired(self, first, second, runs):
        """Both commands in turn: the runs of each."""
        self.measured(first)
        pairs = [(self.measured(first), self.measured(second)) for _ in range(runs)]
        return [a for a, _ in pairs], [b for _, b in pairs]

    def cold(self, command, files, runs):
        """Runs of a command whose files are not in the page cache; only a file system on a disk has
        such files."""
        results = []
        for _ in range(runs):
            for file in files:
                with open(file, "rb") as opened:
                    os.fsync(opened.fileno())
                    os.posix_fadvise(opened.fileno(), 0, 0, os.POSIX_FADV_DONTNEED)
            results.append(self.measured(command))
        return results

    def system_calls(self, command):
        """How many, or None without strace."""
        if shutil.which("strace") is None:
            return None
        log = self.scratch / "strace.txt"
        subprocess.run(["strace", "-f", "-o", log, *command], check=True,
                       stderr=subprocess.DEVNULL)
        with open(log, encoding="utf-8", errors="replace") as lines:
            return sum(1 for _ in lines)

    def calls(self, command, functions):
        """How often a command calls each function of a pattern's names, by callgrind."""
        out = self.scratch / "callgrind.out"
        subprocess.run(["valgrind", "--tool=callgrind", f"--callgrind-out-file={out}", *command],
                       check=True, capture_output=True)
        names, counts, called = {}, {}, None
        for line in out.read_text(encoding="utf-8", errors="replace").splitlines():
            if match := re.match(r"c?fn=\((\d+)\)(?: (.*))?", line):
                if match[2]:
                    names[match[1]] = match[2]
                if line.startswith("cfn"):
                    called = names[match[1]]
            elif match := re.match(r"calls=(\d+)", line):
                if re.fullmatch(functions, called):
                    counts[called] = counts.get(called, 0) + int(match[1])
        return counts


def median_ratio(numerators, denominators):
    """Of CPU times, pair by pair."""
    return statistics.median(a.cpu / b.cpu for a, b in zip(numerators, denominators))


def median_cpu(runs):
    return statistics.median(run.cpu for run in runs)


def size_of(log):
    return sum(file.stat().st_size for file in log.iterdir())


def scratch_default():
    memory = pathlib.Path("/dev/shm")
    return memory if os.access(memory, os.W_OK) else None
