# SPDX-License-Identifier: Apache-2.0

"""Checks that the table of alerts in docs/operations.md names figures that "qvhost status --json" prints.

    alerts.py SOURCE_FOLDER QVHOST
"""

import json
import pathlib
import re
import subprocess
import sys
import tempfile

from resident_host import ResidentHost


def is_figure(status, name):
    for part in name.split("."):
        if not isinstance(status, dict) or part not in status:
            return False
        status = status[part]
    return True


def main():
    page = pathlib.Path(sys.argv[1], "docs/operations.md").read_text()
    table = page.split("| figure | alert if | then |\n")[1].split("\n\n")[0]
    # Options and settings begin with other characters, and values are in the middle column.
    cells = [cell for row in table.splitlines() for cell in (row.split("|")[1], row.split("|")[3])]
    names = [name for cell in cells for name in re.findall("`([a-z][A-Za-z.]*)`", cell)]
    if len(names) < 8:
        sys.exit(f"the table names only {names}")
    with tempfile.TemporaryDirectory() as folder, ResidentHost(sys.argv[2], folder) as host:
        host.start()
        status = json.loads(subprocess.check_output([sys.argv[2], "status", "--json"], env=host.environment))
    unknown = [name for name in names if not is_figure(status, name)]
    if unknown:
        sys.exit(f"the status has no {unknown}")


main()
