# SPDX-License-Identifier: Apache-2.0

"""Tests qvclient.Watch with servers that send any bytes."""

import contextlib
import struct
import unittest
import unittest.mock

import qvclient
from qvclient import Changes, Disconnected, Snapshot
from scripted_server import ScriptedServer, event, number, service, snapshot, varint

SUBSCRIBE = 5
ALL = b""


def known(epoch, revision):
    return varint(2 << 3 | 1) + struct.pack("<Q", epoch) + number(3, revision)


class Script:
    """Expects a subscription and sends events. Then sends a result, or waits for the client to end the connection."""

    def __init__(self, request, *events, result=None, stays=False):
        self._request = request
        self._events = events
        self._result = result
        self._stays = stays

    def __call__(self, peer):
        code, content, number_ = peer.receive()
        assert (code, content) == (SUBSCRIBE, self._request), (code, content)
        for each in self._events:
            peer.answer(0, each, number_)
        if self._result is not None:
            peer.answer(self._result, b"reason", number_)
        if self._stays:
            peer.wait_for_end()


@contextlib.contextmanager
def watching(*scripts, ids=None, timeout=30.0):
    """Watches a server that plays the scripts."""
    with ScriptedServer(lambda peer: peer.wait_for_end(), *scripts) as server:
        with qvclient.Client(server.path, timeout) as client:
            pass
        with client.watch(ids) as watch:
            yield watch


def taken(watch, count):
    return [next(watch) for _ in range(count)]


