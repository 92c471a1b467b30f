# SPDX-License-Identifier: Apache-2.0

"""Follows docs/operations.md with the units of the packages: the recipes, and what the page says about both units.

The commands and the lines for the units are read from the page.
"""

import glob
import grp
import json
import os
import pty
import re
import shutil
import signal
import sys
import tempfile
import unittest

from machine import (CONFIGURATION, NAMES, PACKAGES, SERVICE, SOCKET_UNIT, SOURCE, list_as, listing, main_process, run,
                     runs_again_after, shown, systemctl, wait_until)

sys.path.append(SOURCE + "/tests/docs")
from session import Session, console_blocks  # pylint: disable=wrong-import-position

PAGE = SOURCE + "/docs/operations.md"


def page():
    with open(PAGE, encoding="utf-8") as file:
        return file.read()


def indented_blocks(heading):
    """Returns the indented blocks of a section of the page."""
    section = page().split(f"\n{heading}\n")[1].split("\n#")[0]
    blocks = re.findall(r"(?:^    .*\n(?:\n(?=    ))?)+", section, re.MULTILINE)
    return [re.sub(r"^    ", "", block, flags=re.MULTILINE) for block in blocks]


def printed(command):
    """Returns the command as a list of words. Raises AssertionError if the page does not print the command."""
    if not re.search(rf"(`|^    ){re.escape(command)}(`|$)".replace(r"\ ", r"\s+"), page(), re.MULTILINE):
        raise AssertionError(f"the page does not print \"{command}\"")
    return command.split()


def follow(command):
    run(*printed(command))


def edit(unit, lines):
    """Puts lines into a unit with the command that the page prints. The editor of the command writes them."""
    with tempfile.NamedTemporaryFile("w") as text:
        text.write(lines)
        text.flush()
        os.environ["SYSTEMD_EDITOR"] = f"cp {text.name}"
        # The command wants a terminal.
        if pty.spawn(printed(f"systemctl edit {unit}"), lambda terminal: os.read(terminal, 1024)) != 0:
            raise AssertionError(f"the command cannot edit {unit}")


def break_the_record():
    """Ends the host, whose next start fails."""
    os.chown(CONFIGURATION + ".record", 0, 0)
    systemctl("kill", "--signal=KILL", SERVICE)


def mend_the_record():
    shutil.chown(CONFIGURATION + ".record", "lorxcore", "lorxcore")


