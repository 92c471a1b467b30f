# SPDX-License-Identifier: Apache-2.0

"""Tests qvclient with a running host. The environment variable QVHOST names the program."""

import os
import subprocess
import sys
import tempfile
import threading
import unittest

import qvclient
from qvclient import ChangeResult, Changes, Disconnected
from resident_host import ResidentHost

LOWEST, HIGHEST = -(1 << 31), (1 << 31) - 1
EXAMPLE = os.path.join(os.path.dirname(__file__), "../../examples/client/component.py")


class ServedClient(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.host = ResidentHost(os.environ["QVHOST"], folder.name)
        self.addCleanup(self.host.__exit__)
        self.host.start()
        self.client = qvclient.Client(self.host.socket, host_user=os.getuid())
        self.addCleanup(self.client.close)

    def restart(self):
        self.host.kill()
        self.host.start()


class Requests(ServedClient):
    def test_services_are_registered_found_and_removed(self):
        self.client.ping()
        self.assertEqual(self.client.services(), {})
        services = {7: "b", LOWEST: "low", HIGHEST: "é" * 2048, -1: "a"}
        self.assertEqual(self.client.register(services), ChangeResult())
        self.assertEqual(list(self.client.services().items()), sorted(services.items()))
        self.assertEqual(self.client.find(-1, 8, LOWEST, -1), {LOWEST: "low", -1: "a"})
        self.assertEqual(self.client.unregister([-1, 8, 7]), ChangeResult())
        self.assertEqual(self.client.find(-1, 7, 8), {})
        self.assertEqual(self.client.services().keys(), {LOWEST, HIGHEST})

    def test_the_host_tells_about_itself(self):
        self.client.register({1: "abc", 2: "d"})
        self.client.sync()
        status = self.client.status()
        self.assertEqual((status.services, status.address_bytes, status.clients), (2, 4, 1))
        self.assertTrue(status.is_kept)
        self.assertEqual(status.not_kept_reason, "")

    def test_a_refusal_names_the_reason(self):
        with self.assertRaises(qvclient.Refused) as caught:
            self.client.find(*range(1001))
        self.assertEqual(caught.exception.code, 21008)
        self.assertIn("1001", caught.exception.text)
        self.client.ping()

    def test_a_client_finds_the_host_again_after_a_restart(self):
        self.client.register({1: "a"})
        self.restart()
        self.assertEqual(self.client.find(1), {1: "a"})
        self.host.stop()
        self.assertRaises(qvclient.CannotConnect, self.client.ping)
        self.host.start()
        self.client.ping()


class Waiting(ServedClient):
    def test_a_registered_service_is_there_at_once(self):
        self.client.register({1: "a"})
        self.assertEqual(self.client.wait_for(1, timeout=0), "a")

    def test_a_service_that_does_not_come_times_out(self):
        self.assertRaises(qvclient.TimedOut, self.client.wait_for, 1, timeout=0.01)

    def test_a_service_is_there_when_another_client_registers_it(self):
        with self.client.watch([1]) as watch:
            next(watch)
            found = []
            waiting = threading.Thread(target=lambda: found.append(self.client.wait_for(1)))
            waiting.start()
            with qvclient.Client(self.host.socket) as other:
                other.register({2: "b"})
                other.register({1: "a"})
            waiting.join()
        self.assertEqual(found, ["a"])


class Watching(ServedClient):
    def test_every_change_is_told_in_order(self):
        self.client.register({1: "a"})
        with self.client.watch() as watch:
            first = next(watch)
            self.assertEqual(first.services, {1: "a"})
            self.client.register({1: "b", 2: "c"})
            self.client.unregister([1, 2, 3])
            events = [next(watch), next(watch)]
            self.assertEqual(events[0], Changes({2: "c"}, {1: "b"}, (), events[0].revision))
            self.assertEqual(events[1], Changes({}, {}, (1, 2), events[1].revision))
            self.assertLess(first.revision, events[0].revision)
            self.assertLess(events[0].revision, events[1].revision)
            self.assertIsNone(watch.next(0))

    def test_other_services_are_not_told(self):
        with self.client.watch([-1, HIGHEST]) as watch:
            self.assertEqual(next(watch).services, {})
            for services in ({1: "a"}, {-1: "b", 2: "c"}, {3: "d"}, {HIGHEST: "e"}):
                self.client.register(services)
            self.assertEqual([next(watch).registered, next(watch).registered], [{-1: "b"}, {HIGHEST: "e"}])

    def test_a_watch_outlives_the_host(self):
        self.client.register({1: "a"})
        with self.client.watch() as watch:
            first = next(watch)
            self.restart()
            self.client.register({1: "b"})
            self.assertIsInstance(next(watch), Disconnected)
            services = first.services
            while services != {1: "b"}:
                event = next(watch)
                # The host remembers the last run.
                self.assertIsInstance(event, Changes)
                event.apply(services)

    def test_a_watch_tells_that_the_host_stops(self):
        with self.client.watch() as watch:
            next(watch)
            self.host.stop()
            self.assertRegex(next(watch).reason, "21005")


class Example(ServedClient):
    def test_the_example_waits_for_its_dependency_and_follows_it(self):
        environment = dict(os.environ, QV_RUN_DIR=os.path.dirname(self.host.socket))
        with subprocess.Popen(
            [sys.executable, EXAMPLE, "1", "/run/a.sock", "2"], env=environment, stdout=subprocess.PIPE, text=True
        ) as process:
            self.assertEqual(self.client.wait_for(1), "/run/a.sock")
            for change, line in (
                (lambda: self.client.register({2: "first"}), "found first\n"),
                (lambda: None, "now at first\n"),
                (lambda: self.client.register({2: "second"}), "now at second\n"),
                (lambda: self.client.unregister([2]), "now at no address\n"),
            ):
                change()
                self.assertEqual(process.stdout.readline(), line)
            process.terminate()


if __name__ == "__main__":
    unittest.main()
