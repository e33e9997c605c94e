"""A host for tests of zyn-doctor: a directory with a configuration, logs and a run directory, in order as
it is made; and the codes that a report may have."""

import json
import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(os.environ["ZYN_SOURCE"])
DOCTOR = Path(os.environ["ZYN_BIN"]) / "zyn-doctor"
FAULTS = Path(os.environ["ZYN_BIN"]).parent / "lib" / "libzyn_fault_preload.so"
SANITIZED = "ZYN_SANITIZED" in os.environ
# No process has it: the kernel's highest id is 4194304.
DEAD = 4194305
RING_BYTES = 524
UNKNOWN = "not known without it: whether tracing is on, the log directory, what is traced"
FIRST_BLOCK = 256
# What programs go by; a code never changes its meaning.
FACTS = {"configuration-found", "configuration-variable", "foreign-files", "lock-free", "log-directory",
         "log-directory-unknown", "logs", "message", "newest-complete", "newest-long", "newest-unfinished",
         "no-journal", "no-messages", "no-regions", "region-in-use", "room", "run-directory",
         "run-directory-variable", "service-not-running", "service-runs", "switched-on", "trace-on"}
FINDINGS = {"configuration-invalid", "configuration-missing", "configuration-unparsed", "lock-held",
            "log-directory-missing", "log-format", "log-not-regular", "log-too-small", "log-unreadable",
            "newest-damaged", "newest-unfinished", "newest-zeros", "no-room", "read-only", "region-left",
            "run-directory-missing", "run-directory-not-writable", "run-directory-open",
            "run-directory-sticky", "service-dead", "service-lock-missing", "service-pid-invalid",
            "service-region-missing", "service-region-unusable", "trace-off"}
UNKNOWNS = {"configuration-unknown", "configuration-unreadable", "lock-unreadable",
            "log-directory-unreadable", "newest-unreadable", "regions-unreadable", "room-unknown",
            "run-directory-unreadable"}
# Raised elsewhere, or not to be raised from outside at will.
NOT_HERE = {"newest-long", "newest-unreadable", "read-only", "regions-unreadable", "room-unknown"}
DEPENDING = {"run-directory-sticky", "message", "no-messages", "log-directory-unreadable",
             "configuration-unreadable", "run-directory-unreadable", "run-directory-not-writable"}


UNSHARE = ["unshare", "--mount"] if os.geteuid() == 0 else ["unshare", "--mount", "--map-root-user"]
CAN_MOUNT = subprocess.run([*UNSHARE, "mount", "-t", "tmpfs", "tmpfs", "/mnt"], capture_output=True,
                           check=False).returncode == 0


class DoctorHost(unittest.TestCase):
    CODES = {"fact": FACTS, "finding": FINDINGS, "unknown": UNKNOWNS}
    raised = set()

    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="zyn-doctor.")
        self.addCleanup(directory.cleanup)
        self.root = Path(directory.name)
        self.run_directory = self.root / "temp" / "ZYN"
        self.run_directory.mkdir(parents=True)
        self.run_directory.chmod(0o750)
        shutil.copytree(SOURCE / "samples" / "cfg", self.root / "cfg")
        shutil.copytree(SOURCE / "samples" / "log", self.root / "log")
        self.configuration = self.root / "cfg" / "ZynConfigLinux.xml"
        # Without PATH no journalctl is found, whatever the host's journal holds.
        self.environment = {"KORVA_VANTOREL_DIR": str(self.root), "PATH": str(self.root / "bin"),
                            "KORVA_VANTOREL_CFG": str(self.root / "cfg")}

    def state(self):
        return {path: (path.lstat().st_mode, path.lstat().st_mtime_ns, path.lstat().st_size)
                for path in [self.root, *self.root.rglob("*")]}

    def run_doctor(self, *options, **how):
        return subprocess.run([DOCTOR, *options], env=self.environment, cwd=self.root,
                              capture_output=True, timeout=60, check=False, **how)

    def look(self, **how):
        """Lines, findings and what could not be looked at, of a run in text and one in JSON."""
        before = self.state()
        result = self.run_doctor(**how)
        self.assertEqual(result.stderr, b"")
        self.assertEqual(self.state(), before)
        lines = result.stdout.decode().splitlines()
        findings = [line[3:] for line in lines if line.startswith("!! ")]
        unknown = [line[3:] for line in lines if line.startswith("?? ")]
        self.assertEqual(result.returncode, 2 if unknown else 1 if findings else 0)
        end = [f"Not looked at: {len(unknown)}"] * bool(unknown)
        end += [f"Findings: {len(findings)}"] * bool(findings)
        self.assertEqual(lines[-len(end):] if end else lines[-1:], end or ["Nothing wrong found."])
        document = json.loads(self.run_doctor("--json", **how).stdout)
        self.assertEqual(document["status"], result.returncode)
        self.assertEqual((document["findings"], document["unknown"]), (len(findings), len(unknown)))
        for section in document["sections"]:
            for remark in section["remarks"]:
                self.assertIn(remark["code"], self.CODES[remark["kind"]])
                self.raised.add(remark["code"])
        return [line.strip() for line in lines], findings, unknown

    def diagnose(self, **how):
        """Lines and findings of a run that could look at everything."""
        lines, findings, unknown = self.look(**how)
        self.assertEqual(unknown, [])
        return lines, findings

    def service(self, pid):
        (self.run_directory / "ZynService.pid").write_text(f"{pid}\n")
        (self.run_directory / "ZynService.lck").touch()
        for name in ("ZynServerMessageBuffer.map", "ZynRecordSequenceNumberSeed.map"):
            (self.run_directory / name).write_bytes(bytes(RING_BYTES))
