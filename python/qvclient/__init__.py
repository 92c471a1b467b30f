# SPDX-License-Identifier: Apache-2.0

"""Registers, finds and watches services with the resident host, `qvhost serve`.

    import qvclient

    with qvclient.Client() as client:
        client.register({1: "/run/a.sock"})
        print(client.wait_for(2, timeout=60))
        for event in client.watch([2]):
            print(event)

A client has one connection to the host's socket. Every method sends one request and returns when the host has
carried out the request. It raises a QvError if that fails.

Kept changes: a change that is kept is on the host's disk. It outlives a killed host and a power failure. If the host
cannot write to its disk, it makes the change nevertheless, and the ChangeResult says why the change is not kept.

Time: connecting may take as long as the client's time-out, in seconds. The same holds for each request up to the end
of its answer. None stands for no end.

Lost connections: before a request, the client notices that the host has closed the connection, and connects again. If
the connection breaks during a request, the client does not know whether the host has carried out the request. The
method raises ConnectionLost or TimedOut, and the request may be repeated.

Addresses are UTF-8 of 1 to 4096 bytes without a zero byte, and without U+FEFF at the beginning. A listing may hold
other addresses, which older hosts took. A byte that is not UTF-8 becomes a lone surrogate (PEP 383).

Only one thread at a time may use a client or a watch.
"""

from __future__ import annotations

import os
from dataclasses import dataclass
from typing import Dict, Iterable, Mapping, Optional, Tuple, Union

from . import _wire
from ._stream import Deadline, Stream, default_path, user_id
from ._watch import Changes, Disconnected, Event, Snapshot, Watch
from .errors import (
    BadArgument,
    BrokenAnswer,
    CannotConnect,
    ConnectionLost,
    QvError,
    Refused,
    TimedOut,
    WrongHost,
)

__all__ = [
    "BadArgument",
    "BrokenAnswer",
    "CannotConnect",
    "ChangeResult",
    "Changes",
    "Client",
    "ConnectionLost",
    "Disconnected",
    "Event",
    "QvError",
    "Refused",
    "Snapshot",
    "Status",
    "TimedOut",
    "Watch",
    "WrongHost",
    "default_path",
]


@dataclass(frozen=True)
class ChangeResult:
    """Tells whether a change outlives the host that made it."""

    is_kept: bool = True
    reason: str = ""  # why not, for people


@dataclass(frozen=True)
class Status:
    """What the host tells about itself. Its texts are for people. Times are in seconds since 1970-01-01 UTC."""

    version: str
    start_time: int
    start: str  # what the last start or reload did
    services: int
    address_bytes: int  # of all services
    revision: int  # of the directory
    is_kept: bool  # a restart finds the directory of now
    not_kept_reason: str
    clients: int
    client_limit: int


