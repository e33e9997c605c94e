"""zyn-doctor reports what is wrong with a host and changes nothing on it."""

import errno
import fcntl
import grp
import json
import os
import pwd
import re
import shutil
import socket
import struct
import subprocess
import tempfile
import unittest
from pathlib import Path

# A module, not the class, which would be run by itself, too.
import doctor_logs_test
from doctor_host import (CAN_MOUNT, DEAD, DEPENDING, DOCTOR, FACTS, FAULTS, FINDINGS, NOT_HERE, RING_BYTES,
                         SOURCE, UNKNOWN, UNKNOWNS, UNSHARE)


class DoctorTest(doctor_logs_test.LogTests):
    @classmethod
    def tearDownClass(cls):
        missing = (FACTS | FINDINGS | UNKNOWNS) - NOT_HERE - DEPENDING - cls.raised
        if missing:
            raise AssertionError(f"no test raises: {sorted(missing)}")

    def test_a_host_in_order_has_no_findings(self):
        lines, findings = self.diagnose()
        self.assertEqual(findings, [])
        self.assertIn(f"KORVA_VANTOREL_CFG is {self.root}/cfg", lines)
        self.assertIn(f"{self.configuration}: found", lines)
        self.assertIn("trace is on", lines)
        self.assertIn("switched on: 2 modules, 3 clients, 7 labels", lines)
        self.assertIn(f"$(KORVA_VANTOREL_DIR)/log is {self.root}/log", lines)
        total = sum(path.stat().st_size for path in (self.root / "log").iterdir())
        self.assertIn(f"3 binary log files, {total} bytes", lines)
        self.assertIn("no pid file: not running", lines)
        self.assertIn("nobody is sending", lines)
        self.assertIn("none", lines)
        status = self.run_directory.stat()
        self.assertIn(f"{self.run_directory}/: mode 750, owner {pwd.getpwuid(status.st_uid).pw_name}"
                      f", group {grp.getgrgid(status.st_gid).gr_name}", lines)
        room = [line for line in lines if re.fullmatch(r"room left: \d+ of \d+ MiB", line)]
        self.assertEqual(len(room), 2, lines)

    # Configuration

    def test_a_missing_configuration_is_found(self):
        self.configuration.unlink()
        lines, findings, unknown = self.look()
        self.assertEqual((findings, unknown), ([f"{self.configuration}: no such file"], [UNKNOWN]))
        self.assertIn("not known", lines)

    def test_without_a_variable_it_says_which_to_set(self):
        del self.environment["KORVA_VANTOREL_CFG"], self.environment["KORVA_VANTOREL_DIR"]
        self.configuration.unlink()
        lines, findings, _ = self.look()
        self.assertIn("KORVA_VANTOREL_CFG and VTRLCFGPATH are not set: searched from the current directory",
                      lines)
        self.assertIn("KORVA_VANTOREL_DIR is not set", lines)
        self.assertEqual(findings, [
            "cfg/ZynConfigLinux.xml: no such file; set KORVA_VANTOREL_CFG to the directory that holds it, "
            "/usr/vantorel/cfg beside the packaged run directory (an example is in "
            "/usr/share/doc/zyntool/examples)",
            "/temp/ZYN/: no such directory; set KORVA_VANTOREL_DIR to the product directory (the package "
            "makes /usr/vantorel)"])

    def test_the_packaged_run_directory_is_the_one_that_the_package_makes(self):
        snippet = (SOURCE / "packaging" / "tmpfiles.d" / "zyntool.conf").read_text()
        self.assertRegex(snippet, r"(?m)^d +/usr/vantorel/temp/ZYN ")

    def test_a_configuration_that_does_not_parse_leaves_all_unknown(self):
        self.configuration.write_text('<ZYNConfig trace="1"><Logfile path="/x"></ZYNConfig>')
        lines, findings, unknown = self.look()
        self.assertTrue(findings[0].startswith("does not parse: "), findings)
        self.assertEqual((len(findings), unknown), (1, [UNKNOWN]))
        self.assertNotIn("trace is on", lines)
        self.assertIn("not known", lines)

    def test_a_configuration_that_is_no_file_is_not_waited_for(self):
        self.configuration.unlink()
        os.mkfifo(self.configuration)
        self.assertEqual(self.look()[1:], (["does not parse: Failed to open file"], [UNKNOWN]))

    def test_a_root_without_trace_leaves_all_unknown(self):
        for text in ("<ZYNConfig/>", "<Other/>"):
            with self.subTest(text=text):
                self.configuration.write_text(text)
                self.assertEqual(self.look()[1:], (
                    ['no element ZYNConfig with an attribute trace: "Bad parameter:Invalid Attribute"'], [UNKNOWN]))

    def test_a_log_file_without_a_path_leaves_the_log_directory_unknown(self):
        for text, message in (('<Logfile size="1"/>', "Bad logic:error: Invalid path "),
                              ("", "Bad parameter:error:Logfile configuation invalid")):
            with self.subTest(text=text):
                self.configuration.write_text(f'<ZYNConfig trace="1">{text}<Global/></ZYNConfig>')
                lines, findings, unknown = self.look()
                self.assertEqual(findings, [f'Logfile: "{message}"; its other attributes are not read'])
                self.assertEqual(unknown, ["not known without it: the log directory"])
                self.assertIn("trace is on", lines)

    def test_a_path_before_a_failure_is_known(self):
        self.configuration.write_text('<ZYNConfig trace="1"><!-- <Logfile path="/x"/>\n-->'
                                      "<Logfile\npath='$(KORVA_VANTOREL_DIR)log'/><Global/></ZYNConfig>")
        lines, findings = self.diagnose()
        self.assertEqual(findings, ['Logfile: "Bad logic:Error: invalid size"; its other attributes are not read'])
        self.assertIn(f"$(KORVA_VANTOREL_DIR)log is {self.root}/log", lines)

    def test_what_is_behind_a_failure_is_unknown(self):
        text = self.configuration.read_text()
        self.configuration.write_text(text.replace(' server_name="node-17.example"', ""))
        self.assertEqual(self.look()[1:], (
            ['"Bad logic:Error: no valid hostname is specified": nothing behind it is read; clients go without it'],
            ["not known because of it: what of the modules behind it is traced"]))

    def test_a_text_log_is_found(self):
        self.configuration.write_text(self.configuration.read_text().replace('"binary"', '"BINARY"'))
        self.assertEqual(self.diagnose()[1],
                         ['log_format is not "binary": the service writes text, which no export reads'])

    def test_a_log_path_is_expanded_as_the_tool_does_it(self):
        self.environment["PART"] = "a//b"
        text = self.configuration.read_text()
        self.configuration.write_text(text.replace("$(KORVA_VANTOREL_DIR)/log", "/x///$(PART)$(NONE)c$(d"))
        self.assertEqual(self.diagnose()[1], ["/x//a/b/c: no such directory"])

    def test_it_writes_no_diagnostic_log(self):
        self.environment["DIAGNOSTIC_MODE"] = "1"
        self.assertEqual(self.diagnose()[1], [])

    # Run directory

    @unittest.skipUnless(CAN_MOUNT, "file systems cannot be mounted here")
    def test_too_little_room_for_a_client_is_found(self):
        for options, finding in (("size=1000k", r"room left: \d+ bytes, too little for a client's regions "
                                                r"\(1048088 bytes\)"),
                                 ("size=2000k,nr_inodes=1", "room left: for no more files, whatever their size"),
                                 ("ro", rf"{self.run_directory}/: the file system is read-only")):
            with self.subTest(options=options):
                script = f"mount -t tmpfs -o mode=755,{options} tmpfs {self.run_directory} && exec {DOCTOR}"
                result = subprocess.run([*UNSHARE, "sh", "-c", script], capture_output=True, text=True, timeout=60,
                                        env={**self.environment, "PATH": os.environ["PATH"]}, check=False)
                findings = [line[3:] for line in result.stdout.splitlines() if line.startswith("!! ")]
                self.assertRegex(findings[-1], f"^{finding}$")

    def test_a_run_directory_that_everybody_writes_to_is_found(self):
        self.run_directory.chmod(0o777)
        self.assertEqual(self.diagnose()[1], [
            f"{self.run_directory}/: writable by every user: each of them can pause tracing, remove the regions "
            "of others or pose as the service; give it to a group"])

    def test_a_sticky_run_directory_is_found_where_the_kernel_is_strict(self):
        strict = int(Path("/proc/sys/fs/protected_regular").read_text())
        self.run_directory.chmod(0o1777)
        findings = self.diagnose()[1]
        self.assertEqual(findings[1:], [
            f"{self.run_directory}/: sticky: the kernel (fs.protected_regular) refuses senders a lock file that "
            "another user has made"] * (strict >= 1))

    @unittest.skipUnless(os.geteuid() == 0, "only root can look as somebody else")
    def test_what_may_not_be_read_is_reported(self):
        self.root.chmod(0o755)
        (self.root / "log").chmod(0o700)
        nobody = {"user": 65534, "group": 65534, "extra_groups": []}
        # A build that counts what runs writes its counters where only root may.
        counters = tempfile.TemporaryDirectory(prefix="zyn-doctor.")
        self.addCleanup(counters.cleanup)
        Path(counters.name).chmod(0o777)
        self.environment["GCOV_PREFIX"] = counters.name
        self.assertEqual(self.look(**nobody)[2], [f"{self.root}/log: Permission denied",
                                                  f"{self.run_directory}/: Permission denied"])
        self.run_directory.chmod(0o755)
        self.assertIn(f"{self.run_directory}/: not writable by nobody; pause, resume and reload fail",
                      self.look(**nobody)[1])
        (self.root / "cfg").chmod(0o700)
        (self.root / "temp").chmod(0o700)
        self.assertEqual(self.look(**nobody)[2], [f"{self.configuration}: Permission denied", UNKNOWN,
                                                  f"{self.run_directory}/: Permission denied"])
        (self.root / "cfg").chmod(0o755)
        self.configuration.chmod(0o600)
        self.assertIn(f"{self.configuration}: Permission denied", self.look(**nobody)[2])

    # Service

    def test_a_living_service_is_shown(self):
        self.service(os.getpid())
        lines, findings = self.diagnose()
        self.assertEqual(findings, [])
        self.assertTrue(any(re.fullmatch(rf"process {os.getpid()} \(.+\) lives", line) for line in lines), lines)

    def test_a_pid_may_stand_behind_white_space(self):
        self.service(f"\r\n\t     {os.getpid()} x")
        lines, findings = self.diagnose()
        self.assertEqual(findings, [])
        self.assertTrue(any(line.startswith(f"process {os.getpid()} ") for line in lines), lines)

    def test_a_pid_file_that_is_no_file_is_not_waited_for(self):
        os.mkfifo(self.run_directory / "ZynService.pid")
        self.assertEqual(self.diagnose()[1], ["ZynService.pid holds no process id: counts as not running"])

    def test_regions_that_clients_cannot_use_are_found(self):
        self.service(os.getpid())
        (self.run_directory / "ZynServerMessageBuffer.map").write_bytes(bytes(RING_BYTES - 1))
        (self.run_directory / "ZynRecordSequenceNumberSeed.map").write_bytes(b"")
        failure = f"Can not open file mapping [OS call failed:{errno.EINVAL}(Invalid argument)]"
        self.assertEqual(self.diagnose()[1],
                         [f"ZynServerMessageBuffer.map: {failure}: clients cannot register",
                          f"ZynRecordSequenceNumberSeed.map: {failure}: clients cannot register"])

    def test_who_holds_the_lock_of_the_senders_is_reported(self):
        path = self.run_directory / "ZynServerMessageLock.lck"
        path.touch()
        self.assertIn("ZynServerMessageLock.lck is there; nobody holds it", self.diagnose()[0])
        with path.open("r+b") as lock:
            fcntl.lockf(lock, fcntl.LOCK_EX, 1)
            findings = self.diagnose()[1]
        self.assertEqual(len(findings), 1)
        self.assertRegex(findings[0], rf"^ZynServerMessageLock\.lck is held by process {os.getpid()} \(.+\): all who "
                                      "send to the service wait for it$")

    def test_a_lock_of_no_process_is_reported(self):
        path = self.run_directory / "ZynServerMessageLock.lck"
        with path.open("w+b") as lock:
            # A lock of the open file, not of a process.
            fcntl.fcntl(lock, fcntl.F_OFD_SETLK, struct.pack("hhqqi4x", fcntl.F_WRLCK, os.SEEK_SET, 0, 1, 0))
            self.assertEqual(self.diagnose()[1],
                             ["ZynServerMessageLock.lck is held by a process that cannot be told: all who send "
                              "to the service wait for it"])

    def test_a_lock_file_that_cannot_be_opened_is_reported(self):
        socket_at_path = socket.socket(socket.AF_UNIX)
        self.addCleanup(socket_at_path.close)
        socket_at_path.bind(str(self.run_directory / "ZynServerMessageLock.lck"))
        self.assertEqual(self.look()[2], ["ZynServerMessageLock.lck: No such device or address"])

    def test_other_files_are_no_regions_of_clients(self):
        for name in ("ZynTraceBuffer.map", "ZynTraceBuffer1x.map", "ZynTraceBuffer99999999999.map",
                     f"ZynTraceBuffer{DEAD}.map.old"):
            (self.run_directory / name).touch()
        self.assertIn("none", self.diagnose()[0])

    # Messages

    def journal(self, script):
        programs = self.root / "bin"
        programs.mkdir(exist_ok=True)
        (programs / "journalctl").write_text("#!/bin/sh\n" + script)
        (programs / "journalctl").chmod(0o755)

    @staticmethod
    def messages(lines):
        return lines[lines.index("Messages in the system log") + 1:-1]

    def test_without_journalctl_it_says_where_to_look(self):
        self.assertEqual(self.messages(self.diagnose()[0]),
                         ["there is no journalctl; look for ZYNAPI and ZynServer in the system log"])

    def test_journalctl_is_run_for_the_last_messages_of_both_identities(self):
        self.journal('echo "$@"')
        self.assertEqual(self.messages(self.diagnose()[0]), [" ".join([
            "--quiet", "--no-pager", "--output=short-iso", "--lines=5", "--identifier=ZYNAPI",
            "--identifier=ZynServer"])])

    def test_a_journalctl_that_fails_is_reported(self):
        self.journal("exit 3")
        self.assertEqual(self.messages(self.diagnose()[0]),
                         ["journalctl ends with 3; look for ZYNAPI and ZynServer in the system log"])

    def test_a_journalctl_that_cannot_be_run_is_reported(self):
        self.journal("")
        (self.root / "bin" / "journalctl").chmod(0o600)
        self.assertEqual(self.messages(self.diagnose()[0]),
                         ["journalctl cannot be run; look for ZYNAPI and ZynServer in the system log"])

    def test_a_journalctl_that_hangs_is_ended(self):
        pid_file = self.root / "pid"
        self.journal(f"echo $$ >{pid_file}; exec /bin/sleep 1000")
        result = self.run_doctor()
        self.assertIn(b"journalctl does not end; look for ZYNAPI and ZynServer in the system log", result.stdout)
        self.assertFalse(Path(f"/proc/{pid_file.read_text().strip()}").exists())

    @unittest.skipUnless(shutil.which("journalctl"), "journalctl is not installed")
    def test_an_empty_journal_is_reported(self):
        self.journal(f'exec {shutil.which("journalctl")} --directory={self.root}/journal "$@"')
        (self.root / "journal").mkdir()
        self.assertEqual(self.messages(self.diagnose()[0]), ["none of ZYNAPI or ZynServer"])

    JOURNAL_REMOTE = "/lib/systemd/systemd-journal-remote"

    @unittest.skipUnless(Path(JOURNAL_REMOTE).exists(), "systemd-journal-remote is not installed")
    def test_the_last_messages_come_from_the_journal(self):
        entries = []
        for number, (identity, text) in enumerate(
                [("ZYNAPI", "too old to be shown"), ("other", "not ours")] +
                [("ZYNAPI", "ZYN Dispatching service is not running."), ("ZynServer", "Error parsing Element.")] * 2 +
                [("ZYNAPI", "the last")]):
            entries.append(f"__REALTIME_TIMESTAMP={1700000000000000 + number}\n__MONOTONIC_TIMESTAMP={number + 1}\n"
                           "_BOOT_ID=5a9b0a1c0d6e4bf6a0f7ff3d4c2e1b00\n_HOSTNAME=node-17\nPRIORITY=3\n"
                           f"SYSLOG_IDENTIFIER={identity}\nMESSAGE={text}\n\n")
        (self.root / "journal").mkdir()
        subprocess.run([self.JOURNAL_REMOTE, "--output", self.root / "journal" / "system.journal", "-"],
                       input="".join(entries).encode(), check=True, capture_output=True, timeout=60)
        self.journal(f'exec {shutil.which("journalctl")} --directory={self.root}/journal "$@"')
        shown = self.messages(self.diagnose()[0])
        self.assertEqual([line.split(" ", 2)[2] for line in shown],
                         ["ZYNAPI: ZYN Dispatching service is not running.", "ZynServer: Error parsing Element."] * 2 +
                         ["ZYNAPI: the last"])

    # Faults

    def test_whatever_call_fails_it_says_what_it_could_not_look_at(self):
        self.service(os.getpid())
        (self.run_directory / "ZynServerMessageLock.lck").touch()
        hits = self.root / "hits"
        codes = set()
        for call in ("access", "fcntl", "fstat", "lseek", "mmap", "open", "opendir", "read", "readdir", "stat"):
            for first in range(1, 100):
                hits.unlink(missing_ok=True)
                result = subprocess.run(
                    [DOCTOR, "--json"], capture_output=True, timeout=60, check=False,
                    env={**self.environment, "LD_PRELOAD": str(FAULTS), "ZYN_FAULT_CALL": call,
                         "ZYN_FAULT_FIRST": str(first), "ZYN_FAULT_COUNT": "1", "ZYN_FAULT_LOG": str(hits),
                         "ZYN_FAULT_ACTION": str(errno.EIO), "ASAN_OPTIONS": "verify_asan_link_order=0"})
                self.assertEqual(result.stderr, b"", (call, first))
                document = json.loads(result.stdout)
                self.assertEqual(document["status"], result.returncode, (call, first))
                codes.update(remark["code"] for section in document["sections"] for remark in section["remarks"])
                for section in document["sections"]:
                    for remark in section["remarks"]:
                        if remark["code"] == "newest-unreadable":
                            self.assertEqual(remark["text"], "newest: zynlog-0003.txt, could not be read to its end")
                if not hits.exists():
                    break
            else:
                self.fail(f"{call}: the faults do not end")
        self.assertGreaterEqual(codes, {"configuration-unparsed", "log-directory-unreadable", "newest-unreadable",
                                        "log-unreadable", "regions-unreadable", "lock-unreadable",
                                        "service-region-unusable", "run-directory-unreadable"})

    # Command line

    def test_help_names_what_the_manual_page_names(self):
        result = self.run_doctor("--help")
        self.assertEqual((result.returncode, result.stderr), (0, b""))
        self.assertEqual(result.stdout.decode(), """\
Usage: zyn-doctor [OPTION]...
Look at what runtime tracing depends on in this environment: the configuration, the
logs, the run directory, the service, and what dead processes left behind. Changes
nothing. Lines with !! are findings, lines with ?? could not be looked at.

  -j, --json      report as one JSON document
  -h, --help      show this text and exit
  -V, --version   show the version and exit

Exit status: 0 nothing wrong found, 1 findings, 2 something could not be looked at.
""")
        manual = (SOURCE / "man" / "zyn-doctor.1").read_text()
        for option in re.findall(rb"--(\w+) ", result.stdout):
            self.assertIn(f", -{option.decode()}", manual)

    def test_the_version_is_the_projects(self):
        version = re.search(r"project\(zyntool VERSION ([\d.]+)", (SOURCE / "CMakeLists.txt").read_text())[1]
        result = self.run_doctor("--version")
        self.assertEqual((result.returncode, result.stdout.decode()), (0, f"zyn-doctor {version}\n"))
        self.assertEqual(json.loads(self.run_doctor("-j").stdout)["version"], version)

    def test_mistakes_are_refused(self):
        result = self.run_doctor("--fix")
        self.assertEqual((result.returncode, result.stdout), (2, b""))
        self.assertTrue(result.stderr.endswith(b"Try 'zyn-doctor --help'.\n"), result.stderr)
        result = self.run_doctor("host")
        self.assertEqual((result.returncode, result.stderr),
                         (2, b"zyn-doctor: nothing to be named: 'host'\nTry 'zyn-doctor --help'.\n"))
        self.assertIn(b"'?[0m'", self.run_doctor("\x1b[0m").stderr)

    def test_a_report_that_cannot_be_written_is_no_success(self):
        with open("/dev/full", "wb") as full:
            result = subprocess.run([DOCTOR], env=self.environment, stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertEqual((result.returncode, result.stderr),
                         (2, b"zyn-doctor: the report could not be written\n"))

    def test_the_json_document_has_what_the_manual_page_says(self):
        (self.run_directory / f"ZynTraceBuffer{DEAD}.map").touch()
        (self.root / "log" / os.fsdecode(b"zynlog-\xff.txt")).write_bytes(b"")
        document = json.loads(self.run_doctor("--json").stdout)
        self.assertEqual(list(document), ["program", "version", "sections", "findings", "unknown", "status"])
        self.assertEqual([section["title"] for section in document["sections"]],
                         ["Configuration", "Log directory", "Run directory", "Service", "Lock of the senders",
                          "Regions of clients", "Messages in the system log"])
        found = [(remark["code"], remark["text"]) for section in document["sections"]
                 for remark in section["remarks"] if remark["kind"] == "finding"]
        self.assertEqual(found, [
            ("log-too-small", "zynlog-\N{REPLACEMENT CHARACTER}.txt: 0 bytes, too small; stops an export"),
            ("region-left", f"ZynTraceBuffer{DEAD}.map: process {DEAD} is dead; the file can be removed")])

    def test_all_codes_are_in_the_manual_page(self):
        manual = (SOURCE / "man" / "zyn-doctor.1").read_text()
        codes = set()
        for source in (SOURCE / "src" / "zyndoctor").glob("*.cpp"):
            codes.update(re.findall(r'\.(?:Find|MissOut)\(\s*"([a-z-]+)"', source.read_text()))
        self.assertGreater(len(codes), 20)
        self.assertEqual([code for code in sorted(codes) if f".It Cm {code}\n" not in manual], [])

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

    def test_tracing_that_is_off_is_found(self):
        self.configuration.write_text('<ZYNConfig trace="0"><Logfile path="/x"/></ZYNConfig>')
        self.assertEqual(self.diagnose()[1],
                         ['trace is "0", not "1": tracing is off, and no log directory is read'])

    def test_a_missing_run_directory_is_found(self):
        self.run_directory.rmdir()
        self.assertEqual(self.diagnose()[1],
                         [f"{self.run_directory}/: no such directory; nothing creates it"])

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

if __name__ == "__main__":
    unittest.main()
