# SPDX-License-Identifier: Apache-2.0

"""Tests an installation from installing to purging: use, kills, damage, misuse, upgrades, removal.

The script installed-packages runs this file as root of a temporary machine, whose service manager runs
the service.
"""

import glob
import os
import pwd
import re
import resource
import signal
import socket
import struct
import subprocess
import sys
import unittest

from installed_recipes import InstalledRecipes  # pylint: disable=unused-import
from machine import (CONFIGURATION, LOG, NAMES, PACKAGES, SERVICE, SOCKET, SOCKET_UNIT, SOURCE, STATE, contents, left,
                     list_as, listing, main_process, run, running, runs_again_after, shown, start, state, systemctl,
                     wait_until)

REGISTER, LIST = 0x0200, 0x0202
FORBIDDEN, TOO_LONG = 21001, 21003
RUNNING, OFF = ("active", "enabled"), ("inactive", "disabled")


def packages_of_version(version, library_in_host=False):
    """Makes packages of another version, as they are or as they were while the host's package had the library."""
    folder = "/tmp/" + version
    os.mkdir(folder)
    os.mkdir("/tmp/trees")
    for package in glob.glob(PACKAGES + "/*.deb"):
        tree = "/tmp/trees/" + os.path.basename(package).split("_", maxsplit=1)[0]
        run("dpkg-deb", "--raw-extract", package, tree)
        with open(tree + "/DEBIAN/control", "r+", encoding="utf-8") as control:
            text = re.sub(r"(Version: |\(= )[0-9.]+-[0-9]+", r"\g<1>" + version, control.read())
            if library_in_host:
                text = text.replace("libqvclient1 (", "lorx-naming-service (")
            control.seek(0)
            control.truncate()
            control.write(text)
    if library_in_host:
        run("cp", "-a", "/tmp/trees/libqvclient1/usr/lib", f"/tmp/trees/{NAMES[1]}/usr")
        run("rm", "-r", "/tmp/trees/libqvclient1")
    for tree in glob.glob("/tmp/trees/*"):
        run("dpkg-deb", "--build", "-Znone", "--root-owner-group", tree, folder)
    run("rm", "-r", "/tmp/trees")
    return glob.glob(folder + "/*.deb")