class Watch(unittest.TestCase):
    def test_events_are_a_snapshot_and_then_changes(self):
        changes = event(service(1, 8, b"c"), service(2, 7, b"b"), number(3, 9), number(3, -1), revision=4)
        script = Script(ALL, snapshot((7, b"a"), (9, b"x"), revision=3), changes, stays=True)
        with watching(script) as watch:
            self.assertEqual(
                taken(watch, 2), [Snapshot({7: "a", 9: "x"}, 3), Changes({8: "c"}, {7: "b"}, (9, -1), 4)]
            )

    def test_identifiers_are_asked_for_once_each(self):
        script = Script(number(1, -1) + number(1, 7), snapshot(revision=0), stays=True)
        with watching(script, ids=[7, -1, 7]) as watch:
            self.assertEqual(next(watch), Snapshot({}, 0))

    def test_a_broken_connection_is_resumed(self):
        scripts = (
            Script(ALL, snapshot((7, b"a"), revision=3)),
            Script(known(7, 3), event(revision=3)),
            Script(known(7, 3), event(number(3, 7), epoch=8, revision=5), stays=True),
        )
        with watching(*scripts) as watch:
            lost = Disconnected("the host closed the connection")
            self.assertEqual(
                taken(watch, 5),
                [Snapshot({7: "a"}, 3), lost, Changes({}, {}, (), 3), lost, Changes({}, {}, (7,), 5)],
            )

    def test_a_watch_starts_over_when_the_host_does(self):
        scripts = (
            Script(ALL, snapshot((7, b"a"), revision=3)),
            Script(known(7, 3), snapshot((7, b"b"), epoch=8, revision=1), snapshot(epoch=8, revision=9), stays=True),
        )
        with watching(*scripts) as watch:
            self.assertEqual(
                taken(watch, 4)[2:], [Snapshot({7: "b"}, 1), Snapshot({}, 9)]
            )

    def test_a_temporary_refusal_is_told_once_and_tried_again(self):
        scripts = (Script(ALL, result=21002), Script(ALL, result=21005), Script(ALL, snapshot(revision=1), stays=True))
        with watching(*scripts) as watch:
            self.assertEqual(
                taken(watch, 2), [Disconnected("the host answered 21002: reason"), Snapshot({}, 1)]
            )

    def test_a_lasting_refusal_ends_the_watch(self):
        for result in (21001, 21006, 20002):
            with self.subTest(result), watching(Script(ALL, result=result, stays=True)) as watch:
                with self.assertRaises(qvclient.Refused) as caught:
                    next(watch)
                self.assertEqual(caught.exception.code, result)
                self.assertRaises(StopIteration, next, watch)

    def test_no_event_in_time_is_none(self):
        content = snapshot(revision=1)

        def script(peer):
            number_ = peer.receive()[2]
            frame = struct.pack("<III", 0, len(content), number_) + content
            peer.send_in_vain(frame[:20])
            peer.wait_for_end()

        with watching(script) as watch:
            self.assertIsNone(watch.next(0))
            self.assertIsNone(watch.next(0.001))
            watch.close()
            self.assertIsNone(watch.next())

    def test_an_event_may_arrive_in_parts(self):
        content = snapshot((7, b"a"), revision=1)

        def script(peer):
            frame = struct.pack("<III", 0, len(content), peer.receive()[2]) + content
            for place in range(len(frame)):
                peer.send(frame[place : place + 1])
            peer.wait_for_end()

        with watching(script) as watch:
            found = None
            while found is None:
                found = watch.next(0.0001)
            self.assertEqual(found, Snapshot({7: "a"}, 1))

    def test_part_of_an_event_costs_the_time_out_only(self):
        def part_of_the_second(peer):
            Script(ALL, snapshot(revision=1))(peer)
            peer.send(b"\0")
            peer.wait_for_end()

        def part_of_the_first(peer):
            peer.receive()
            peer.send_in_vain(b"\0")
            peer.wait_for_end()

        late = Disconnected("the host did not answer in time")
        with watching(part_of_the_first, timeout=0.01) as watch:
            self.assertEqual(next(watch), late)
        with watching(part_of_the_second, timeout=None) as watch:
            self.assertEqual(next(watch), Snapshot({}, 1))
            watch._timeout = 0.01
            self.assertEqual(next(watch), late)

    def test_a_broken_event_ends_the_watch(self):
        first = snapshot((7, b"a"), revision=3)
        broken = {
            "no message": [b"\xff"],
            "service twice": [snapshot((7, b"a"), (7, b"a"), revision=1)],
            "registered and withdrawn": [first, event(service(1, 8, b"a"), number(3, 8), revision=4)],
            "snapshot with changes": [event(number(4, 1), number(3, 8), revision=1)],
            "changes before a snapshot": [event(number(3, 7), revision=1)],
            "another epoch": [first, event(number(3, 7), epoch=8, revision=4)],
            "a snapshot of another epoch": [first, snapshot(epoch=8, revision=4)],
            "an earlier revision": [first, event(number(3, 7), revision=2)],
            "the same revision": [first, event(number(3, 7), revision=3)],
            "nothing": [first, event(revision=3)],
            "an earlier snapshot": [first, snapshot(revision=2)],
            "another service": [snapshot((8, b"a"), revision=3)],
        }
        for name, events in broken.items():
            with self.subTest(name):
                ids = [7] if name == "another service" else None
                request = number(1, 7) if ids else ALL
                with watching(Script(request, *events, stays=True), ids=ids) as watch:
                    taken(watch, len(events) - 1)
                    self.assertRaises(qvclient.BrokenAnswer, next, watch)
                    self.assertRaises(StopIteration, next, watch)

    def test_an_answer_to_another_request_ends_the_watch(self):
        for number_ in (0, 2):
            def script(peer, number_=number_):
                peer.receive()
                peer.answer(0, snapshot(revision=1), number_)
                peer.wait_for_end()

            with self.subTest(number_), watching(script) as watch:
                self.assertRaises(qvclient.BrokenAnswer, next, watch)

    def test_a_resumed_event_without_services_has_to_be_the_first(self):
        scripts = (
            Script(ALL, snapshot(revision=3)),
            Script(known(7, 3), event(revision=4), event(revision=4), stays=True),
        )
        with watching(*scripts) as watch:
            self.assertEqual(taken(watch, 3)[2], Changes({}, {}, (), 4))
            self.assertRaises(qvclient.BrokenAnswer, next, watch)

    def test_waiting_ends_when_the_service_is_registered(self):
        def nothing_found(peer):
            peer.answer(0, b"", peer.receive()[2])

        script = Script(
            number(1, 7), snapshot(revision=1), event(service(1, 7, b"a"), revision=2), stays=True
        )
        with ScriptedServer(nothing_found, script) as server, qvclient.Client(server.path) as client:
            self.assertEqual(client.wait_for(7), "a")

    def test_waiting_ends_in_time_whatever_the_host_sends(self):
        def nothing_found(peer):
            peer.answer(0, b"", peer.receive()[2])

        def subscribed(peer):
            peer.receive()

        other = Changes({8: "a"}, {}, (), 1)
        with ScriptedServer(nothing_found, subscribed) as server, qvclient.Client(server.path) as client:
            with unittest.mock.patch.object(qvclient.Watch, "next", return_value=other):
                self.assertRaises(qvclient.TimedOut, client.wait_for, 7, timeout=0.01)

    def test_events_bring_a_dictionary_up(self):
        services = {1: "a", 2: "b", 3: "c"}
        Changes({4: "d"}, {1: "x"}, (2, 5), 7).apply(services)
        self.assertEqual(services, {1: "x", 3: "c", 4: "d"})
        Disconnected("").apply(services)
        self.assertEqual(services, {1: "x", 3: "c", 4: "d"})
        Snapshot({9: "e"}, 8).apply(services)
        self.assertEqual(services, {9: "e"})


if __name__ == "__main__":
    unittest.main()
