# SPDX-License-Identifier: Apache-2.0

"""Checks that docs/session.svg shows what a session prints today.

    recording.py SOURCE_FOLDER QVHOST
"""

import difflib
import pathlib
import subprocess
import sys
import tempfile

SOURCE, QVHOST = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
PICTURE = "docs/session.svg"
LARGEST = 30_000  # bytes


def main():
    with tempfile.TemporaryDirectory() as folder:
        new = pathlib.Path(folder) / "session.svg"
        subprocess.run([sys.executable, SOURCE / "scripts/record", QVHOST, new], check=True)
        recorded = new.read_text(encoding="utf-8")
    shown = (SOURCE / PICTURE).read_text(encoding="utf-8")
    if recorded != shown:
        difference = difflib.unified_diff(shown.splitlines(), recorded.splitlines(), PICTURE, "recorded now",
                                          lineterm="")
        print("\n".join(difference))
        sys.exit(f"{PICTURE} is no recording of this program; run: scripts/record build/bin/qvhost {PICTURE}")
    if len(recorded) > LARGEST:
        sys.exit(f"{PICTURE} has {len(recorded)} bytes, and may have {LARGEST}")


main()
