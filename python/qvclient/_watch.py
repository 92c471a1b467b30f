# SPDX-License-Identifier: Apache-2.0

"""Subscriptions that outlive their connections."""

from __future__ import annotations

import time
from dataclasses import dataclass
from typing import Callable, Dict, FrozenSet, Iterator, Optional, Tuple, Union

from . import _wire
from ._stream import Deadline, Stream
from .errors import BrokenAnswer, CannotConnect, ConnectionLost, Refused, TimedOut

# A host that answers so may take the subscription later.
_TEMPORARY = {_wire.NO_MEMORY, _wire.NO_PLACE, _wire.TOO_LATE, _wire.STOPPING}

# Seconds between attempts to connect again.
_FIRST_PAUSE = 0.05
_LONGEST_PAUSE = 1.0

_REQUEST = 1


@dataclass(frozen=True)
class Snapshot:
    """All services that the watch is about. The receiver forgets what it knew."""

    services: Dict[int, str]
    revision: int

    def apply(self, services: Dict[int, str]) -> None:
        """Replaces what the receiver knew by the services of now."""
        services.clear()
        services.update(self.services)


@dataclass(frozen=True)
class Changes:
    """What one commit changed. After a Disconnected, Changes without services say that nothing has changed."""

    registered: Dict[int, str]
    changed: Dict[int, str]
    withdrawn: Tuple[int, ...]
    revision: int

    def apply(self, services: Dict[int, str]) -> None:
        """Makes the changes in what the receiver knew."""
        services.update(self.registered)
        services.update(self.changed)
        for identifier in self.withdrawn:
            services.pop(identifier, None)


@dataclass(frozen=True)
class Disconnected:
    """The host cannot be asked now, for this reason. The watch connects again by itself.

    Changes follow if the host still knows what has changed meanwhile. Otherwise a Snapshot follows.
    """

    reason: str

    def apply(self, services: Dict[int, str]) -> None:
        """Leaves the services as they are known."""


Event = Union[Snapshot, Changes, Disconnected]


class Watch(Iterator[Event]):
    """Iterates over the events of a subscription, without an end. Client.watch() makes it.

    Raises WrongHost, BrokenAnswer, or Refused for a lasting reason, and has no further events then. Only one thread
    at a time may use a watch.
    """

    def __init__(
        self, connect: Callable[[], Stream], timeout: Optional[float], ids: Optional[FrozenSet[int]]
    ) -> None:
        self._connect = connect
        self._timeout = timeout
        self._ids = ids
        self._content = b"" if ids is None else _wire.id_list(sorted(ids))
        self._known: Optional[Tuple[int, int]] = None  # the epoch and the revision of the last event
        self._stream: Optional[Stream] = None
        self._is_open = True
        self._is_first = True  # no event of this connection has arrived
        self._is_told = False  # the caller knows that the connection is lost
        self._frame = Deadline(timeout)  # when the answer that is under way must be complete
        self._pause = 0.0
        self._retry = Deadline(0)
        try:
            self._subscribe()
        except BaseException:
            self.close()
            raise

    def __enter__(self) -> Watch:
        return self

    def __exit__(self, *exception: object) -> None:
        self.close()

    def __iter__(self) -> Watch:
        return self

    def __next__(self) -> Event:
        event = self.next()
        if event is None:
            raise StopIteration
        return event

    def close(self) -> None:
        self._is_open = False
        self._drop()

    def next(self, timeout: Optional[float] = None) -> Optional[Event]:
        """Returns the next event. Returns None if the time in seconds is over, or if the watch is closed."""
        deadline = Deadline(timeout)
        while self._is_open:
            try:
                stream = self._stream or self._connected(deadline)
                return None if stream is None else self._received(stream, deadline)
            except (CannotConnect, ConnectionLost, TimedOut) as error:
                reason = str(error)
            except Refused as error:
                if error.code not in _TEMPORARY:
                    self.close()
                    raise
                reason = str(error)
            except BaseException:
                # Part of an answer may be lost.
                self.close()
                raise
            self._drop()
            if not self._is_told:
                self._is_told = True
                return Disconnected(reason)
        return None

    def _connected(self, deadline: Deadline) -> Optional[Stream]:
        """Connects again when the pause is over. Returns None if the deadline comes first."""
        time.sleep(self._retry.sooner(deadline).left() or 0)
        return self._subscribe() if self._retry.is_over() else None

    def _subscribe(self) -> Stream:
        self._is_first = True
        self._frame = Deadline(self._timeout)
        self._stream = self._connect()
        content = self._content
        if self._known is not None:
            epoch, revision = self._known
            content += _wire.fixed64_field(2, epoch) + _wire.number_field(3, revision)
        self._stream.send(_wire.SUBSCRIBE, content, _REQUEST, self._frame)
        return self._stream

    def _drop(self) -> None:
        if self._stream is not None:
            self._stream.close()
            self._stream = None
        self._pause = min(max(2 * self._pause, _FIRST_PAUSE), _LONGEST_PAUSE)
        self._retry = Deadline(self._pause)

    def _received(self, stream: Stream, deadline: Deadline) -> Optional[Event]:
        """Returns the next event of the connection, or None if the deadline comes first."""
        if not self._is_first and not stream.has_part():
            if not stream.wait(deadline):
                return None
            self._frame = Deadline(self._timeout)
        try:
            header, content = stream.receive(self._frame.sooner(deadline))
        except TimedOut:
            if self._frame.is_over():
                raise
            return None
        if header.number not in (_REQUEST, 0):
            raise BrokenAnswer(f"the host's answer is to request {header.number}")
        if header.code != 0:
            raise Refused(header.code, _wire.text_of(header.code, content))
        if header.number == 0:
            raise BrokenAnswer("the host's answer is to no request")
        event = _wire.WireEvent(content)
        self._check(event)
        self._known = (event.epoch, event.revision)
        self._is_first = self._is_told = False
        self._pause = 0.0
        if event.is_snapshot:
            return Snapshot(event.registered, event.revision)
        return Changes(event.registered, event.changed, tuple(event.withdrawn), event.revision)

    def _check(self, event: _wire.WireEvent) -> None:
        """Raises BrokenAnswer if the event cannot follow those that have arrived."""
        if self._ids is not None and not self._ids.issuperset(event.ids):
            raise BrokenAnswer("the host sent an event of another service")
        if self._is_first and event.is_snapshot:
            return
        if self._known is None:
            raise BrokenAnswer("the host sent changes of services that it has not sent")
        epoch, revision = self._known
        # A host that was started again and goes on has an epoch of its own.
        if epoch != event.epoch and not self._is_first:
            raise BrokenAnswer("the host has changed its epoch")
        # Only an event that says something new has a higher revision.
        says_nothing = event.is_snapshot or (self._is_first and not event.ids)
        if event.revision < revision + (0 if says_nothing else 1):
            raise BrokenAnswer(f"the host sent revision {event.revision} after {revision}")