class Client:
    """A connection to the host at `path`, which is default_path() by default.

    If host_user is a name or a number, only root or this user may run the host. Anybody can listen in a directory
    that others may write.

    Raises CannotConnect, WrongHost, TimedOut or BadArgument.
    """

    def __init__(
        self,
        path: Union[str, os.PathLike[str], None] = None,
        timeout: Optional[float] = 30.0,
        host_user: Union[int, str, None] = None,
    ) -> None:
        self._path = default_path() if path is None else os.fspath(path)
        self._timeout = timeout
        self._host_user = None if host_user is None else user_id(host_user)
        self._number = 0
        self._stream: Optional[Stream] = self._connect(Deadline(timeout))

    def __enter__(self) -> Client:
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    def close(self) -> None:
        """Closes the connection. The next request connects again."""
        if self._stream is not None:
            self._stream.close()
            self._stream = None

    def register(self, services: Mapping[int, str]) -> ChangeResult:
        """Registers the addresses, all or none. An address replaces the one that its identifier has.

        Raises Refused with the code 21008 if the directory has no room, and BadArgument if it cannot hold an address.
        """
        return self._change(_wire.REGISTER, _wire.registration(services))

    def unregister(self, ids: Iterable[int]) -> ChangeResult:
        """Removes services. Ignores identifiers that are not registered."""
        return self._change(_wire.UNREGISTER, _wire.withdrawal(ids))

    def services(self) -> Dict[int, str]:
        """Returns the addresses of all services, ascending by identifier."""
        return _wire.service_list(self._request(_wire.LIST, b""))

    def find(self, *ids: int) -> Dict[int, str]:
        """Returns the addresses of those of the services that are registered, ascending by identifier."""
        content = _wire.id_list(ids)
        if not content:
            return {}
        found = _wire.service_list(self._request(_wire.FIND, content))
        if not found.keys() <= set(ids):
            raise BrokenAnswer("the host found a service that was not asked for")
        return found

    def wait_for(self, identifier: int, timeout: Optional[float] = None) -> str:
        """Returns the address of the service as soon as the service is registered.

        Waits across a restart of the host. Raises TimedOut after the time in seconds.
        """
        deadline = Deadline(timeout)
        address = self.find(identifier).get(identifier)
        if address is not None:
            return address
        with self.watch([identifier]) as watch:
            while True:
                event = watch.next(deadline.left())
                if isinstance(event, (Snapshot, Changes)):
                    services = event.services if isinstance(event, Snapshot) else event.registered
                    if identifier in services:
                        return services[identifier]
                if event is None or deadline.is_over():
                    raise TimedOut(f"service {identifier} was not registered in time")

    def watch(self, ids: Optional[Iterable[int]] = None) -> Watch:
        """Returns an iterator over the changes of these services, or of all. It has a connection of its own.

        The first event is a Snapshot. Raises what the constructor raises.
        """
        wanted = None if ids is None else frozenset(ids)
        if wanted is not None and not wanted:
            raise BadArgument("there is no service to watch")
        return Watch(lambda: self._connect(Deadline(self._timeout)), self._timeout, wanted)

    def sync(self) -> None:
        """Returns when the plug-in's file holds the directory as it is now."""
        self._request(_wire.SYNC, b"")

    def ping(self) -> None:
        """Returns when the host has answered."""
        self._request(_wire.PING, b"")

    def status(self) -> Status:
        answer = self._request(_wire.STATUS, b"")
        fields = {(field.place, field.kind): field for field in _wire.fields(answer, _wire.Room())}

        def number(place: int) -> int:
            field = fields.get((place, _wire.NUMBER))
            return 0 if field is None else field.number

        def text(place: int) -> str:
            field = fields.get((place, _wire.BYTES))
            return "" if field is None else _wire.printable(field.content)

        if (7, _wire.NUMBER) not in fields:
            raise BrokenAnswer("the host's answer is no status")
        return Status(
            version=text(1),
            start_time=_wire.int64(number(2)),
            start=text(3),
            services=number(4),
            address_bytes=number(5),
            revision=_wire.int64(number(6)),
            is_kept=number(7) != 0,
            not_kept_reason=text(9),
            clients=number(13),
            client_limit=number(14),
        )

    def _connect(self, deadline: Deadline) -> Stream:
        return Stream(self._path, deadline, self._host_user)

    def _change(self, command: int, content: bytes) -> ChangeResult:
        if not content:
            return ChangeResult()
        try:
            self._request(command, content)
            return ChangeResult()
        except Refused as error:
            if error.code != _wire.NOT_KEPT:
                raise
            return ChangeResult(False, error.text or "the host does not say why")

    def _request(self, command: int, content: bytes) -> bytes:
        deadline = Deadline(self._timeout)
        # No request is under way. So the host has closed the connection, or says why it will.
        if self._stream is not None and self._stream.wait(Deadline(0)):
            self.close()
        if self._stream is None:
            self._stream = self._connect(deadline)
        try:
            header, answer = self._exchange(self._stream, command, content, deadline)
        except BaseException:
            # A late answer would be taken for the answer to the next request.
            self.close()
            raise
        if header.code != 0:
            raise Refused(header.code, _wire.text_of(header.code, answer))
        return answer

    def _exchange(
        self, stream: Stream, command: int, content: bytes, deadline: Deadline
    ) -> Tuple[_wire.Header, bytes]:
        self._number = self._number % 0xFFFFFFFF + 1
        is_sent = stream.send(command, content, self._number, deadline)
        header, answer = stream.receive(deadline)
        is_refusal = _wire.closes_the_connection(header.code)
        if header.number != self._number and not (header.number == 0 and is_refusal):
            raise BrokenAnswer(f"the host's answer is to request {header.number}, not {self._number}")
        if not is_sent and not is_refusal:
            raise BrokenAnswer("the host's answer came before the request was sent")
        if is_refusal:
            self.close()
        return header, answer
