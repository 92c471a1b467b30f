# SPDX-License-Identifier: Apache-2.0

"""Checks that every source and script names its licence in its first lines.

    license_lines.py SOURCE_FOLDER
"""

import pathlib
import sys

LINE = "SPDX-License-Identifier: Apache-2.0"
SUFFIXES = {".cpp", ".h", ".c", ".proto", ".py", ".sh", ".bash", ".cmake", ".1", ".5"}
FOLDERS = ["bench", "client", "cmake", "codegen", "docs", "examples", "fuzz", "packaging", "platform", "python",
           "qvhost", "scripts", "src", "tests", ".ci"]


def is_source(path):
    if path.name == "CMakeLists.txt" or path.suffix in SUFFIXES:
        return True
    with path.open("rb") as file:
        return file.read(2) == b"#!"


def main(root):
    data = root / "tests" / "data"
    files = [path for folder in FOLDERS for path in (root / folder).rglob("*")
             if path.is_file() and data not in path.parents and is_source(path)]
    # A folder that is not found would make the check pass for nothing.
    for folder in FOLDERS:
        assert any(root / folder in path.parents for path in files), f"{folder} has no sources"
    silent = [path for path in files if LINE not in "".join(path.open(encoding="utf-8").readlines()[:3])]
    for path in silent:
        print(f"{path.relative_to(root)} does not say {LINE!r} in its first lines")
    return 1 if silent else 0


if __name__ == "__main__":
    sys.exit(main(pathlib.Path(sys.argv[1])))
