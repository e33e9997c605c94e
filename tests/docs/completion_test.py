"""Completions of the three shells offer the commands and options there are, and never run the programs:
a zyntool and a zynlog-verify that tell on whoever calls them stand first in PATH."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(os.environ["ZYN_SOURCE"])
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
VERIFY_OPTIONS = ["--blocks", "--help", "--json", "--quiet", "--separate", "--version",
                  "-V", "-b", "-h", "-j", "-q", "-s"]
# The shell's own helpers need a terminal; in their place stand ones that tell what they get. The
# first argument is the completion, the others are the words.
ZSH_HELPERS = r'''
    _describe() { print -l -- ${${(P)4}%%:*} }
    _arguments() {
        local option
        for option in "$@"; do
            [[ $option == -[Ss] || $option == \** ]] && continue
            option=${option#\(*\)}
            print -r -- ${option%%\[*}
        done
    }
    words=("$@[2,-1]") CURRENT=$(($# - 1))
    source $1
'''


class CompletionTest(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory(prefix="zyn-completion.")
        self.addCleanup(directory.cleanup)
        self.home = Path(directory.name) / "home"
        self.work = Path(directory.name) / "work"
        self.called = Path(directory.name) / "called"
        programs = Path(directory.name) / "bin"
        for path in (self.home, self.work, programs, self.work / "logs"):
            path.mkdir()
        (self.work / "zynlog-1.txt").touch()
        (self.work / "notes.txt").touch()
        for program in ("zyntool", "zynlog-verify"):
            tell_tale = programs / program
            tell_tale.write_text(f"#!/bin/sh\ntouch {self.called}\n")
            tell_tale.chmod(0o755)
        self.environment = {"PATH": f"{programs}:{os.environ['PATH']}", "HOME": str(self.home),
                            "LC_ALL": "C.UTF-8", "TERM": "dumb"}

    def tearDown(self):
        self.assertFalse(self.called.exists(), "the completion ran the program")

    def run_shell(self, *command):
        result = subprocess.run(command, cwd=self.work, env=self.environment, text=True,
                                stdin=subprocess.DEVNULL, capture_output=True, timeout=60, check=False)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        return result.stdout.splitlines()

    def bash(self, *words, program="zyntool"):
        script = ('source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); "_${1//-/_}"; '
                  '((${#COMPREPLY[@]} == 0)) || printf "%s\\n" "${COMPREPLY[@]}"')
        return sorted(self.run_shell("bash", "--norc", "-c", script,
                                     str(SOURCE / "completions" / f"{program}.bash"), program, *words))

    def fish(self, line):
        completion = SOURCE / "completions" / f"{line.split()[0]}.fish"
        script = f"source {completion}; complete -C '{line}'"
        return sorted(o.split("\t")[0] for o in self.run_shell("fish", "--no-config", "-c", script))

    def zsh(self, *words):
        return sorted(self.run_shell("zsh", "-f", "-c", ZSH_HELPERS, "zsh",
                                     str(SOURCE / "completions" / f"_{words[0]}"), *words))

    def test_commands_are_those_that_the_program_registers(self):
        registered = re.findall(r'parser\.Add\("(\w+)"',
                                (SOURCE / "src" / "zyntool" / "main.cpp").read_text())
        self.assertEqual(sorted(registered), COMMANDS)

    def test_bash_offers_all_commands(self):
        self.assertEqual(self.bash(""), COMMANDS)

    def test_bash_offers_the_commands_with_a_prefix_in_any_case(self):
        self.assertEqual(self.bash("PRE"), ["preservation"])

    def test_bash_offers_the_options_of_each_command(self):
        for command, options in OPTIONS.items():
            self.assertEqual(self.bash(command, "-"), options, command)

    def test_bash_offers_options_after_a_finished_value(self):
        self.assertEqual(self.bash("Export", "-d", "logs", "-s"), ["-s", "-silent"])

    def test_bash_offers_directories_for_directory_options(self):
        self.assertEqual(self.bash("export", "-d", ""), ["logs"])
        self.assertEqual(self.bash("export", "-M", ""), ["logs"])

    def test_bash_offers_logs_and_directories_for_a_source_file(self):
        self.assertEqual(self.bash("export", "-s", ""), ["logs", "zynlog-1.txt"])

    def test_bash_offers_files_for_the_text_file(self):
        self.assertEqual(self.bash("export", "-f", "n"), ["notes.txt"])

    def test_bash_offers_nothing_for_free_values(self):
        self.assertEqual(self.bash("export", "-l", ""), [])
        self.assertEqual(self.bash("test", "-m", ""), [])
        self.assertEqual(self.bash("performance", "-t", ""), [])

    def test_bash_offers_nothing_after_an_unknown_command(self):
        self.assertEqual(self.bash("bogus", ""), [])

    def test_verify_options_are_those_of_the_usage(self):
        usage = (SOURCE / "src" / "zynverify" / "VerifyOptions.cpp").read_text()
        named = re.findall(r'"  (-\w), (--\w+) ', usage)
        self.assertEqual(sorted(option for pair in named for option in pair), VERIFY_OPTIONS)

    def test_bash_offers_the_options_of_verify(self):
        self.assertEqual(self.bash("-", program="zynlog-verify"), VERIFY_OPTIONS)
        self.assertEqual(self.bash("--s", program="zynlog-verify"), ["--separate"])

    def test_bash_offers_logs_and_directories_to_verify(self):
        self.assertEqual(self.bash("--json", "", program="zynlog-verify"), ["logs", "zynlog-1.txt"])

    @unittest.skipUnless(shutil.which("fish"), "fish is not installed")
    def test_fish_offers_commands_and_options(self):
        self.assertEqual(self.fish("zyntool "), COMMANDS)
        for command, options in OPTIONS.items():
            self.assertEqual(self.fish(f"zyntool {command} -"), options, command)
        self.assertEqual(self.fish("zyntool EXPORT -d l"), ["logs/"])
        self.assertEqual(self.fish("zynlog-verify -"), VERIFY_OPTIONS)

    @unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
    def test_zsh_offers_commands_and_options(self):
        self.assertEqual(self.zsh("zyntool", ""), COMMANDS)
        for command, options in OPTIONS.items():
            self.assertEqual(self.zsh("zyntool", command.upper(), "-"), options, command)
        self.assertEqual(self.zsh("zynlog-verify", "-"), VERIFY_OPTIONS)


if __name__ == "__main__":
    unittest.main()
