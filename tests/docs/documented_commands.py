# SPDX-License-Identifier: Apache-2.0

"""Executes every command that the documents print.

    documented_commands.py SOURCE_FOLDER QVHOST

Executes the commands of qvhost as they are printed, in the order of the documents, in a temporary folder in
which a resident host serves. Fails if a command's exit status is not 0. Does not execute the project's scripts,
which would build everything again, but checks that .ci/run executes each of them.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

from resident_host import end, serve

SOURCE, QVHOST = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
DOCUMENTS = ["README.md", *sorted(f"docs/{path.name}" for path in (SOURCE / "docs").glob("*.md"))]
PAGES = sorted((SOURCE / "docs/man").iterdir())


def printed_commands():
    """Yields each command with the name of its document."""
    for name in DOCUMENTS:
        text = (SOURCE / name).read_text()
        if blank := re.search(r"@[A-Z]+@", text):
            sys.exit(f"{name} contains the placeholder {blank.group()}")
        spans = re.findall(r"^    (\S.*)$|`((?:build/bin/)?qvhost[^`]*|scripts/[^`]*|mkdir [^`]*)`", text, re.MULTILINE)
        for block, span in spans:
            command = re.sub(r"\s+", " ", block or span)
            command = command.removeprefix("ExecStart=")
            if re.match(r"(build/bin/|/usr/bin/)?qvhost \S|scripts/|mkdir ", command):
                yield name, command
    for page in PAGES:
        examples = re.search(r"^\.SH EXAMPLES\n\.nf\n(.*?)^\.fi$", page.read_text(), re.MULTILINE | re.DOTALL)
        for line in examples.group(1).splitlines() if examples else []:
            yield page.name, line.replace("\\-", "-")


def execute(where, command, environment):
    # Replaces the words for which a reader puts in a directory or an existing group.
    words = command.replace("DIR", "directory").replace("vornak", str(os.getgid())).split()
    program = words[0].rpartition("/")[2]
    if program == "qvhost" and "serve" in words:
        # The other host has the socket and the configuration of the environment.
        own = [] if "--socket" in words else ["--socket", "other.sock"]
        os.makedirs("other", exist_ok=True)
        end(serve(QVHOST, words[1:] + own, dict(environment, QV_CONFIG_DIR="other")))
        return
    if program == "qvhost":
        words[0] = QVHOST
    done = subprocess.run(words, env=environment, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{where} prints \"{command}\", which fails with {done.returncode}: {done.stderr}")


def check_script(where, command):
    script = command.split()[0]
    if not os.access(SOURCE / script, os.X_OK):
        sys.exit(f"{where} prints \"{command}\", but {script} is no executable file")
    steps = (SOURCE / ".ci/run").read_text().splitlines()
    if not any(step.split()[:2] == ["stage", script] for step in steps):
        sys.exit(f"{where} prints \"{command}\", but .ci/run does not run {script}")


def main():
    # Executes a command once if several documents print it, because a second export to a file fails.
    commands = {}
    for where, command in printed_commands():
        commands.setdefault(command, where)
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        environment = dict(os.environ, QV_RUN_DIR=folder, QV_LOG_DIR=folder, QV_CONFIG_DIR=folder)
        subprocess.run([QVHOST, "init"], env=environment, check=True, stdout=subprocess.DEVNULL)
        pathlib.Path("log").mkdir()
        host = serve(QVHOST, ["serve"], environment)
        executed = 0
        for command, where in commands.items():
            # Leaves out a synopsis with placeholders, such as "level N" or "COMMAND --help".
            if re.search(r"\b[A-Z]{2,}\b", command.replace("DIR", "")) or command.endswith(" N"):
                continue
            if command.startswith("scripts/"):
                check_script(where, command)
            else:
                execute(where, command, environment)
            executed += 1
        end(host)
    if executed < 20:
        sys.exit(f"only {executed} commands were found in the documents")
    print(f"{executed} commands")


main()