class Client:
    """Sends and receives frames over the socket. A test can send any bytes."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(60)
        self.socket.connect(SOCKET)

    def send(self, data):
        self.socket.sendall(data)

    def send_without_waiting(self, data):
        """Sends as much as the socket accepts now. Ignores that the host has closed the connection."""
        self.socket.setblocking(False)
        try:
            while data:
                data = data[self.socket.send(data):]
        except (BlockingIOError, BrokenPipeError, ConnectionResetError):
            pass

    def ask(self, command, data=b"", number=1):
        self.send(struct.pack("<III", command, len(data), number) + data)
        return self.answer()

    def read(self, count):
        data = b""
        while len(data) < count:
            piece = self.socket.recv(count - len(data))
            if not piece:
                raise EOFError
            data += piece
        return data

    def answer(self):
        result, length, number = struct.unpack("<III", self.read(12))
        return result, number, self.read(length)

    def close(self):
        self.socket.close()


class InstalledPackages(unittest.TestCase):
    """Runs the steps in the order of their numbers. Each step builds on those before it."""

    def test_01_installing_makes_directories_and_an_empty_configuration_and_starts_the_service(self):
        # The scripts of the packages ignore what root uses for a host of its own.
        environment = dict(os.environ, QV_CONFIG_DIR="/nowhere", QV_LOG_DIR="/nowhere", QV_RUN_DIR="/nowhere")
        run("dpkg", "--install", *glob.glob(PACKAGES + "/*.deb"), env=environment)
        self.assertFalse(os.path.exists("/nowhere"))
        user = pwd.getpwnam("lorxcore")
        for path, mode in ((STATE, 0o750), (STATE + "/backup", 0o700), (CONFIGURATION, 0o600),
                           ("/var/log/Vornak/LorxCore", 0o750), (LOG, 0o600),
                           ("/run/Vornak/LorxCore", 0o755), (SOCKET, 0o600)):
            status = os.stat(path)
            self.assertEqual((path, status.st_uid, status.st_mode & 0o777), (path, user.pw_uid, mode))
        run("systemd-analyze", "verify", "--man=no", SERVICE, SOCKET_UNIT)
        self.assertEqual(state(SERVICE), RUNNING)
        self.assertEqual(state(SOCKET_UNIT), OFF)
        self.assertEqual(os.stat(f"/proc/{main_process()}").st_uid, user.pw_uid)
        self.assertEqual(listing(), [])

    def test_02_the_service_has_few_rights_and_needs_no_log(self):
        run("systemd-analyze", "security", "--threshold=10", SERVICE)
        os.rename(os.path.dirname(LOG), "/var/log/Vornak/away")
        systemctl("restart", SERVICE)
        self.assertEqual(listing(), [])
        os.rename("/var/log/Vornak/away", os.path.dirname(LOG))
        systemctl("restart", SERVICE)

    def test_03_services_of_two_processes_survive_a_kill(self):
        writers = [
            subprocess.Popen(["qvhost", "register", str(i), f"/run/{i}.sock"]) for i in (1, 2)]
        self.assertEqual([writer.wait() for writer in writers], [0, 0])
        killed = main_process()
        os.kill(killed, signal.SIGKILL)
        wait_until(lambda: runs_again_after(killed))
        self.assertEqual(listing(), ["1,/run/1.sock", "2,/run/2.sock"])
        systemctl("stop", SERVICE)
        self.assertEqual(shown(SERVICE, "ActiveState", "Result", "ExecMainStatus"),
                         ("inactive", "success", "0"))
        self.assertFalse(os.path.exists(SOCKET))
        start()

    def test_04_a_damaged_file_is_written_anew_from_the_record(self):
        run("qvhost", "register", "--sync", "3", "/run/3.sock")
        run("qvhost", "unregister", "3")
        killed = main_process()
        os.kill(killed, signal.SIGKILL)
        wait_until(lambda: runs_again_after(killed))
        self.assertEqual(listing(), ["1,/run/1.sock", "2,/run/2.sock"])
        systemctl("stop", SERVICE)
        with open(CONFIGURATION, "r+b") as file:
            file.write(b"damage")
        start()
        self.assertEqual(listing(), ["1,/run/1.sock", "2,/run/2.sock"])
        run("qvhost", "sync")
        offline = run("qvhost", "list", "--offline", "--csv").replace("\r", "").split("\n")
        self.assertEqual(offline[1:-1], listing())
        record = os.stat(CONFIGURATION + ".record")
        self.assertEqual((record.st_uid, record.st_mode & 0o777),
                         (pwd.getpwnam("lorxcore").pw_uid, 0o600))

    def test_05_a_reload_reads_an_edited_file_and_disconnects_nobody(self):
        process, client = main_process(), Client()
        usual = client.ask(LIST)
        edited = contents(CONFIGURATION).replace(b"/run/2.sock", b"/run/x.sock")
        with open(CONFIGURATION, "wb") as file:
            file.write(edited)
        systemctl("reload", SERVICE)
        # The manager has sent the signal, but does not wait until the service has reloaded.
        wait_until(lambda: listing() == ["1,/run/1.sock", "2,/run/x.sock"])
        run("qvhost", "register", "2", "/run/2.sock")
        self.assertEqual(client.ask(LIST), usual)
        client.close()
        self.assertEqual((state(SERVICE), main_process()), (RUNNING, process))
        run("qvhost", "status")

    def test_06_a_client_of_another_user_is_refused(self):
        refused = list_as("nobody")
        self.assertEqual((refused.returncode, refused.stdout), (1, ""))
        self.assertIn("Permission denied", refused.stderr)
        # The host refuses other users also if the socket's mode lets them connect.
        os.chmod(SOCKET, 0o666)
        refused = list_as("nobody")
        self.assertEqual((refused.returncode, refused.stdout), (1, ""))
        self.assertIn("may not use this host", refused.stderr)
        self.assertEqual(len(listing()), 2)

    def test_07_a_thousand_clients_are_served_at_once(self):
        limit = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(limit, 4096), limit))
        clients = [Client() for _ in range(1000)]
        for number, client in enumerate(clients):
            client.send(struct.pack("<III", LIST, 0, number))
        expected = clients[0].answer()
        self.assertEqual(expected[:2], (0, 0))
        for number, client in enumerate(clients[1:], 1):
            self.assertEqual(client.answer(), (0, number, expected[2]))
        for client in clients:
            client.close()

    def test_08_a_client_that_misbehaves_harms_no_other(self):
        good = Client()
        usual = good.ask(LIST)

        stopped = Client()
        stopped.send(struct.pack("<III", REGISTER, 100, 1) + b"x" * 50)
        self.assertEqual(good.ask(LIST), usual)

        endless = Client()
        endless.send(struct.pack("<III", REGISTER, 0xFFFFFFFF, 7))
        result, number, text = endless.answer()
        self.assertEqual((result, number), (TOO_LONG, 7))
        self.assertTrue(text.decode())
        self.assertRaises(EOFError, endless.answer)
        self.assertEqual(good.ask(LIST), usual)

        garbage = Client()
        garbage.send_without_waiting(os.urandom(1 << 20))
        self.assertEqual(good.ask(LIST), usual)

        deaf = Client()
        deaf.send_without_waiting(struct.pack("<III", LIST, 0, 1) * 100000)
        self.assertEqual(good.ask(LIST), usual)

        for client in (good, stopped, endless, garbage, deaf):
            client.close()
        systemctl("stop", SERVICE)
        self.assertEqual(shown(SERVICE, "Result", "ExecMainStatus"), ("success", "0"))
        start()

    def test_09_other_programs_use_the_packages(self):
        self.assertEqual(
            run("python3", "-c", "import qvclient as q; print(q.Client(host_user='lorxcore').find(1))"),
            "{1: '/run/1.sock'}\n")
        run("cmake", "-S", SOURCE + "/examples/host", "-B", "/tmp/host")
        run("cmake", "--build", "/tmp/host")
        os.mkdir("/tmp/state")
        environment = dict(os.environ, QV_CONFIG_DIR="/tmp/state", QV_LOG_DIR="/tmp/state")
        self.assertEqual(run("/tmp/host/exampleHost", "5", "/run/5.sock", env=environment),
                         "5 /run/5.sock\n")
        # The package of a program that links the library depends on the library's package.
        os.makedirs("/tmp/component/debian")
        with open("/tmp/component/debian/control", "w", encoding="utf-8") as control:
            control.write("Source: component\n\nPackage: component\nArchitecture: any\n")
        flags = run("pkg-config", "--cflags", "--libs", "lorx-naming-service").split()
        run("cc", "-o", "component", SOURCE + "/examples/client/component.c", *flags, cwd="/tmp/component")
        self.assertIn("libqvclient1 (>= 1.0.0)",
                      run("dpkg-shlibdeps", "-O", "component", cwd="/tmp/component"))

    def test_10_an_upgrade_keeps_the_configuration_and_restarts_the_service(self):
        run("qvhost", "sync")
        before, process = contents(CONFIGURATION), main_process()
        run("dpkg", "--install", *packages_of_version("1.0.1"))
        self.assertIn("1.0.1", run("dpkg-query", "--show", NAMES[1]))
        self.assertEqual(contents(CONFIGURATION), before)
        self.assertTrue(os.path.exists(CONFIGURATION + ".record"))
        self.assertEqual(state(SERVICE), RUNNING)
        self.assertNotEqual(main_process(), process)
        self.assertEqual(listing(), ["1,/run/1.sock", "2,/run/2.sock"])

    def test_11_an_upgrade_keeps_a_disabled_service_disabled(self):
        systemctl("disable", "--now", SERVICE)
        run("dpkg", "--install", *packages_of_version("1.0.2"))
        self.assertEqual((state(SERVICE), state(SOCKET_UNIT)), (OFF, OFF))

    def test_12_an_upgrade_keeps_a_masked_service_masked(self):
        for version, now in (("1.0.3", "active"), ("1.0.4", "inactive")):
            systemctl("start" if now == "active" else "stop", SERVICE)
            systemctl("mask", SERVICE)
            run("dpkg", "--install", *packages_of_version(version))
            self.assertEqual(state(SERVICE), (now, "masked"))
            systemctl("unmask", SERVICE)

    def test_13_the_socket_starts_the_service_with_its_first_client(self):
        systemctl("enable", "--now", SERVICE)
        systemctl("disable", "--now", SERVICE)
        systemctl("enable", "--now", SOCKET_UNIT)
        status = os.stat(SOCKET)
        self.assertEqual((status.st_uid, status.st_mode & 0o777),
                         (pwd.getpwnam("lorxcore").pw_uid, 0o600))
        self.assertEqual((state(SERVICE), state(SOCKET_UNIT)), (OFF, RUNNING))
        self.assertEqual(listing(), ["1,/run/1.sock", "2,/run/2.sock"])
        self.assertEqual(state(SERVICE), ("active", "disabled"))
        # The manager keeps the socket open, so clients wait there for the next service.
        systemctl("stop", SERVICE)
        self.assertEqual(len(listing()), 2)
        process = main_process()
        run("dpkg", "--install", *packages_of_version("1.0.5"))
        self.assertEqual((state(SERVICE), state(SOCKET_UNIT)), (("active", "disabled"), RUNNING))
        self.assertNotEqual(main_process(), process)
        self.assertEqual(os.stat(SOCKET).st_ino, status.st_ino)
        self.assertEqual(len(listing()), 2)
        # The service can also be started without the socket unit again.
        systemctl("disable", "--now", SOCKET_UNIT)
        self.assertEqual((state(SERVICE), state(SOCKET_UNIT)), (OFF, OFF))
        start()
        self.assertEqual(len(listing()), 2)
        systemctl("stop", SERVICE)
        systemctl("enable", "--now", SOCKET_UNIT)

    def test_14_the_service_runs_again_after_an_aborted_removal(self):
        systemctl("enable", SERVICE)
        scripts = "/var/lib/dpkg/info/lorx-naming-service-host."
        environment = dict(os.environ, DPKG_MAINTSCRIPT_PACKAGE=NAMES[1])
        run(scripts + "prerm", "remove", env=environment)
        self.assertEqual(shown(SERVICE, "ActiveState"), ("inactive",))
        run(scripts + "postinst", "abort-remove", env=environment)
        self.assertEqual((state(SERVICE), state(SOCKET_UNIT)), (RUNNING, RUNNING))
        self.assertEqual(len(listing()), 2)

    def test_15_a_removal_stops_the_service_and_keeps_the_configuration(self):
        run("dpkg", "--remove", *NAMES)
        self.assertFalse(os.path.exists("/usr/bin/qvhost"))
        self.assertFalse(os.path.exists(SOCKET))
        self.assertTrue(os.path.exists(CONFIGURATION))
        self.assertTrue(os.path.exists(CONFIGURATION + ".record"))
        self.assertEqual(running(), [])

    def test_16_another_installation_keeps_the_services_and_the_enabled_units(self):
        run("dpkg", "--install", *glob.glob(PACKAGES + "/*.deb"))
        self.assertEqual((state(SERVICE), state(SOCKET_UNIT)), (RUNNING, RUNNING))
        self.assertEqual(listing(), ["1,/run/1.sock", "2,/run/2.sock"])

    def test_17_a_purge_removes_everything(self):
        run("dpkg", "--purge", *NAMES)
        self.assertEqual(running(), [])
        self.assertFalse(os.path.exists(STATE))
        self.assertEqual(left(), "")

    def test_18_an_installation_without_a_manager_enables_the_service(self):
        run("unshare", "--mount", "sh", "-c", 'mount -t tmpfs none /run/systemd && exec dpkg "$@"',
            "dpkg", "--install", *glob.glob(PACKAGES + "/*.deb"))
        systemctl("daemon-reload")
        self.assertEqual(state(SERVICE), ("inactive", "enabled"))
        self.assertIn(SERVICE, shown("multi-user.target", "Wants")[0].split())
        run("dpkg", "--purge", *NAMES)
        self.assertEqual(left(), "")

    def test_19_an_installation_keeps_a_masked_service_masked(self):
        systemctl("mask", SERVICE)
        run("dpkg", "--install", *glob.glob(PACKAGES + "/*.deb"))
        self.assertEqual(state(SERVICE), ("inactive", "masked"))
        run("dpkg", "--purge", *NAMES)
        systemctl("unmask", SERVICE)
        self.assertEqual(left(), "")

    def test_20_an_upgrade_takes_the_library_out_of_the_package_of_the_host(self):
        run("dpkg", "--install", *packages_of_version("1.0.0", library_in_host=True))
        library = run("find", "/usr/lib", "-name", "libQvClient.so.1").strip()
        self.assertIn(NAMES[1] + ": ", run("dpkg", "--search", library))
        run("qvhost", "register", "1", "/run/1.sock")
        process = main_process()
        run("apt-get", "install", "--yes", *glob.glob(PACKAGES + "/*.deb"))
        self.assertIn("libqvclient1: ", run("dpkg", "--search", library))
        self.assertEqual(run("dpkg", "--audit"), "")
        self.assertEqual(state(SERVICE), RUNNING)
        self.assertNotEqual(main_process(), process)
        self.assertEqual(listing(), ["1,/run/1.sock"])
        run("dpkg", "--purge", *NAMES)
        self.assertEqual(left(), "")

    def test_21_a_purge_leaves_the_user_and_what_administrators_made(self):
        run("dpkg", "--install", *glob.glob(PACKAGES + "/*.deb"))
        made = [f"/etc/systemd/system/{SERVICE}.d/override.conf", STATE + "/backup/notes"]
        os.makedirs(os.path.dirname(made[0]))
        for path in made:
            with open(path, "w", encoding="utf-8"):
                pass
        run("dpkg", "--purge", *NAMES)
        self.assertEqual(os.listdir(STATE), ["backup"])
        for path in made:
            os.remove(path)
        os.rmdir(os.path.dirname(made[0]))
        os.removedirs(STATE + "/backup")
        self.assertEqual(pwd.getpwnam("lorxcore").pw_dir, STATE)
        self.assertEqual(left(), "")


if __name__ == "__main__":
    tests = unittest.main(argv=sys.argv[:1], failfast=True, verbosity=2, exit=False)
    if not tests.result.wasSuccessful():
        subprocess.run(["journalctl", "--boot", "--no-pager", "--unit=lorx-*"], check=False)
        sys.exit(1)
