# SPDX-License-Identifier: Apache-2.0

"""Runs the session and the programs that README.md shows.

    documented_examples.py SOURCE_FOLDER QVHOST CLIENT_LIBRARY GENERATED_HEADERS C_COMPILER CXX_COMPILER

Plays the session. Then builds and runs each program, in the order of the page, with one resident host. Each program
must print the line that its comment "prints:" names. Does not run the project's scripts, which would build everything
again.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

from resident_host import ResidentHost
from session import Session

SOURCE, QVHOST, LIBRARY, GENERATED_HEADERS = (pathlib.Path(argument).resolve() for argument in sys.argv[1:5])
C_COMPILER, CXX_COMPILER = sys.argv[5:7]
WARNINGS = ["-Wall", "-Wextra", "-Werror"]


def blocks():
    """Yields the language and the text of each fenced block."""
    return re.findall(r"^```(\w+)\n(.*?)^```$", (SOURCE / "README.md").read_text(), re.MULTILINE | re.DOTALL)


def run_session(text, folder, environment):
    """Plays the session in a folder that has build/bin/qvhost."""
    (folder / "build/bin").mkdir(parents=True)
    (folder / "build/bin/qvhost").symlink_to(QVHOST)
    session = Session(folder, environment)
    lines = text.replace("/tmp/naming", str(folder / "naming")).splitlines()
    session.play(line for line in lines if not line.startswith("$ scripts/"))
    session.end("kill $! && wait $!")


def command_of(language, text, folder):
    """Returns the command that runs the program, after building it."""
    if language == "python":
        (folder / "program.py").write_text(text)
        return [sys.executable, "program.py"]
    source = "program." + language
    (folder / source).write_text(text)
    compiler = [C_COMPILER, "-std=c99"] if language == "c" else [CXX_COMPILER, "-std=c++17"]
    subprocess.run([*compiler, *WARNINGS, source, "-o", language, "-I", SOURCE / "client/include",
                    "-I", GENERATED_HEADERS, LIBRARY, f"-Wl,-rpath,{LIBRARY.parent}"], cwd=folder, check=True)
    return [folder / language]


def run_program(language, text, folder, environment):
    expected = re.search(r"prints: (.*?)(?: \*/)?$", text, re.MULTILINE).group(1)
    program = subprocess.Popen(command_of(language, text, folder), cwd=folder, env=environment,
                               stdout=subprocess.PIPE, text=True)
    printed = program.stdout.readline().rstrip("\n")
    if language == "python":
        program.kill()  # The loop has no end.
    if program.wait() != 0 and language != "python":
        sys.exit(f"the program in {language} ends with {program.returncode}")
    if printed != expected:
        sys.exit(f"the program in {language} prints \"{printed}\" and not \"{expected}\"")


def main():
    languages = []
    with tempfile.TemporaryDirectory() as name, ResidentHost(QVHOST, name) as host:
        folder = pathlib.Path(name)
        host.start()
        environment = dict(host.environment, PYTHONPATH=str(SOURCE / "python"), PYTHONUNBUFFERED="1")
        for language, text in blocks():
            languages.append(language)
            if language == "console":
                run_session(text, folder, environment)
            else:
                run_program(language, text, folder, environment)
    if languages != ["console", "cpp", "c", "python"]:
        sys.exit(f"README.md has these blocks: {languages}")


main()
