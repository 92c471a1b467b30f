# SPDX-License-Identifier: Apache-2.0

"""Checks that the manual page of qvhost and its help texts have the same commands and options.

    manual_pages.py PAGE QVHOST
"""

import re
import subprocess
import sys

PAGE, QVHOST = sys.argv[1:3]


def help_text(*command):
    return subprocess.run([QVHOST, *command, "--help"], check=True, capture_output=True, text=True).stdout


def options(text):
    return set(re.findall(r"(?<![\w-])--[a-z][a-z-]+", text))


def main():
    with open(PAGE, encoding="utf-8") as file:
        page = file.read().replace("\\-", "-")
    listed = help_text().partition("Subcommands:\n")[2].partition("\n\n")[0]
    commands = re.findall(r"^  (\w+) ", listed, re.MULTILINE)
    known = options(help_text()).union(*(options(help_text(command)) for command in commands))
    problems = [f"the help texts lack {option}" for option in sorted(options(page) - known)]
    problems += [f"the page lacks {option}" for option in sorted(known - options(page))]
    described = re.findall(r"^\.TP\n\.BI? (\w+)", page.partition(".SH OPTIONS")[0], re.MULTILINE)
    problems += [f"the page or the help text lacks the command {name}" for name in set(commands) ^ set(described)]
    if problems or len(commands) < 10:
        sys.exit("\n".join(problems) or listed)


main()
