# SPDX-License-Identifier: Apache-2.0

"""Plays a session that a document shows: lines to type, which begin with "$ ", and what they print.

    session = Session(folder, environment)
    session.play(["$ echo a", "a"])
    session.end("true")

Exits if a line prints something else than the document shows, or fails.
"""

import pathlib
import re
import subprocess
import sys

# The shell prints this after a command that does not go on in the background.
END = "end-of-the-command"


def console_blocks(page):
    """Returns the sessions that a page shows, which are its blocks of the language "console"."""
    return re.findall(r"^```console\n(.*?)^```$", pathlib.Path(page).read_text(encoding="utf-8"),
                      re.MULTILINE | re.DOTALL)


class Session:
    """A shell that ends at the first command that fails."""

    def __init__(self, folder, environment):
        self._shell = subprocess.Popen(["bash", "--norc"], cwd=folder, env=environment, stdin=subprocess.PIPE,
                                       stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, bufsize=1)
        # The host of the session holds the shell's output open, so it ends with the shell.
        self.type("set -e; trap 'kill $(jobs -p) 2>/dev/null || true' EXIT")

    def type(self, line):
        self._shell.stdin.write(line + "\n")

    def play(self, lines):
        lines = list(lines)
        starts = [place for place, line in enumerate(lines) if line.startswith("$ ")]
        for start, end in zip(starts, [*starts[1:], len(lines)]):
            self._run(lines[start][2:], lines[start + 1:end])

    def _run(self, command, expected):
        self.type(command)
        if command.endswith("&"):
            printed = [self._shell.stdout.readline().rstrip("\n") for _ in expected]
        else:
            self._shell.stdin.write(f"echo {END}\n")
            printed = self._printed()
        if printed != expected:
            self._shell.stdin.close()
            self._shell.wait()
            sys.exit(f"\"{command}\" prints {printed} and not {expected}")

    def _printed(self):
        """Returns the lines up to the mark. If the shell has ended, there is no mark."""
        lines = []
        for line in self._shell.stdout:
            if line == f"{END}\n":
                break
            lines.append(line.rstrip("\n"))
        return lines

    def end(self, command):
        """Types the last command. Exits if the session has printed more than was played, or failed."""
        self.type(command)
        self._shell.stdin.close()
        with self._shell.stdout as output:
            rest = output.read()
        if self._shell.wait() != 0 or rest:
            sys.exit(f"the session ends with {self._shell.returncode} and prints more: {rest}")
