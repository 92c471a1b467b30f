# SPDX-License-Identifier: Apache-2.0

"""Plays a host that sends what a test says.

    def answer(peer):
        command, content, number = peer.receive()
        peer.answer(0, b"", number)

    with ScriptedServer(answer, answer) as server:     # two connections, one after the other
        qvclient.Client(server.path).ping()

A script's connection ends with the script. Leaving the block waits for all scripts and raises what they raise.
"""

import contextlib
import os
import socket
import struct
import tempfile
import threading

# Only a broken test waits as long.
PATIENCE = 60


def varint(value):
    value &= (1 << 64) - 1
    encoded = b""
    while value > 0x7F:
        encoded += bytes([value & 0x7F | 0x80])
        value >>= 7
    return encoded + bytes([value])


def number(field, value):
    return varint(field << 3) + varint(value)


def text(field, content):
    return varint(field << 3 | 2) + varint(len(content)) + content


def service(field, identifier, address):
    return text(field, number(1, identifier) + text(2, address))


def event(*fields, epoch=7, revision):
    return b"".join(fields) + varint(5 << 3 | 1) + struct.pack("<Q", epoch) + number(6, revision)


def snapshot(*services, epoch=7, revision):
    return event(*(service(1, *each) for each in services), number(4, 1), epoch=epoch, revision=revision)


class Peer:
    def __init__(self, connection):
        self._socket = connection
        self._socket.settimeout(PATIENCE)

    def receive_header(self):
        return struct.unpack("<III", self._bytes(12))

    def receive(self):
        code, length, number_ = self.receive_header()
        return code, self._bytes(length), number_

    def answer(self, result, content, number_):
        self.send(struct.pack("<III", result, len(content), number_) + content)

    def send(self, content):
        self._socket.sendall(content)

    def send_in_vain(self, content):
        """Sends bytes to a client that may have gone already."""
        with contextlib.suppress(ConnectionError):
            self.send(content)

    def wait_for_end(self):
        # A client that has not read everything resets the connection.
        with contextlib.suppress(ConnectionResetError):
            assert self._socket.recv(1) == b"", "the client sent more"

    def _bytes(self, count):
        content = self._socket.recv(count, socket.MSG_WAITALL) if count else b""
        assert len(content) == count, "the client closed the connection"
        return content


class ScriptedServer:
    def __init__(self, *scripts):
        self._folder = tempfile.TemporaryDirectory()
        self.path = os.path.join(self._folder.name, "socket")
        self._scripts = scripts
        self._failure = None
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.settimeout(PATIENCE)
        self._socket.bind(self.path)
        self._socket.listen()
        self._thread = threading.Thread(target=self._play)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, kind, error, trace):
        self._thread.join()
        self._socket.close()
        self._folder.cleanup()
        if error is None and self._failure is not None:
            raise self._failure

    def _play(self):
        try:
            for script in self._scripts:
                connection, _ = self._socket.accept()
                with connection:
                    script(Peer(connection))
        except Exception as failure:  # pylint: disable=broad-except
            self._failure = failure
