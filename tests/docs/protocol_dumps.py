# SPDX-License-Identifier: Apache-2.0

"""Plays the dumps of docs/protocol.md with a host and compares what the host sends.

    protocol_dumps.py PAGE QVHOST

The page says how its dumps are read. The folder of resident_host.py has to be in PYTHONPATH.
"""

import pathlib
import re
import socket
import struct
import sys
import tempfile

from resident_host import ResidentHost

PAGE, QVHOST = (pathlib.Path(argument).resolve() for argument in sys.argv[1:3])
LINE = re.compile(r"^    ([12]?)([<>]) (.*?) *(?:;.*)?$", re.MULTILINE)
HEADER = re.compile(r"(?:\S\S ){3}\S\S(?:  (?:\S\S ){3}\S\S){2}$")
TIMEOUT = 60
PATTERNS = {"..": b".", "...": b".*?"}


def blocks():
    """Returns the blocks of the page. Each has steps: the client, the direction, and words. A step is a frame, part
    of a request, or "end"."""
    found = []
    for block in re.findall(r"(?:^    [12]?[<>] .*\n)+", PAGE.read_text(encoding="utf-8"), re.MULTILINE):
        steps = []
        for client, direction, text in LINE.findall(block):
            # A frame of the host begins with its header.
            if direction == ">" or text == "end" or HEADER.match(text):
                steps.append((client, direction, text.split()))
            else:
                steps[-1][2].extend(text.split())
        found.append(steps)
    return found


class Player:
    def __init__(self, path):
        self.path = path
        self.epoch = {}

    def play(self, steps):
        connections = {}
        for client, direction, words in steps:
            if client not in connections:
                connections[client] = socket.socket(socket.AF_UNIX)
                connections[client].settimeout(TIMEOUT)
                connections[client].connect(self.path)
            connection = connections[client]
            if direction == "<":
                self.expect(receive(connection), words)
            elif words == ["end"]:
                connection.close()
            else:
                connection.sendall(b"".join(self.epoch.get(word) or bytes.fromhex(word) for word in words))
        for connection in connections.values():
            connection.close()

    def expect(self, received, words):
        expected = b"" if words == ["end"] else b"".join(self.pattern(word) for word in words)
        match = re.fullmatch(expected, received, re.DOTALL)
        if not match:
            sys.exit(f"the page has\n{' '.join(words)}\nand the host sends\n{received.hex(' ')}\n{received}")
        self.epoch.update(match.groupdict())

    def pattern(self, word):
        if word in self.epoch:
            return re.escape(self.epoch[word])
        if word.startswith("x"):
            return b"(?P<%s>.)" % word.encode()
        return PATTERNS.get(word) or re.escape(bytes.fromhex(word))


def receive(connection):
    """Returns the next frame, or nothing if the host has closed the connection."""
    header = connection.recv(12, socket.MSG_WAITALL)
    if len(header) < 12:
        return header
    length = struct.unpack("<III", header)[1]
    return header + (connection.recv(length, socket.MSG_WAITALL) if length else b"")


def main():
    found = blocks()
    with tempfile.TemporaryDirectory() as folder, ResidentHost(QVHOST, folder) as host:
        host.start()
        player = Player(host.socket)
        for steps in found:
            player.play(steps)
        host.stop()
    played = sum(len(steps) for steps in found)
    if played < 50:
        sys.exit(f"the page has only {played} steps")
    print(f"{played} steps")


main()
