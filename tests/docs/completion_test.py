"""Completions of the three shells offer the commands and options there are, and never run the programs: in
their place stand ones that note with what they were run."""

import os
import re
import shlex
import shutil
import tempfile
import unittest
from pathlib import Path

from shell_session import OPTION, Bash, Fish, Zsh

SOURCE = Path(os.environ["ZYN_SOURCE"])
COMPLETIONS = SOURCE / "completions"
# Each program that has a completion, with the source of its usage.
PROGRAMS = {path.name.removesuffix(".bash") for path in COMPLETIONS.glob("*.bash")}
COMMANDS = ["clean", "export", "pause", "performance", "preservation", "reload", "resume", "test"]
OPTIONS = {
    "clean": ["-f"],
    "export": ["-d", "-f", "-l", "-m", "-s", "-silent"],
    "pause": [],
    "performance": ["-t"],
    "preservation": ["-off", "-on"],
    "reload": [],
    "resume": [],
    "test": ["-c", "-l", "-m"],
}


def usage_options(program):
    """The options that the usage of a program names, short and long."""
    usage = {"zynlog-verify": "zynverify/VerifyOptions.cpp", "zyn-doctor": "zyndoctor/DoctorOptions.cpp",
             "zynlog-cat": "zynlogcat/CatOptions.cpp"}[program]
    text = (SOURCE / "src" / usage).read_text()
    return sorted(set(re.findall(r'"  +(-\w)[, ]', text)) |
                  set(re.findall(r'"  (?:-\w, |    )(--[\w-]+)', text)))


class ProgramsTest(unittest.TestCase):
    def test_commands_are_those_that_the_program_registers(self):
        registered = re.findall(r'parser\.Add\("(\w+)"', (SOURCE / "src" / "zyntool" / "main.cpp").read_text())
        self.assertEqual(sorted(registered), COMMANDS)

    def test_every_program_has_a_completion_for_each_shell(self):
        names = {path.name for path in COMPLETIONS.iterdir()}
        self.assertEqual(names, {name for program in PROGRAMS
                                 for name in (f"{program}.bash", f"_{program}", f"{program}.fish")})


