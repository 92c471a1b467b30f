"""The life of an installation: installed, used, killed, damaged, misused, upgraded, removed, purged.

Run by installed-packages, as root of a machine that is thrown away. No service manager runs there, so
the service is started as its unit says.
"""

import atexit
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

PACKAGES, SOURCE = sys.argv[1:3]
NAMES = ["lorx-naming-service", "lorx-naming-service-host", "lorx-naming-service-dev"]
STATE = "/var/lib/Vornak/LorxCore"
CONFIGURATION = STATE + "/namingService.conf.plist"
SOCKET = "/run/Vornak/LorxCore/namingService.sock"
REGISTER, LIST = 0x0200, 0x0202
FORBIDDEN, TOO_LONG = 21001, 21003


def run(*command, **options):
    """What the command prints; raises where it fails, with what it said."""
    done = subprocess.run(command, capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command}: {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def listing():
    return run("qvhost", "list", "--csv").replace("\r", "").split("\n")[1:-1]


def contents(path):
    with open(path, "rb") as file:
        return file.read()


def as_user(name):
    entry = pwd.getpwnam(name)

    def change():
        os.setgroups([])
        os.setgid(entry.pw_gid)
        os.setuid(entry.pw_uid)

    return change


class Service:
    """One run of what the unit starts, as its user."""

    def __init__(self):
        with open("/usr/lib/systemd/system/lorx-naming-service.service", encoding="utf-8") as unit:
            settings = dict(re.findall(r"^(\w+)=(.*)$", unit.read(), re.MULTILINE))
        self.process = subprocess.Popen(
            settings["ExecStart"].split(), preexec_fn=as_user(settings["User"]),
            stderr=subprocess.PIPE, text=True)
        # It must not outlive a failure.
        atexit.register(self.process.kill)
        self.said = self.process.stderr.readline()
        if "serving" not in self.said:
            raise AssertionError(self.said + self.process.stderr.read())

    def end(self, number):
        self.process.send_signal(number)
        status = self.process.wait(60)
        self.process.stderr.close()
        return status


class Client:
    """Frames over the socket, byte by byte where that is wanted."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(SOCKET)

    def send(self, data):
        self.socket.sendall(data)

    def send_what_is_taken(self, data):
        """Neither waits nor minds that the host has closed the connection."""
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
    """One story in the order of its steps."""

    def test_1_installing_makes_user_directories_and_an_empty_configuration(self):
        run("dpkg", "--install", *glob.glob(PACKAGES + "/*.deb"))
        user = pwd.getpwnam("lorxcore")
        for path, mode in ((STATE, 0o750), (STATE + "/backup", 0o700), (CONFIGURATION, 0o600),
                           ("/var/log/Vornak/LorxCore", 0o750), ("/run/Vornak/LorxCore", 0o755)):
            status = os.stat(path)
            self.assertEqual((path, status.st_uid, status.st_mode & 0o777), (path, user.pw_uid, mode))
        run("systemd-analyze", "verify", "--man=no", "lorx-naming-service.service",
            "lorx-naming-service.socket")

    def test_2_what_two_processes_register_survives_a_kill(self):
        service = Service()
        writers = [
            subprocess.Popen(["qvhost", "register", str(i), f"/run/{i}.sock"]) for i in (1, 2)]
        self.assertEqual([writer.wait() for writer in writers], [0, 0])
        self.assertEqual(service.end(signal.SIGKILL), -signal.SIGKILL)
        service = Service()
        self.assertEqual(listing(), ["1,/run/1.sock", "2,/run/2.sock"])
        self.assertEqual(service.end(signal.SIGTERM), 0)
        self.assertFalse(os.path.exists(SOCKET))

    def test_3_damage_is_mended_from_the_backup(self):
        service = Service()
        run("qvhost", "register", "3", "/run/3.sock")
        service.end(signal.SIGKILL)
        with open(CONFIGURATION, "r+b") as file:
            file.write(b"damage")
        service = Service()
        self.assertEqual(listing(), ["1,/run/1.sock", "2,/run/2.sock"])
        service.end(signal.SIGTERM)

    def test_4_a_client_without_the_right_is_refused(self):
        service = Service()
        refused = subprocess.run(["qvhost", "list"], preexec_fn=as_user("nobody"),
                                 capture_output=True, text=True)
        self.assertEqual((refused.returncode, refused.stdout), (1, ""))
        self.assertIn("Permission denied", refused.stderr)
        # The mode alone is not what keeps others out.
        os.chmod(SOCKET, 0o666)
        refused = subprocess.run(["qvhost", "list"], preexec_fn=as_user("nobody"),
                                 capture_output=True, text=True)
        self.assertEqual((refused.returncode, refused.stdout), (1, ""))
        self.assertIn("may not use this host", refused.stderr)
        self.assertEqual(len(listing()), 2)
        service.end(signal.SIGTERM)

    def test_5_a_thousand_clients_are_served_at_once(self):
        limit = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
        resource.setrlimit(resource.RLIMIT_NOFILE, (min(limit, 4096), limit))
        service = Service()
        clients = [Client() for _ in range(1000)]
        for number, client in enumerate(clients):
            client.send(struct.pack("<III", LIST, 0, number))
        expected = clients[0].answer()
        self.assertEqual(expected[:2], (0, 0))
        for number, client in enumerate(clients[1:], 1):
            self.assertEqual(client.answer(), (0, number, expected[2]))
        for client in clients:
            client.close()
        service.end(signal.SIGTERM)

    def test_6_a_client_that_misbehaves_hurts_nobody_else(self):
        service = Service()
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
        garbage.send_what_is_taken(os.urandom(1 << 20))
        self.assertEqual(good.ask(LIST), usual)

        deaf = Client()
        deaf.send_what_is_taken(struct.pack("<III", LIST, 0, 1) * 100000)
        self.assertEqual(good.ask(LIST), usual)

        for client in (good, stopped, endless, garbage, deaf):
            client.close()
        self.assertEqual(service.end(signal.SIGTERM), 0)

    def test_7_a_host_project_is_built_against_the_packages(self):
        run("cmake", "-S", SOURCE + "/examples/host", "-B", "/tmp/host")
        run("cmake", "--build", "/tmp/host")
        os.mkdir("/tmp/state")
        environment = dict(os.environ, QV_CONFIG_DIR="/tmp/state", QV_LOG_DIR="/tmp/state")
        self.assertEqual(run("/tmp/host/exampleHost", "5", "/run/5.sock", env=environment),
                         "5 /run/5.sock\n")

    def test_8_an_upgrade_keeps_the_configuration(self):
        before = contents(CONFIGURATION)
        os.mkdir("/tmp/next")
        for package in glob.glob(PACKAGES + "/*.deb"):
            run("dpkg-deb", "--raw-extract", package, "/tmp/tree")
            with open("/tmp/tree/DEBIAN/control", "r+", encoding="utf-8") as control:
                text = control.read().replace("1.0.0", "1.0.1")
                control.seek(0)
                control.write(text)
            run("dpkg-deb", "--build", "--root-owner-group", "/tmp/tree", "/tmp/next/")
            run("rm", "-r", "/tmp/tree")
        run("dpkg", "--install", *glob.glob("/tmp/next/*.deb"))
        self.assertIn("1.0.1", run("dpkg-query", "--show", NAMES[1]))
        self.assertEqual(contents(CONFIGURATION), before)
        service = Service()
        self.assertEqual(listing(), ["1,/run/1.sock", "2,/run/2.sock"])
        service.end(signal.SIGTERM)

    def test_9_removal_keeps_the_directory_and_purge_takes_it(self):
        run("dpkg", "--remove", *NAMES)
        self.assertFalse(os.path.exists("/usr/bin/qvhost"))
        self.assertTrue(os.path.exists(CONFIGURATION))
        run("dpkg", "--purge", *NAMES)
        left = run("find", "/etc", "/run", "/usr", "/var", "-iname", "*lorx*")
        self.assertEqual(left, "")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], failfast=True, verbosity=2)
