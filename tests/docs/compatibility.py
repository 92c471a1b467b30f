# SPDX-License-Identifier: Apache-2.0

"""Checks that the code names each number of docs/compatibility.md, and that each test there exists.

    compatibility.py SOURCE_DIRECTORY
"""

import pathlib
import re
import sys

SOURCE = pathlib.Path(sys.argv[1])


def text_of(folder, *suffixes):
    files = sorted(path for path in (SOURCE / folder).rglob("*") if path.suffix in suffixes)
    return "\n".join(path.read_text(encoding="utf-8") for path in files)


def main():
    page = (SOURCE / "docs/compatibility.md").read_text(encoding="utf-8")
    described = re.findall(r"^\| (C\d+) \|", page, re.MULTILINE)
    named = set(re.findall(r"\b[Cc]ompatibility (C\d+)\b", text_of("src", ".cpp", ".h", ".proto")))
    problems = [f"{number} is described more than once" for number in set(described) if described.count(number) > 1]
    problems += [f"no code names {number}" for number in described if number not in named]
    problems += [f"{number} is not described" for number in sorted(named - set(described))]
    tests = text_of("tests", ".cpp")
    known = {".".join(test) for test in re.findall(r"^TEST(?:_[FP])?\((\w+),\s*(\w+)\)", tests, re.MULTILINE)}
    for row in re.findall(r"^\| C\d+ \|.*\| (.*) \|$", page, re.MULTILINE):
        for test in re.findall(r"`([^`]+)`", row):
            # Prefix/Suite.Test/Parameter
            if re.sub(r"^\w+/|(?<=\w)/\w+$", "", test) not in known:
                problems.append(f"there is no test {test}")
    if problems or not described:
        sys.exit("\n".join(problems) or "the page describes nothing")


main()
