# SPDX-License-Identifier: Apache-2.0

"""Follows the recipes of docs/operations.md from top to bottom.

    recipes.py SOURCE_FOLDER QVHOST

The recipes are the blocks of the language "console". They are played as one session with a host that has two
services. Its directory is a temporary one, and systemctl is a function that stops and starts this host.
"""

import os
import pathlib
import sys
import tempfile

from session import Session, console_blocks

SOURCE, QVHOST = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
SYSTEMCTL = """systemctl() {
    case $1 in
        stop) kill "$server" && wait "$server" ;;
        start) start_host qvhost serve >/dev/null ;;
    esac
}"""


def main():
    recipes = console_blocks(SOURCE / "docs/operations.md")
    if len(recipes) < 7:
        sys.exit(f"only {len(recipes)} recipes were found")
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        programs, state = folder / "programs", folder / "state"
        programs.mkdir()
        (programs / "qvhost").symlink_to(QVHOST)
        environment = dict(os.environ, PATH=f"{programs}:{os.environ['PATH']}", scratch=name,
                           QV_CONFIG_DIR=str(state), QV_LOG_DIR=name, QV_RUN_DIR=name)
        session = Session(folder, environment)
        session.type(f"source '{SOURCE}/scripts/common.sh'; cd '{folder}'; qvhost init >/dev/null")
        session.type(SYSTEMCTL)
        session.type("systemctl start; qvhost register 1 /run/a.sock 2 tcp://127.0.0.1:9000")
        for recipe in recipes:
            session.play(recipe.replace("/var/lib/Vornak/LorxCore", str(state)).splitlines())
        session.end("systemctl stop")
    print(f"{len(recipes)} recipes")


main()
