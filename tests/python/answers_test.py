# SPDX-License-Identifier: Apache-2.0

"""Tests qvclient with servers that send any bytes."""

import os
import random
import socket
import struct
import tempfile
import unittest
import unittest.mock

import qvclient
from qvclient import _wire
from scripted_server import ScriptedServer, event, number, service, text

ROUNDS = int(os.environ.get("QVCLIENT_TEST_ROUNDS", "5000"))


def answering(result=0, content=b""):
    """Returns a script that answers one request, the only one of its connection."""

    def script(peer):
        peer.answer(result, content, peer.receive()[2])
        peer.wait_for_end()

    return script


def sending(content):
    """Returns a script that receives one request and sends the bytes."""

    def script(peer):
        peer.receive()
        peer.send(content)

    return script


class Answers(unittest.TestCase):
    def ask(self, script, question, **options):
        with ScriptedServer(script) as server, qvclient.Client(server.path, **options) as client:
            return question(client)

    def test_a_change_that_is_not_kept_has_a_reason(self):
        for question in (lambda client: client.register({1: "a"}), lambda client: client.unregister([1])):
            result = self.ask(answering(21009, b"the disk is full"), question)
            self.assertEqual(result, qvclient.ChangeResult(False, "the disk is full"))
        self.assertEqual(self.ask(answering(), question), qvclient.ChangeResult(True, ""))

    def test_a_refusal_tells_its_code_and_its_text(self):
        with self.assertRaises(qvclient.Refused) as caught:
            self.ask(answering(21008, b"no room"), lambda client: client.register({1: "a"}))
        self.assertEqual((caught.exception.code, caught.exception.text), (21008, "no room"))
        with self.assertRaises(qvclient.Refused) as caught:
            self.ask(answering(20002, b"ignored"), lambda client: client.ping())
        self.assertEqual((caught.exception.code, caught.exception.text), (20002, ""))

    def test_a_text_cannot_control_a_terminal_or_fill_the_memory(self):
        with self.assertRaises(qvclient.Refused) as caught:
            self.ask(answering(21007, b"\x1b[2J\n\xff\xe2\x80\xae" + 2000 * b"x"), lambda client: client.ping())
        self.assertTrue(str(caught.exception).isprintable())
        self.assertTrue(caught.exception.text.startswith("\\x1b[2J\\n"))
        self.assertLess(len(caught.exception.text), 1100)

    def test_a_listing_keeps_bytes_that_are_not_utf8(self):
        content = service(1, -1, b"\xff") + service(1, 7, b"")
        services = self.ask(answering(0, content), lambda client: client.services())
        self.assertEqual(services, {-1: "\udcff", 7: ""})

    def test_unknown_fields_are_skipped(self):
        unknown = number(99, 1 << 63) + text(98, b"x") + b"\xb9\x0612345678" + b"\xbd\x061234"
        content = unknown + text(1, unknown + number(1, 7) + unknown + text(2, b"a") + unknown) + unknown
        self.assertEqual(self.ask(answering(0, content), lambda client: client.services()), {7: "a"})

    def test_a_broken_list_is_refused(self):
        broken = {
            "truncated key": b"\x8a",
            "endless number": b"\x08" + 10 * b"\xff" + b"\x01",
            "truncated bytes": b"\x0a\x05\x08\x07",
            "huge bytes": b"\x0a" + 9 * b"\xff" + b"\x01",
            "truncated eight bytes": b"\x09\x00",
            "group": b"\x0b1234",
            "field 0": b"\x00\x00",
            "broken service": text(1, b"\x12\x05a"),
            "wrong order": service(1, 2, b"a") + service(1, 1, b"b"),
            "service twice": service(1, 1, b"a") + service(1, 1, b"a"),
        }
        for name, content in broken.items():
            with self.subTest(name), self.assertRaises(qvclient.BrokenAnswer):
                self.ask(answering(0, content), lambda client: client.services())

    def test_a_service_that_was_not_asked_for_is_refused(self):
        content = service(1, 7, b"a")
        self.assertEqual(self.ask(answering(0, content), lambda client: client.find(7, 8)), {7: "a"})
        with self.assertRaises(qvclient.BrokenAnswer):
            self.ask(answering(0, content), lambda client: client.find(8))

    def test_too_many_fields_are_refused(self):
        content = b"".join(service(1, i, b"a") for i in range(10))
        with unittest.mock.patch("qvclient._wire.MOST_FIELDS", 30):
            self.assertEqual(len(self.ask(answering(0, content), lambda client: client.services())), 10)
        with unittest.mock.patch("qvclient._wire.MOST_FIELDS", 29), self.assertRaises(qvclient.BrokenAnswer):
            self.ask(answering(0, content), lambda client: client.services())

    def test_any_bytes_can_be_read_or_are_refused(self):
        source = random.Random(1)
        good = event(service(1, -1, b"a"), service(2, 7, b"b"), number(3, 8), number(4, 0), revision=300)
        outcomes = set()
        for _ in range(ROUNDS):
            content = bytearray(good)
            for _ in range(source.randrange(4)):
                content[source.randrange(len(content))] = source.randrange(256)
            content = bytes(content[: source.randrange(2 * len(content))])
            for read in (_wire.WireEvent, _wire.service_list):
                try:
                    read(content)
                    outcomes.add("read")
                except qvclient.BrokenAnswer:
                    outcomes.add("refused")
        self.assertEqual(outcomes, {"read", "refused"})

    def test_a_status_has_to_tell_whether_the_directory_is_kept(self):
        content = text(1, b"1.0") + number(6, -1) + number(7, 1)
        status = self.ask(answering(0, content), lambda client: client.status())
        self.assertEqual((status.version, status.revision, status.is_kept, status.services), ("1.0", -1, True, 0))
        with self.assertRaises(qvclient.BrokenAnswer):
            self.ask(answering(0, text(1, b"1.0")), lambda client: client.status())

    def test_an_answer_to_another_request_is_refused(self):
        for result, number_ in ((0, 2), (0, 0), (21006, 0)):
            with self.subTest(result=result, number=number_), self.assertRaises(qvclient.BrokenAnswer):
                self.ask(sending(struct.pack("<III", result, 0, number_)), lambda client: client.ping())

    def test_a_huge_answer_is_refused_before_it_arrives(self):
        with self.assertRaises(qvclient.BrokenAnswer):
            self.ask(sending(struct.pack("<III", 0, 0xFFFFFFFF, 1)), lambda client: client.services())

    def test_an_answer_may_refuse_the_connection(self):
        for result in (21001, 21002, 21003, 21004, 21005):
            with self.subTest(result), self.assertRaises(qvclient.Refused) as caught:
                self.ask(sending(struct.pack("<III", result, 2, 0) + b"no"), lambda client: client.ping())
            self.assertEqual((caught.exception.code, caught.exception.text), (result, "no"))

    def test_a_connection_that_ends_is_lost(self):
        for content in (b"", b"\0", struct.pack("<III", 0, 5, 1) + b"1234"):
            with self.subTest(content), self.assertRaises(qvclient.ConnectionLost):
                self.ask(sending(content), lambda client: client.services())

    def test_a_silent_host_costs_the_time_out_only(self):
        def silent(peer):
            peer.receive()
            peer.wait_for_end()

        with ScriptedServer(silent, answering()) as server, qvclient.Client(server.path, timeout=0.01) as client:
            self.assertRaises(qvclient.TimedOut, client.ping)
            # A late answer would be taken for the next one.
            client._timeout = None
            client.ping()

    def test_a_refusal_of_a_long_request_is_read_though_the_request_does_not_arrive(self):
        def refuse(peer):
            peer.receive_header()
            peer.send(struct.pack("<III", 21003, 4, 1) + b"long")

        services = {i: 4096 * "x" for i in range(1000)}
        with self.assertRaises(qvclient.Refused) as caught:
            self.ask(refuse, lambda client: client.register(services))
        self.assertEqual((caught.exception.code, caught.exception.text), (21003, "long"))

    def test_the_client_connects_again_after_a_failure(self):
        # The host closes the connection, but perhaps only after the next request.
        for failure in (answering(21003), sending(b"")):
            with ScriptedServer(failure, answering()) as server, qvclient.Client(server.path) as client:
                with self.assertRaises(qvclient.QvError):
                    client.ping()
                client.ping()

    def test_the_client_connects_again_when_the_host_has_closed_the_connection(self):
        def close(peer):
            peer.answer(0, b"", peer.receive()[2])
            peer.send(struct.pack("<III", 21005, 0, 0))

        with ScriptedServer(close, answering()) as server, qvclient.Client(server.path) as client:
            client.ping()
            self.assertTrue(client._stream.wait(qvclient.Deadline(60)))
            client.ping()