class CompletionTests:
    """The same for each shell; the session is one for all cases of a shell, which leave it at a prompt."""

    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory(prefix="zyn-completion.")
        root = Path(cls.directory.name)
        cls.work, cls.calls = root / "work", root / "calls"
        for path in (root / "home", root / "bin", cls.work / "logs"):
            path.mkdir(parents=True)
        (cls.work / "zynlog-1.txt").touch()
        (cls.work / "notes.txt").touch()
        for program in PROGRAMS:
            tell_tale = root / "bin" / program
            tell_tale.write_text(f'#!/bin/sh\nfor word in {program} "$@"; do printf "%s\\n" "$word"; done >>{cls.calls}\n'
                                 f"echo ---- >>{cls.calls}\n")
            tell_tale.chmod(0o755)
        environment = {"PATH": f"{root}/bin:{os.environ['PATH']}", "HOME": str(root / "home"),
                       "LC_ALL": "C.UTF-8", "TERM": "xterm"}
        cls.session = cls.SHELL(COMPLETIONS, sorted(PROGRAMS), environment, cls.work)

    @classmethod
    def tearDownClass(cls):
        cls.session.close()
        cls.directory.cleanup()

    def setUp(self):
        self.calls.unlink(missing_ok=True)

    def runs(self):
        if not self.calls.exists():
            return []
        return [run.splitlines() for run in self.calls.read_text().split("----\n")[:-1]]

    def assert_completes(self, typed, words):
        """The line with its tabs becomes these words; END is put behind what the last tab made."""
        self.calls.unlink(missing_ok=True)
        self.session.run(typed + "END")
        self.assertEqual(self.runs(), [shlex.split(words)], repr(typed))

    def assert_lists(self, line, form, expected):
        self.assertEqual(self.session.listed(line, form, expected), sorted(expected), repr(line))
        self.assertEqual(self.runs(), [], "the completion ran a program")

    def test_all_commands_are_listed(self):
        self.assert_lists("zyntool ", self.session.COMMAND_WORD, COMMANDS)

    def test_commands_are_completed(self):
        self.assert_completes("zyntool exp\t", "zyntool export END")
        self.assert_completes("zyntool pres\t", "zyntool preservation END")

    def test_the_options_of_each_command_are_listed(self):
        for command, options in OPTIONS.items():
            if len(options) > 1:
                for typed in (command, command.upper()):
                    self.assert_lists(f"zyntool {typed} -", OPTION, options)

    def test_the_only_option_of_a_command_is_completed(self):
        self.assert_completes("zyntool clean -\t", "zyntool clean -f END")
        self.assert_completes("zyntool CLEAN -\t", "zyntool CLEAN -f END")
        self.assert_completes("zyntool performance -\t", "zyntool performance -t END")

    def test_commands_without_options_offer_none(self):
        for command in ("pause", "reload", "resume", "bogus"):
            self.assert_completes(f"zyntool {command} -\t", f"zyntool {command} -END")

    def test_options_are_offered_behind_a_value(self):
        self.assert_completes("zyntool export -d logs -si\t", "zyntool export -d logs -silent END")

    def test_directories_are_offered_for_directory_options(self):
        self.assert_completes("zyntool export -d l\t", "zyntool export -d logs/END")
        self.assert_completes("zyntool export -m l\t", "zyntool export -m logs/END")
        self.assert_completes("zyntool export -d n\t", "zyntool export -d nEND")

    def test_logs_and_directories_are_offered_for_a_source_file(self):
        self.assert_completes("zyntool export -s z\t", "zyntool export -s zynlog-1.txt END")
        self.assert_completes("zyntool export -s l\t", "zyntool export -s logs/END")

    def test_files_are_offered_for_the_text_file(self):
        self.assert_completes("zyntool export -f n\t", "zyntool export -f notes.txt END")

    def test_nothing_is_offered_for_free_values(self):
        self.assert_completes("zyntool export -l n\t", "zyntool export -l nEND")
        self.assert_completes("zyntool test -m n\t", "zyntool test -m nEND")
        self.assert_completes("zyntool performance -t n\t", "zyntool performance -t nEND")

    def test_options_of_the_other_programs_are_those_of_their_usage(self):
        for program in sorted(PROGRAMS - {"zyntool"}):
            options = usage_options(program)
            self.assertGreater(len(options), 4)
            self.assert_lists(f"{program} -", OPTION, options)

    def test_long_options_are_completed(self):
        self.assert_completes("zynlog-verify --se\t", "zynlog-verify --separate END")
        self.assert_completes("zyn-doctor --j\t", "zyn-doctor --json END")
        self.assert_completes("zynlog-cat --fol\t", "zynlog-cat --follow END")

    def test_logs_and_directories_are_offered_to_verify(self):
        self.assert_completes("zynlog-verify --json z\t", "zynlog-verify --json zynlog-1.txt END")
        self.assert_completes("zynlog-verify l\t", "zynlog-verify logs/END")

    def test_the_doctor_takes_no_names(self):
        self.assert_completes("zyn-doctor n\t", "zyn-doctor nEND")


class BashTest(CompletionTests, unittest.TestCase):
    SHELL = Bash

    def test_commands_are_completed_in_any_case(self):
        self.assert_completes("zyntool PRES\t", "zyntool preservation END")
        self.assert_completes("zyntool EXPORT -D l\t", "zyntool EXPORT -D logs/END")


@unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
class ZshTest(CompletionTests, unittest.TestCase):
    SHELL = Zsh


@unittest.skipUnless(shutil.which("fish"), "fish is not installed")
class FishTest(CompletionTests, unittest.TestCase):
    SHELL = Fish


if __name__ == "__main__":
    unittest.main()
