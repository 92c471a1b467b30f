# SPDX-License-Identifier: Apache-2.0

"""Writes and reads the bytes of the protocol, without any socket.

The readers check what they read and raise BrokenAnswer, because any program can listen in the host's place.
"""

from __future__ import annotations

import struct
from typing import Dict, Iterable, Iterator, List, Mapping, NamedTuple, Set, Tuple

from .errors import BadArgument, BrokenAnswer

STATUS = 1
PING = 0
SYNC = 2
FIND = 4
SUBSCRIBE = 5
REGISTER = 0x0200
UNREGISTER = 0x0201
LIST = 0x0202

NO_MEMORY = 20006
NO_PLACE = 21002
TOO_LATE = 21004
STOPPING = 21005
NOT_KEPT = 21009
SUBSCRIBED = 21012

LONGEST_ADDRESS = 4096
LONGEST_CONTENT = 0xFFFFFFFF
# What the client takes of a host: more than any directory within the bounds has.
LONGEST_ANSWER = 64 << 20
MOST_FIELDS = 1_000_000
LONGEST_TEXT = 1000

NUMBER = 0
EIGHT_BYTES = 1
BYTES = 2
FOUR_BYTES = 5


def closes_the_connection(result: int) -> bool:
    return 21001 <= result <= STOPPING or result == SUBSCRIBED


HEADER_SIZE = 12


class Header(NamedTuple):
    code: int
    length: int
    number: int

    def packed(self) -> bytes:
        return struct.pack("<III", *self)

    @classmethod
    def unpacked(cls, packed: bytes) -> Header:
        return cls(*struct.unpack("<III", packed))


def printable(content: bytes) -> str:
    """Returns a text for people as one printable line of bounded length."""
    text = content[: 4 * LONGEST_TEXT].decode(errors="replace")[:LONGEST_TEXT]
    return "".join(c if c.isprintable() else c.encode("unicode_escape").decode() for c in text)


def text_of(result: int, content: bytes) -> str:
    """Returns the text of an answer with this result, which is not 0."""
    return printable(content) if 21000 <= result <= 21999 else ""


def number(value: int) -> bytes:
    value &= (1 << 64) - 1
    encoded = bytearray()
    while value > 0x7F:
        encoded.append(value & 0x7F | 0x80)
        value >>= 7
    encoded.append(value)
    return bytes(encoded)


def number_field(field: int, value: int) -> bytes:
    return number(field << 3 | NUMBER) + number(value)


def bytes_field(field: int, content: bytes) -> bytes:
    return number(field << 3 | BYTES) + number(len(content)) + content


def fixed64_field(field: int, value: int) -> bytes:
    return number(field << 3 | EIGHT_BYTES) + struct.pack("<Q", value)


def _taken_number(message: bytes, place: int) -> Tuple[int, int]:
    value = 0
    for shift in range(0, 70, 7):
        if place == len(message):
            raise BrokenAnswer("the host's answer ends inside a number")
        byte = message[place]
        place += 1
        value |= (byte & 0x7F) << shift
        if byte < 0x80:
            return value & (1 << 64) - 1, place
    raise BrokenAnswer("the host's answer holds a number that does not end")


class Field(NamedTuple):
    """A field of a message. The number is 0 if the value is bytes, and the bytes are empty if it is a number."""

    place: int
    kind: int
    number: int
    content: bytes


class Room:
    """How many fields an answer may still have. A service takes three. A short field takes much more time and memory
    than the answer is long."""

    def __init__(self) -> None:
        self._left = MOST_FIELDS

    def take(self) -> None:
        if self._left == 0:
            raise BrokenAnswer(f"the host's answer has more than {MOST_FIELDS} fields")
        self._left -= 1


def fields(message: bytes, room: Room) -> Iterator[Field]:
    place = 0
    while place < len(message):
        room.take()
        key, place = _taken_number(message, place)
        kind = key & 7
        if key >> 3 == 0:
            raise BrokenAnswer("the host's answer holds a field without a number")
        if kind == NUMBER:
            value, place = _taken_number(message, place)
            yield Field(key >> 3, kind, value, b"")
            continue
        if kind == BYTES:
            size, place = _taken_number(message, place)
        elif kind in (EIGHT_BYTES, FOUR_BYTES):
            size = 8 if kind == EIGHT_BYTES else 4
        else:
            raise BrokenAnswer("the host's answer holds a field of an unknown kind")
        if size > len(message) - place:
            raise BrokenAnswer("the host's answer ends inside a field")
        content = message[place : place + size]
        place += size
        if kind == BYTES:
            yield Field(key >> 3, kind, 0, content)
        else:
            yield Field(key >> 3, kind, int.from_bytes(content, "little"), b"")