class Arguments(unittest.TestCase):
    def test_a_path_without_a_host_cannot_be_connected_to(self):
        for path in ("/none/such", 200 * "x", "a\0b"):
            with self.subTest(path), self.assertRaises(qvclient.CannotConnect):
                qvclient.Client(path)

    def test_the_default_path_follows_the_environment(self):
        former = os.environ.get("QV_RUN_DIR")
        try:
            os.environ["QV_RUN_DIR"] = "/elsewhere"
            self.assertEqual(qvclient.default_path(), "/elsewhere/namingService.sock")
            os.environ["QV_RUN_DIR"] = ""
            self.assertRegex(qvclient.default_path(), "^(/var)?/run/Vornak/LorxCore/namingService.sock$")
        finally:
            del os.environ["QV_RUN_DIR"]
            if former is not None:
                os.environ["QV_RUN_DIR"] = former

    def test_what_no_host_can_take_is_not_sent(self):
        def nothing(peer):
            peer.wait_for_end()

        with ScriptedServer(nothing) as server, qvclient.Client(server.path) as client:
            for address in ("", 4097 * "x", "a\0b", "\ufeffa", "\udcff"):
                with self.subTest(address), self.assertRaises(qvclient.BadArgument):
                    client.register({1: address})
            for identifier in (1 << 31, -(1 << 31) - 1):
                with self.subTest(identifier), self.assertRaises(qvclient.BadArgument):
                    client.unregister([identifier])
            with self.assertRaises(qvclient.BadArgument):
                client.watch([])
            self.assertEqual(client.register({}), qvclient.ChangeResult())
            self.assertEqual(client.find(), {})
            for timeout in (-1, float("nan")):
                with self.subTest(timeout), self.assertRaises(qvclient.BadArgument):
                    qvclient.Client(server.path, timeout)

    def test_a_client_can_demand_the_user_of_the_host(self):
        with tempfile.TemporaryDirectory() as folder, socket.socket(socket.AF_UNIX) as server:
            path = os.path.join(folder, "socket")
            server.bind(path)
            # A client trusts root always. The kernel remembers the user who listens.
            user = os.geteuid() or 65534
            os.seteuid(user)
            server.listen()
            os.seteuid(os.getuid())
            qvclient.Client(path, host_user=user).close()
            for other in (user + 1, "root"):
                with self.subTest(other), self.assertRaises(qvclient.WrongHost):
                    qvclient.Client(path, host_user=other)
            with self.assertRaises(qvclient.BadArgument):
                qvclient.Client(path, host_user="no such user")


if __name__ == "__main__":
    unittest.main()
