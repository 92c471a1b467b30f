# SPDX-License-Identifier: Apache-2.0

"""Checks that docs/operations.md explains each line that the resident host writes to the journal.

    journal_lines.py SOURCE_FOLDER

Takes the texts from the sources: what is given to the functions that write lines, and what a host that does not start
throws. Each part of a text between its values must be in the page's section on the journal.
"""

import pathlib
import re
import sys

SOURCE = pathlib.Path(sys.argv[1])
LITERALS = r'((?:\s*"(?:[^"\\]|\\.)*")+)'
LINES = re.compile(r"\b(?:writeJournal|tell|report_|adopt)\((?:[^;\"]*)" + LITERALS)
REFUSALS = re.compile(r"\bruntime_error\((?:[^;\"]*)" + LITERALS)
STARTING = ["Access", "DescriptorLimit", "DirectoryLock", "ListeningSocket", "ServiceManager"]


def texts():
    files = [*sorted((SOURCE / "qvhost/server").glob("*.cpp")), SOURCE / "qvhost/cli/Serve.cpp"]
    for file in files:
        code = file.read_text()
        found = LINES.findall(code) + (REFUSALS.findall(code) if file.stem in STARTING else [])
        for literals in found:
            yield file.name, "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', literals))


def main():
    page = (SOURCE / "docs/operations.md").read_text()
    section = re.search(r"^## The lines of the journal$(.*?)^## ", page, re.MULTILINE | re.DOTALL).group(1)
    count = 0
    for name, text in texts():
        for part in re.split(r"\{[^}]*\}", text):
            if len(part.strip(" ;:,")) > 2 and part.strip(" ;:") not in section:
                sys.exit(f"docs/operations.md does not explain \"{text}\" of {name}: \"{part}\" is not there")
        count += 1
    if count < 25:
        sys.exit(f"only {count} texts were found in the sources")
    print(f"{count} texts")


main()
