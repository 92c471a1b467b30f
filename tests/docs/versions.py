# SPDX-License-Identifier: Apache-2.0

"""Checks that the documents and qvhost tell the version of the project.

    versions.py SOURCE_FOLDER QVHOST VERSION
"""

import pathlib
import re
import subprocess
import sys

SOURCE, QVHOST, VERSION = pathlib.Path(sys.argv[1]), *sys.argv[2:4]


def found(what, pattern, text):
    """Exits unless the first match of the pattern is the version."""
    match = re.search(pattern, text, re.MULTILINE)
    if match is None or match.group(1) != VERSION:
        sys.exit(f"{what} tells {match and match.group(1)} and not {VERSION}")


found("qvhost --version", r"^qvhost (\S+)$", subprocess.check_output([QVHOST, "--version"], text=True))
found("the newest entry of CHANGELOG.md", r"^## (\S+)", (SOURCE / "CHANGELOG.md").read_text())
found("README.md", r"^The version is (\S+);", (SOURCE / "README.md").read_text())
