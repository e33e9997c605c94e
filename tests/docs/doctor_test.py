"""zyn-doctor tells what is wrong with a host and changes nothing on it."""

import os
import shutil
import stat
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(os.environ["ZYN_SOURCE"])
DOCTOR = SOURCE / "tools" / "zyn-doctor"
# No process has it: the kernel's highest id is 4194304.
DEAD = 4194305


class DoctorTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="zyn-doctor.")
        self.addCleanup(directory.cleanup)
        self.root = Path(directory.name)
        self.run_directory = self.root / "temp" / "ZYN"
        self.run_directory.mkdir(parents=True)
        shutil.copytree(SOURCE / "samples" / "cfg", self.root / "cfg")
        shutil.copytree(SOURCE / "samples" / "log", self.root / "log")
        self.configuration = self.root / "cfg" / "ZynConfigLinux.xml"
        self.environment = {"KORVA_VANTOREL_DIR": str(self.root),
                            "KORVA_VANTOREL_CFG": str(self.root / "cfg")}

    def state(self):
        return {path: (path.lstat().st_mode, path.lstat().st_mtime_ns, path.lstat().st_size)
                for path in [self.root, *self.root.rglob("*")]}

    def diagnose(self, path=None):
        """Lines and findings of a run."""
        before = self.state()
        result = subprocess.run([DOCTOR], env={"PATH": path or os.environ["PATH"], **self.environment},
                                cwd=self.root, text=True, capture_output=True, timeout=60, check=False)
        self.assertEqual(result.stderr, "")
        self.assertEqual(self.state(), before)
        lines = result.stdout.splitlines()
        findings = [line[3:] for line in lines if line.startswith("!! ")]
        self.assertEqual(result.returncode, 1 if findings else 0)
        self.assertEqual(lines[-1], f"Findings: {len(findings)}" if findings else "Nothing wrong found.")
        return [line.strip() for line in lines], findings

    def service(self, pid):
        (self.run_directory / "ZynService.pid").write_text(f"{pid}\n")
        for name in ("ZynService.lck", "ZynServerMessageBuffer.map", "ZynRecordSequenceNumberSeed.map"):
            (self.run_directory / name).touch()

    def test_a_host_in_order_has_no_findings(self):
        self.run_directory.chmod(0o750)
        lines, findings = self.diagnose()
        self.assertEqual(findings, [])
        self.assertIn(f"KORVA_VANTOREL_CFG is {self.root}/cfg", lines)
        self.assertIn(f"{self.configuration}: found", lines)
        self.assertIn(f"$(KORVA_VANTOREL_DIR)/log is {self.root}/log", lines)
        total = sum(path.stat().st_size for path in (self.root / "log").iterdir())
        self.assertIn(f"3 binary log files, {total} bytes", lines)
        self.assertIn("no pid file: not running", lines)
        self.assertTrue(any(line.startswith(f"{self.run_directory}/: mode 750, owner ") for line in lines))

    def test_the_second_variable_is_used_when_the_first_is_empty(self):
        self.environment.update(KORVA_VANTOREL_CFG="", VTRLCFGPATH=str(self.root))
        lines, findings = self.diagnose()
        self.assertEqual(findings, [])
        self.assertIn(f"VTRLCFGPATH is {self.root}", lines)
        self.assertIn(f"{self.configuration}: found", lines)

    def test_without_variables_the_current_directory_is_searched(self):
        del self.environment["KORVA_VANTOREL_CFG"]
        lines, findings = self.diagnose()
        self.assertEqual(findings, [])
        self.assertIn("cfg/ZynConfigLinux.xml: found", lines)

    def test_a_missing_configuration_is_found(self):
        self.configuration.unlink()
        self.assertEqual(self.diagnose()[1], [f"{self.configuration}: no such file"])

    @unittest.skipUnless(shutil.which("xmllint"), "xmllint is not installed")
    def test_a_configuration_that_does_not_parse_is_found(self):
        self.configuration.write_text('<ZYNConfig trace="1"><Logfile path="/x"></ZYNConfig>')
        findings = self.diagnose()[1]
        self.assertTrue(findings[0].startswith("does not parse: "), findings)

    def test_a_configuration_without_its_end_is_found_without_xmllint(self):
        programs = self.root / "programs"
        programs.mkdir()
        for name in ("awk", "bash", "cat", "env", "grep", "head", "id", "printenv", "sed", "stat", "tail",
                     "tr"):
            (programs / name).symlink_to(shutil.which(name))
        self.assertIn("has its root element (install xmllint for a real check)",
                      self.diagnose(str(programs))[0])
        self.configuration.write_text(self.configuration.read_text().replace("</ZYNConfig>", ""))
        self.assertEqual(self.diagnose(str(programs))[1], ["has no element ZYNConfig with an end"])

    def test_tracing_that_is_off_is_found(self):
        self.configuration.write_text('<ZYNConfig trace="0"><Logfile path="/x"/></ZYNConfig>')
        self.assertEqual(self.diagnose()[1],
                         ['trace is "0", not "1": tracing is off, and no log directory is read'])

    def test_an_element_in_a_comment_does_not_count(self):
        self.configuration.write_text('<ZYNConfig trace="1"><!-- <Logfile path="/x"/>\n-->'
                                      "<Logfile size='1'\npath='$(KORVA_VANTOREL_DIR)log'/></ZYNConfig>")
        lines, findings = self.diagnose()
        self.assertEqual(findings, [])
        self.assertIn(f"$(KORVA_VANTOREL_DIR)log is {self.root}/log", lines)

    def test_a_log_path_is_expanded_as_the_tool_does_it(self):
        self.environment["PART"] = "a//b"
        self.configuration.write_text('<ZYNConfig trace="1"><Logfile path="/x///$(PART)$(NONE)c$(d"/>'
                                      "</ZYNConfig>")
        self.assertEqual(self.diagnose()[1], ["/x//a/b/c: no such directory"])

    def test_files_that_stop_an_export_are_found(self):
        (self.root / "log" / "zynlog-2.txt").write_bytes(b"x" * 255)
        (self.root / "log" / "zynlog-3.txt").mkdir()
        (self.root / "log" / "zynlog-4.txt").write_bytes(b"x" * 256)
        lines, findings = self.diagnose()
        self.assertEqual(findings, ["zynlog-2.txt: 255 bytes, too small; stops an export",
                                    "zynlog-3.txt: not a regular file; stops an export"])
        self.assertIn("1 files without the header of a binary log; an export leaves them out", lines)

    def test_a_missing_run_directory_is_found(self):
        self.run_directory.rmdir()
        self.assertEqual(self.diagnose()[1],
                         [f"{self.run_directory}/: no such directory; nothing creates it"])

    def test_a_living_service_is_shown(self):
        self.service(os.getpid())
        lines, findings = self.diagnose()
        self.assertEqual(findings, [])
        self.assertTrue(any(line.startswith(f"pid {os.getpid()} lives: ") for line in lines), lines)

    def test_a_living_service_without_its_regions_is_found(self):
        self.service(os.getpid())
        (self.run_directory / "ZynServerMessageBuffer.map").unlink()
        self.assertEqual(self.diagnose()[1],
                         ["ZynServerMessageBuffer.map is missing: clients cannot register"])

    def test_a_dead_service_is_found(self):
        self.service(DEAD)
        self.assertEqual(self.diagnose()[1], [f"pid {DEAD} does not exist any more: not running"])

    def test_a_service_without_its_lock_file_is_found(self):
        self.service(os.getpid())
        (self.run_directory / "ZynService.lck").unlink()
        self.assertEqual(self.diagnose()[1], [f"pid {os.getpid()} lives, but ZynService.lck is missing: "
                                              "counts as not running"])

    def test_a_pid_may_stand_behind_white_space(self):
        self.service(f"\r\n\t     {os.getpid()} x")
        lines, findings = self.diagnose()
        self.assertEqual(findings, [])
        self.assertTrue(any(line.startswith(f"pid {os.getpid()} lives: ") for line in lines), lines)

    def test_pid_files_that_name_no_process_are_found(self):
        for text in ("", "0", "-1", "x1", " x1", " ", "99999999999", "4294967296", "\0"):
            with self.subTest(text=text):
                self.service(text)
                self.assertEqual(self.diagnose()[1],
                                 ["ZynService.pid holds no process id: counts as not running"])

    def test_regions_of_dead_processes_are_found(self):
        (self.run_directory / f"ZynTraceBuffer{DEAD}.map").touch()
        (self.run_directory / f"ZynServerMessageBuffer{os.getpid()}.map").touch()
        lines, findings = self.diagnose()
        self.assertEqual(findings,
                         [f"ZynTraceBuffer{DEAD}.map: process {DEAD} is dead; the file can be removed"])
        self.assertIn(f"ZynServerMessageBuffer{os.getpid()}.map: process {os.getpid()} lives", lines)

    def test_arguments_are_refused_with_the_usage(self):
        result = subprocess.run([DOCTOR, "--fix"], text=True, capture_output=True, check=False)
        self.assertEqual(result.returncode, 2)
        self.assertIn("Usage: zyn-doctor", result.stdout)

    def test_it_is_executable(self):
        self.assertTrue(DOCTOR.stat().st_mode & stat.S_IXUSR)


if __name__ == "__main__":
    unittest.main()