def int32(value: int) -> int:
    value &= 0xFFFFFFFF
    return value - ((value & 0x80000000) << 1)


def int64(value: int) -> int:
    return value - ((value & 1 << 63) << 1)


def checked_id(identifier: int) -> int:
    if not -(1 << 31) <= identifier < 1 << 31:
        raise BadArgument(f"{identifier} is no identifier: it does not fit in 32 bits")
    return identifier


def _encoded_address(identifier: int, address: str) -> bytes:
    what = f"the address of {identifier}"
    try:
        encoded = address.encode()
    except UnicodeEncodeError:
        raise BadArgument(f"{what} is not UTF-8") from None
    if not 0 < len(encoded) <= LONGEST_ADDRESS:
        raise BadArgument(f"{what} has {len(encoded)} bytes, and must have 1 to {LONGEST_ADDRESS}")
    if "\0" in address or address.startswith("\ufeff"):
        raise BadArgument(f"{what} holds a zero byte or begins with U+FEFF")
    return encoded


def registration(services: Mapping[int, str]) -> bytes:
    return b"".join(
        bytes_field(1, number_field(1, checked_id(i)) + bytes_field(2, _encoded_address(i, address)))
        for i, address in services.items()
    )


def withdrawal(ids: Iterable[int]) -> bytes:
    return b"".join(bytes_field(1, number_field(1, checked_id(i))) for i in ids)


def id_list(ids: Iterable[int]) -> bytes:
    return b"".join(number_field(1, checked_id(i)) for i in ids)


def _service(message: bytes, room: Room) -> Tuple[int, str]:
    identifier, address = 0, b""
    for place, kind, value, content in fields(message, room):
        if (place, kind) == (1, NUMBER):
            identifier = int32(value)
        elif (place, kind) == (2, BYTES):
            address = content
    # Older hosts took addresses of any bytes.
    return identifier, address.decode(errors="surrogateescape")


class ServiceReader:
    """Collects services of one answer, which may have each service once."""

    def __init__(self) -> None:
        self.room = Room()
        self.ids: Set[int] = set()

    def take(self, message: bytes, services: Dict[int, str]) -> None:
        identifier, address = _service(message, self.room)
        self.note(identifier)
        services[identifier] = address

    def note(self, identifier: int) -> None:
        if identifier in self.ids:
            raise BrokenAnswer(f"the host's answer has service {identifier} twice")
        self.ids.add(identifier)


def service_list(message: bytes) -> Dict[int, str]:
    """Reads the output of list and find."""
    services: Dict[int, str] = {}
    reader = ServiceReader()
    for place, kind, _, content in fields(message, reader.room):
        if (place, kind) == (1, BYTES):
            reader.take(content, services)
    if list(services) != sorted(services):
        raise BrokenAnswer("the services of the host's answer are not in their order")
    return services


class WireEvent:
    """An event of a subscription, as the host sends it."""

    def __init__(self, message: bytes) -> None:
        self.registered: Dict[int, str] = {}
        self.changed: Dict[int, str] = {}
        self.withdrawn: List[int] = []
        self.is_snapshot = False
        self.epoch = 0
        self.revision = 0
        reader = ServiceReader()
        for place, kind, value, content in fields(message, reader.room):
            if (place, kind) == (1, BYTES):
                reader.take(content, self.registered)
            elif (place, kind) == (2, BYTES):
                reader.take(content, self.changed)
            elif (place, kind) == (3, NUMBER):
                reader.note(int32(value))
                self.withdrawn.append(int32(value))
            elif (place, kind) == (4, NUMBER):
                self.is_snapshot = value != 0
            elif (place, kind) == (5, EIGHT_BYTES):
                self.epoch = value
            elif (place, kind) == (6, NUMBER):
                self.revision = int64(value)
        self.ids = reader.ids
        if self.is_snapshot and (self.changed or self.withdrawn):
            raise BrokenAnswer("the host sent all services and changes in one event")
