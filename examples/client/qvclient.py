#!/usr/bin/env python3
"""Talks to the resident host without any library.

    client = QvClient("/run/Vornak/LorxCore/namingService.sock")
    client.register({1: b"/run/a.sock"})
    client.services()          # {1: b"/run/a.sock"}
    client.unregister([1])

or from a shell:

    qvclient.py SOCKET register ID ADDRESS
    qvclient.py SOCKET unregister ID
    qvclient.py SOCKET list

register() and unregister() return None, or why the host could not write the change to its disk. The host has
made such a change nevertheless, but a restart may lose it.

QvFrame.h describes the frames on the socket. The messages in them are of Protocol Buffers. This client
writes and reads what lists of services have of them.
"""
import socket
import struct
import sys

REGISTER_SERVICES = 0x0200
UNREGISTER_SERVICES = 0x0201
GET_SERVICES = 0x0202

NOT_KEPT = 21009

LONGEST_ADDRESS = 4096
BYTE_ORDER_MARK = "\ufeff".encode()

WIRE_NUMBER = 0
WIRE_BYTES = 2


class QvError(Exception):
    """The host or the plug-in answered with a result that is not 0."""

    def __init__(self, code, text):
        super().__init__(f"the host answered {code}: {text}")
        self.code = code
        self.text = text


def _number(value):
    """Encodes a number: 7 bits in each byte, the lowest first; a negative number has 64 bits."""
    value &= (1 << 64) - 1
    encoded = bytearray()
    while value > 0x7F:
        encoded.append(value & 0x7F | 0x80)
        value >>= 7
    encoded.append(value)
    return bytes(encoded)


def _bytes_field(number, content):
    return _number(number << 3 | WIRE_BYTES) + _number(len(content)) + content


def _service(identifier, address=None):
    content = _number(1 << 3 | WIRE_NUMBER) + _number(identifier)
    if address is not None:
        content += _bytes_field(2, address)
    return _bytes_field(1, content)


def _take_number(message, place):
    value = 0
    for shift in range(0, 64, 7):
        byte = message[place]
        place += 1
        value |= (byte & 0x7F) << shift
        if byte < 0x80:
            return value, place
    raise ValueError("a number that does not end")


def _fields(message):
    place = 0
    while place < len(message):
        tag, place = _take_number(message, place)
        value, place = _take_number(message, place)
        if tag & 7 == WIRE_BYTES:
            if place + value > len(message):
                raise ValueError("a field longer than its message")
            value, place = message[place : place + value], place + value
        elif tag & 7 != WIRE_NUMBER:
            raise ValueError("a field of another kind")
        yield tag >> 3, value


def _check(identifier, address):
    """Raises ValueError if the directory cannot hold the address. The host would refuse all of the request."""
    if not 0 < len(address) <= LONGEST_ADDRESS:
        raise ValueError(f"the address of {identifier} must have 1 to {LONGEST_ADDRESS} bytes")
    if b"\0" in address or address.startswith(BYTE_ORDER_MARK):
        raise ValueError(f"the address of {identifier} holds a zero byte or begins with a byte order mark")
    try:
        address.decode()
    except UnicodeDecodeError:
        raise ValueError(f"the address of {identifier} is not UTF-8") from None


class QvClient:
    def __init__(self, path):
        self._number = 0
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.connect(path)

    def close(self):
        self._socket.close()

    def register(self, services):
        """Registers addresses, which are bytes, by their identifiers."""
        for identifier, address in services.items():
            _check(identifier, address)
        return self._change(REGISTER_SERVICES, b"".join(_service(i, a) for i, a in services.items()))

    def unregister(self, identifiers):
        return self._change(UNREGISTER_SERVICES, b"".join(_service(i) for i in identifiers))

    def services(self):
        services = {}
        for number, service in _fields(self._request(GET_SERVICES, b"")):
            if number == 1:
                fields = dict(_fields(service))
                identifier = fields.get(1, 0) & 0xFFFFFFFF
                identifier -= (identifier & 0x80000000) << 1
                services[identifier] = fields.get(2, b"")
        return services

    def _change(self, command, content):
        try:
            self._request(command, content)
        except QvError as error:
            if error.code != NOT_KEPT:
                raise
            return error.text
        return None

    def _request(self, command, content):
        self._number = self._number % 0xFFFFFFFF + 1
        self._socket.sendall(struct.pack("<III", command, len(content), self._number) + content)
        code, length, number = struct.unpack("<III", self._receive(12))
        content = self._receive(length)
        if code != 0:
            raise QvError(code, content.decode(errors="replace"))
        if number != self._number:
            raise ValueError("an answer to another request")
        return content

    def _receive(self, size):
        content = bytearray()
        while len(content) < size:
            part = self._socket.recv(min(size - len(content), 1 << 16))
            if not part:
                raise ConnectionError("the host closed the connection")
            content += part
        return bytes(content)


def main(arguments):
    match = {(3, "list"), (5, "register"), (4, "unregister")}
    if len(arguments) < 3 or (len(arguments), arguments[2]) not in match:
        print(__doc__, file=sys.stderr)
        return 2
    client = QvClient(arguments[1])
    problem = None
    if arguments[2] == "list":
        for identifier, address in client.services().items():
            print(identifier, address.decode(errors="backslashreplace"), sep="\t")
    elif arguments[2] == "register":
        problem = client.register({int(arguments[3]): arguments[4].encode(errors="surrogateescape")})
    else:
        problem = client.unregister([int(arguments[3])])
    if problem is not None:
        print(f"qvclient.py: not kept: {problem}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv))
    except (OSError, QvError, ValueError) as error:
        sys.exit(f"qvclient.py: {error}")
