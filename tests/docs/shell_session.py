"""The three shells on a pseudo-terminal, typed at as by a user. The completions are loaded as each shell
loads them, and nothing of the shells is replaced."""

import fcntl
import os
import pty
import re
import select
import signal
import struct
import termios
import time

DEADLINE_SECONDS = 60
# No list of candidates needs more, so that none is paged.
ROWS, COLUMNS = 200, 160
CONTROL = re.compile(r"\x1b\[[0-9;?<>=]*[ -/]*[@-~]|\x1b\][^\x07\x1b]*(?:\x07|\x1b\\)|\x1b[()][0-9A-B]|"
                     r"\x1b.|[\x00-\x09\x0b-\x1f\x7f]")
OPTION = r"(?<!\S)--?\w[\w-]*(?!\S)"


class ShellSession:
    """A running shell; `completions` is the directory of the files, for the programs named."""

    def __init__(self, completions, programs, environment, directory):
        self.output = ""
        self.marks = 0
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.chdir(directory)
            os.execvpe(self.COMMAND[0], self.COMMAND, environment)
        fcntl.ioctl(self.terminal, termios.TIOCSWINSZ, struct.pack("HHHH", ROWS, COLUMNS, 0, 0))
        for line in self.settings(completions, programs):
            self.run(line)

    def close(self):
        os.kill(self.process, signal.SIGKILL)
        os.waitpid(self.process, 0)
        os.close(self.terminal)

    def type(self, text):
        os.write(self.terminal, text.encode())

    def shown(self):
        return CONTROL.sub("", self.output.replace("\r\n", "\n"))

    def expect(self, found):
        """Reads until found(), of what is shown, holds."""
        end = time.monotonic() + DEADLINE_SECONDS
        while not found(self.shown()):
            left = end - time.monotonic()
            if left <= 0 or not select.select([self.terminal], [], [], left)[0]:
                raise AssertionError(f"the terminal shows {self.shown()[-3000:]!r}")
            self.output += os.read(self.terminal, 65536).decode("utf-8", "replace")

    def run(self, line):
        """Types a line, with tabs in it where the shell completes, and has it run."""
        self.type(line + "\r")
        self.finish()

    def finish(self):
        """Reads until the shell has done all that was typed before."""
        self.marks += 1
        # Not as it is typed, which the terminal shows too.
        self.type(f"echo do''ne-{self.marks}-\r")
        self.expect(lambda shown: f"done-{self.marks}-" in shown)

    def listed(self, line, form, expected):
        """What the shell lists for an unfinished line in texts of this form: waits for the expected ones, and
        takes all that have come with them."""
        self.output = ""
        self.type(line)
        self.expect(lambda shown: line.split(" ")[-1] in shown)
        self.output = ""
        self.type("\t")
        self.expect(lambda shown: set(re.findall(form, shown, re.MULTILINE)) >= set(expected))
        # Away with the line, and on a new one.
        self.type("\x15\r")
        self.finish()
        # The line itself may have been drawn anew, with the beginning that all candidates have in common.
        # Twice, if the shell was slow: then the second drawing stands right behind the first.
        drawn = re.escape(line)
        text = re.sub(rf"{drawn}(?:(?!{drawn})\S)*", " ", self.shown())
        return sorted(set(re.findall(form, text, re.MULTILINE)))


class Bash(ShellSession):
    COMMAND = ["bash", "--norc", "--noprofile", "-i"]
    COMMAND_WORD = r"^(\w+)$"

    @staticmethod
    def settings(completions, programs):
        return [f"bind 'set {setting}'" for setting in (
            "show-all-if-ambiguous on", "page-completions off", "completion-query-items -1",
            "completion-display-width 0")] + [f"source {completions}/{program}.bash" for program in programs]


class Zsh(ShellSession):
    COMMAND = ["zsh", "-f", "-i"]
    COMMAND_WORD = r"^(\w+) +-- "

    @staticmethod
    def settings(completions, _programs):
        return ["bindkey -e; LISTMAX=1000; unsetopt list_ambiguous", f"fpath=({completions} $fpath)",
                "autoload -U compinit; compinit -u -D"]


class Fish(ShellSession):
    COMMAND = ["fish", "--no-config", "--interactive"]
    COMMAND_WORD = r"(?<!\S)(\w+) +\("

    @staticmethod
    def settings(completions, _programs):
        return [f"set -g fish_complete_path {completions}", "set -g fish_autosuggestion_enabled 0"]
