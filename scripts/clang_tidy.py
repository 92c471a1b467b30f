# SPDX-License-Identifier: Apache-2.0

"""Runs clang-tidy on each of our own sources, and prints what it finds.

    clang_tidy.py BUILD_FOLDER CACHE_FOLDER FOLDER...

Reads the compile commands of a finished build, and checks the sources that are below the folders. Fails if
clang-tidy finds something or cannot read a source.

clang-tidy takes seconds for a source. A source that is clean is checked again only if something changes that
clang-tidy reads: the source, a header, the compile command, the configuration or clang-tidy itself. The cache folder
has an empty file for each clean source. The file's name is the hash of all these.
"""

import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path.cwd()
# A file of the cache that nobody needs for so long is removed.
MOST_SECONDS = 30 * 24 * 3600


def sources_in(entry):
    """Returns the sources that one compile command compiles."""
    path = pathlib.Path(entry["file"])
    if path.parent.name != "Unity":
        return [path]
    return [pathlib.Path(name) for name in re.findall(r'#include "(.*)"', path.read_text())]


def commands_in(build, folders):
    """Returns a compile command for each of our sources by itself.

    The commands use no precompiled headers, which only the compiler that made them can read.
    """
    commands = {}
    for entry in json.loads((build / "compile_commands.json").read_text()):
        command = re.sub(r"-Winvalid-pch -include \S*cmake_pch\S*", "", entry["command"])
        for source in sources_in(entry):
            if source.is_relative_to(ROOT) and source.relative_to(ROOT).parts[0] in folders:
                single = command.replace(entry["file"], str(source))
                commands[source] = {"directory": entry["directory"], "command": single, "file": str(source)}
    return commands


def dependencies_of(lint, tools):
    """Returns the files that clang reads for each source of the compile commands."""
    scan = [tools / "clang-scan-deps", "-compilation-database", lint / "compile_commands.json"]
    rules = subprocess.run(scan, check=True, stdout=subprocess.PIPE, text=True).stdout.replace("\\\n", " ")
    dependencies = {}
    for rule in rules.splitlines():
        names = re.findall(r"(?:\\.|\S)+", rule.partition(": ")[2])
        files = [pathlib.Path(name.replace("\\", "")) for name in names]
        # The source is the first file of its rule.
        dependencies[files[0]] = files
    return dependencies


class Keys:
    """Makes the names of files in the cache. A name does not depend on the place of the checkout."""

    def __init__(self, tools, folders):
        self._files = {}
        configuration = [path for folder in folders for path in (ROOT / folder).glob("**/.clang-tidy")]
        self._common = [tools / "clang-tidy", ROOT / ".clang-tidy", *configuration]

    def _digest_of(self, path):
        """Returns the hash of the file's name and content."""
        if path not in self._files:
            name = str(path).replace(str(ROOT), "").encode()
            self._files[path] = hashlib.sha256(name + b"\0" + path.read_bytes()).digest()
        return self._files[path]

    def key_of(self, command, files):
        key = hashlib.sha256(command.replace(str(ROOT), "").encode())
        for digest in sorted(map(self._digest_of, self._common + files)):
            key.update(digest)
        return key.hexdigest()


def is_clean(source, lint):
    """Runs clang-tidy on the source. Prints the findings."""
    tidy = subprocess.run(["clang-tidy", "-quiet", "-p", lint, source], text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    if tidy.returncode != 0:
        # The other stream counts the warnings in headers of libraries, unless a source cannot be read.
        print(tidy.stdout or tidy.stderr, end="", flush=True)
    return tidy.returncode == 0


def main():
    build, cache, folders = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]), sys.argv[3:]
    commands = commands_in(build, folders)
    lint = build / "lint"
    lint.mkdir(exist_ok=True)
    (lint / "compile_commands.json").write_text(json.dumps(list(commands.values())))

    tools = pathlib.Path(shutil.which("clang-tidy")).resolve().parent
    dependencies = dependencies_of(lint, tools)
    keys = Keys(tools, folders)
    entries = {source: cache / keys.key_of(command["command"], dependencies[source])
               for source, command in commands.items()}

    def check(source):
        clean = is_clean(source, lint)
        if clean:
            entries[source].touch()
        return clean

    cache.mkdir(parents=True, exist_ok=True)
    unknown = [source for source, entry in entries.items() if not entry.exists()]
    # Begins with long sources, so that no processor is left alone with one at the end.
    unknown.sort(key=lambda source: len(dependencies[source]), reverse=True)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(check, unknown))

    for entry in entries.values():
        if entry.exists():
            entry.touch()
    for entry in cache.iterdir():
        if time.time() - entry.stat().st_mtime > MOST_SECONDS:
            entry.unlink()
    print(f"{len(entries)} sources, {len(unknown)} of them checked now, {results.count(False)} with findings")
    return 1 if False in results or not entries else 0


if __name__ == "__main__":
    sys.exit(main())