class InstalledRecipes(unittest.TestCase):
    """Each test begins with two services, and with the units as the packages install them."""

    @classmethod
    def setUpClass(cls):
        run("dpkg", "--install", *glob.glob(PACKAGES + "/*.deb"))
        run("groupadd", "vornak")
        cls.group = grp.getgrnam("vornak").gr_gid

    @classmethod
    def tearDownClass(cls):
        run("dpkg", "--purge", *NAMES)

    def setUp(self):
        systemctl("start", SERVICE)
        run("qvhost", "register", "1", "/run/a.sock", "2", "tcp://127.0.0.1:9000")

    def tearDown(self):
        systemctl("disable", "--now", SOCKET_UNIT)
        for unit in (SERVICE, SOCKET_UNIT):
            shutil.rmtree(f"/etc/systemd/system/{unit}.d", ignore_errors=True)
        systemctl("daemon-reload")
        systemctl("enable", SERVICE)
        systemctl("reset-failed")
        for path in glob.glob(CONFIGURATION + "*"):
            os.remove(path)

    def use_the_socket(self):
        for command in indented_blocks("## The resident host")[0].splitlines():
            follow(command)
        self.assertEqual(len(listing()), 2)

    def test_every_command_prints_what_the_page_shows(self):
        recipes = console_blocks(PAGE)
        self.assertGreater(len(recipes), 6)
        with tempfile.TemporaryDirectory() as folder:
            session = Session(folder, dict(os.environ, HOME=folder))
            for recipe in recipes:
                session.play(recipe.splitlines())
                # The manager limits how often the service starts, and a reader is slower.
                systemctl("reset-failed", SERVICE)
            session.end("true")

    def test_a_group_may_connect_without_the_socket_unit(self):
        lines_of_the_service, _ = indented_blocks("### Letting other users in")
        edit(SERVICE, lines_of_the_service)
        follow("systemctl restart lorx-naming-service.service")
        self.assertEqual(list_as("nobody", self.group).returncode, 0)
        self.assertIn("may not use this host", list_as("nobody").stderr)

    def test_a_group_may_connect_with_the_socket_unit(self):
        self.use_the_socket()
        lines_of_the_service, lines_of_the_socket = indented_blocks("### Letting other users in")
        edit(SERVICE, lines_of_the_service)
        edit(SOCKET_UNIT, lines_of_the_socket)
        follow("systemctl stop lorx-naming-service.socket")
        self.assertEqual(shown(SERVICE, "ActiveState"), ("inactive",))
        follow("systemctl start lorx-naming-service.socket")
        self.assertEqual(list_as("nobody", self.group).returncode, 0)
        self.assertIn("Permission denied", list_as("nobody").stderr)

    def test_a_service_that_was_given_up_tells_another_unit_and_comes_back(self):
        with open("/run/systemd/system/alert.service", "w", encoding="utf-8") as unit:
            unit.write("[Service]\nType=oneshot\nRemainAfterExit=yes\nExecStart=true\n")
        edit(SERVICE, "[Unit]\nOnFailure=alert.service\n")
        break_the_record()
        wait_until(lambda: shown("alert.service", "ActiveState") == ("active",))
        self.assertEqual(shown(SERVICE, "ActiveState"), ("failed",))
        self.assertIn("Start request repeated too quickly", run(*printed("journalctl -u lorx-naming-service")))
        mend_the_record()
        follow("systemctl reset-failed lorx-naming-service.service lorx-naming-service.socket")
        systemctl("start", SERVICE)
        self.assertEqual(len(listing()), 2)

    def test_the_socket_unit_fails_with_the_service_and_comes_back(self):
        self.use_the_socket()
        break_the_record()
        self.assertNotEqual(list_as("root").returncode, 0)
        wait_until(lambda: shown(SOCKET_UNIT, "ActiveState", "Result") == ("failed", "service-start-limit-hit"))
        mend_the_record()
        follow("systemctl reset-failed lorx-naming-service.service lorx-naming-service.socket")
        systemctl("start", SOCKET_UNIT)
        self.assertEqual(len(listing()), 2)

    def test_the_manager_tries_without_end(self):
        # A shorter pause, so that the usual limit of starts would be reached soon.
        edit(SERVICE, indented_blocks("### When the service does not come back")[0].replace("RestartSec=5", ""))
        break_the_record()
        wait_until(lambda: int(shown(SERVICE, "NRestarts")[0]) > 10)
        mend_the_record()
        wait_until(lambda: shown(SERVICE, "ActiveState") == ("active",))
        self.assertEqual(len(listing()), 2)

    def test_the_manager_restarts_a_service_that_hangs(self):
        edit(SERVICE, "[Service]\nWatchdogSec=2\n")
        systemctl("restart", SERVICE)
        hanging = main_process()
        os.kill(hanging, signal.SIGSTOP)
        wait_until(lambda: runs_again_after(hanging))
        self.assertEqual(len(listing()), 2)

    def test_the_limits_are_those_that_the_page_names(self):
        self.assertIn("The unit's limits are 4096 descriptors and 384 MiB of memory.", page())
        self.assertEqual(shown(SERVICE, "LimitNOFILE", "MemoryMax"), ("4096", str(384 << 20)))
        self.assertIn("serving on ", shown(SERVICE, "StatusText")[0])
        command = "ExecStart=\nExecStart=/usr/bin/qvhost serve --max-clients 5000\n"
        for lines, is_enough in ((command, False), (command + "LimitNOFILE=6000\n", True)):
            edit(SERVICE, "[Service]\n" + lines)
            systemctl("restart", SERVICE)
            self.assertEqual(json.loads(run("qvhost", "status", "--json"))["clientLimit"] == 5000, is_enough)
